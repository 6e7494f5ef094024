// The names of figures: every one that is stored has its place on the page, and every place its
// figure. Method: the table beside the mapping of empty figures.
#include "hosts/embedded/host/figure_table.hpp"

#include <limits>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

TEST(FigureTable, NamesEveryFigureOnce) {
  std::multiset<std::string> told;
  for (const FigureGroup& group : figure_groups()) {
    EXPECT_FALSE(group.heading.empty());
    for (const FigureName& figure : group.figures)
      told.emplace(figure.name);
  }
  std::multiset<std::string> stored;
  const genetic::Mapping mapping = figures_mapping({});
  genetic::MappingCursor cursor(mapping);
  while (const auto entry = cursor.next())
    stored.insert(genetic::str(entry->key));
  told.emplace(kByLag);
  told.emplace(kByYear);
  EXPECT_EQ(told, stored);
}

TEST(FigureTable, WhatIsNoNumberIsAbsent) {
  SampleFigures figures;
  figures.performance.sortino = std::numeric_limits<double>::quiet_NaN();
  figures.performance.alpha = std::numeric_limits<double>::infinity();
  figures.information.by_lag[1] = std::numeric_limits<double>::quiet_NaN();
  figures.years = {{2020, 3, 0.5, 1.5, 0.25, 0.125, 2.0}};
  const std::string text = genetic::json_text(figures_mapping(figures));
  EXPECT_THAT(text, testing::HasSubstr(R"("sortino":null)"));
  EXPECT_THAT(text, testing::HasSubstr(R"("alpha":null)"));
  EXPECT_THAT(text, testing::HasSubstr(R"("information_coefficient_by_lag":[0.0,null,0.0)"));
  EXPECT_THAT(text, testing::HasSubstr(
                        R"("by_year":[{"days":3,"drawdown":0.125,"net_return":0.5,"sharpe":1.5,)"
                        R"("turnover":2.0,"volatility":0.25,"year":2020}])"));
}

}  // namespace
}  // namespace varnholt::embedded::test
