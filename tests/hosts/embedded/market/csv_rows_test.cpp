// CSV rows: cells, quotes, line ends, and above all the line that each row begins in.
// Method: small texts with the rows written out; misplaced quotes with the exact message.
#include "hosts/embedded/market/csv_rows.hpp"

#include <gmock/gmock.h>

#include "hosts/embedded/market/price_file_error.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;

struct Row {
  std::size_t line = 0;
  std::vector<std::string> cells;
};

std::vector<Row> read_csv_rows(std::string_view text) {
  std::vector<Row> rows;
  CsvReader reader(text, "p.csv");
  while (reader.next()) {
    const CsvRow& row = reader.row();
    rows.push_back({row.line, {row.cells.begin(), row.cells.end()}});
  }
  return rows;
}

std::string refusal(std::string_view text) {
  try {
    (void)read_csv_rows(text);
  } catch (const PriceFileError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(CsvRows, SplitsRowsAndCells) {
  const auto rows = read_csv_rows("a,b,c\n1,,3\n");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_THAT(rows[0].cells, ElementsAre("a", "b", "c"));
  EXPECT_THAT(rows[1].cells, ElementsAre("1", "", "3"));
  EXPECT_EQ(rows[0].line, 1u);
  EXPECT_EQ(rows[1].line, 2u);
}

TEST(CsvRows, ANewLineAtTheEndIsNotNeeded) {
  const auto rows = read_csv_rows("a,b\n1,2");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_THAT(rows[1].cells, ElementsAre("1", "2"));
  EXPECT_THAT(read_csv_rows("a,b\n1,")[1].cells, ElementsAre("1", ""));
}

TEST(CsvRows, AnEmptyTextHasNoRows) {
  EXPECT_TRUE(read_csv_rows("").empty());
  EXPECT_TRUE(read_csv_rows("\n \t\r\n\n").empty());
  EXPECT_TRUE(read_csv_rows("\xef\xbb\xbf").empty());
}

TEST(CsvRows, AReadingEndsSoonAfterItsCheckThrows) {
  struct Interrupted {};
  std::string text;
  for (int i = 0; i < 1000; ++i)
    text += i < 500 ? "a,b\n" : "\n";  // Blank lines are lines too.
  int checks = 0;
  const auto read = [&](int last) {
    checks = 0;
    CsvReader reader(text, "p.csv", [&] {
      if (++checks == last) throw Interrupted();
    });
    while (reader.next()) {
    }
  };
  EXPECT_THROW(read(1), Interrupted);
  EXPECT_THROW(read(10), Interrupted);
  EXPECT_NO_THROW(read(0));
  EXPECT_GE(checks, 10);
}

TEST(CsvRows, CountsLinesOverBlankOnesAndAllLineEnds) {
  const auto rows = read_csv_rows("a\r\n\r\nb\n  \n\nc\rd\r\re");
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(rows[0].line, 1u);
  EXPECT_EQ(rows[1].line, 3u);
  EXPECT_EQ(rows[2].line, 6u);
  EXPECT_EQ(rows[3].line, 7u);
  EXPECT_EQ(rows[4].line, 9u);
}

TEST(CsvRows, QuotesHoldCommasQuotesAndLineEnds) {
  const auto rows = read_csv_rows("\"a,1\",\"say \"\"x\"\"\"\n\"two\nlines\",b\nc,d\n");
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_THAT(rows[0].cells, ElementsAre("a,1", "say \"x\""));
  EXPECT_THAT(rows[1].cells, ElementsAre("two\nlines", "b"));
  EXPECT_EQ(rows[1].line, 2u);
  EXPECT_EQ(rows[2].line, 4u);
}

TEST(CsvRows, ABlankLineInsideQuotesIsPartOfTheCell) {
  const auto rows = read_csv_rows("\"a\n\nb\",c\nd,e\n");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_THAT(rows[0].cells, ElementsAre("a\n\nb", "c"));
  EXPECT_EQ(rows[1].line, 4u);
}

TEST(CsvRows, BlanksAroundACellAreDropped) {
  EXPECT_THAT(read_csv_rows(" a , \" b \" ,\tc\n")[0].cells, ElementsAre("a", "b", "c"));
}

TEST(CsvRows, TheByteOrderMarkIsNoPartOfTheFirstCell) {
  EXPECT_THAT(read_csv_rows("\xef\xbb\xbf"
                            "date,b\n")[0]
                  .cells,
              ElementsAre("date", "b"));
}

TEST(CsvRows, RefusesMisplacedQuotes) {
  EXPECT_EQ(refusal("a,b\n1,2\"3\n"),
            "p.csv: line 2: a double quote stands inside a cell (character 4 of the line); put the "
            "whole cell in double quotes and write each quote in it twice");
  EXPECT_EQ(refusal("a,b\n\n\"1\"2,3\n"),
            "p.csv: line 3: a double quote stands inside a cell (character 4 of the line); put the "
            "whole cell in double quotes and write each quote in it twice");
  EXPECT_EQ(refusal("a,b\n1,\"2\n3,4\n"),
            "p.csv: line 2: a double quote that opens in this row is never closed; close it, or "
            "remove it");
}

}  // namespace
}  // namespace varnholt::embedded::test
