// Goal: a table has its figures in columns, and an expression that fits beside or below them.
// Method: one small table at several widths.
#include "apps/genetic_search/signal_table.hpp"

#include <sstream>

#include <gtest/gtest.h>

namespace varnholt::app::test {
namespace {

const std::vector<TableColumn> kTwoColumns = {{"id"}, {"pool", Align::Left}};

std::vector<SignalRow> rows() {
  return {{{"1-17", "a"}, "arith_add(cross_rank(ts_delta(close, 5)), volume)"},
          {{"2-5", "longer"}, "close"}};
}

TEST(SignalTable, PutsAWholeSignalOnOneLineWhereThereIsNoTerminal) {
  EXPECT_EQ(signal_table_text(kTwoColumns, rows(), std::nullopt),
            "  id  pool    expression\n"
            "1-17  a       arith_add(cross_rank(ts_delta(close, 5)), volume)\n"
            " 2-5  longer  close\n");
}

TEST(SignalTable, WrapsTheExpressionBesideTheFigures) {
  EXPECT_EQ(signal_table_text(kTwoColumns, rows(), 44),
            "  id  pool    expression\n"
            "1-17  a       arith_add(cross_rank(ts_delta(\n"
            "              close, 5)), volume)\n"
            " 2-5  longer  close\n");
}

TEST(SignalTable, PutsTheExpressionBelowTheFiguresOnANarrowTerminal) {
  EXPECT_EQ(signal_table_text(kTwoColumns, rows(), 43),
            "  id  pool\n"
            "1-17  a\n"
            "      arith_add(cross_rank(ts_delta(close,\n"
            "      5)), volume)\n"
            " 2-5  longer\n"
            "      close\n");
}

TEST(SignalTable, KeepsControlCharactersOffTheTerminal) {
  EXPECT_EQ(signal_table_text({{"id"}}, {{{"1-1"}, "a\nb"}}, std::nullopt),
            " id  expression\n1-1  a?b\n");
}

}  // namespace
}  // namespace varnholt::app::test
