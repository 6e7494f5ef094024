// Price files with a mistake: each is refused with its place, what is wrong, and the remedy.
// Method: one small file a mistake, against the whole text of the message.
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/market/price_file.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

std::string refusal(std::string_view text) {
  try {
    (void)read_price_text(text, "p.csv");
  } catch (const PriceFileError& error) {
    return error.what();
  }
  return "accepted";
}

// The message for one close in a long file.
std::string refusal_of_close(const std::string& close) {
  return refusal("date,symbol,close\n2011-01-03,AAA,10\n2011-01-04,AAA," + close + "\n");
}

constexpr const char* kNumberMend =
    "; write a decimal number such as 101.25, or leave the cell empty where the value is not known";
constexpr const char* kColumnsMend =
    "; a long file needs date, symbol and close, a wide file date and one column of closes an "
    "instrument, with commas between them";

TEST(PriceFileErrors, NumbersThatAreNone) {
  const std::string place = "p.csv: line 3, column 3 \"close\": ";
  EXPECT_EQ(refusal_of_close("abc"), place + "\"abc\" is not a number" + kNumberMend);
  EXPECT_EQ(refusal_of_close("10.5x"), place + "\"10.5x\" is not a number" + kNumberMend);
  EXPECT_EQ(refusal_of_close("\"1,234.5\""),
            place +
                "\"1,234.5\" is not a number, or has separators of thousands; write a decimal "
                "number such as 1234.5");
  EXPECT_EQ(refusal_of_close("0x10"), place + "\"0x10\" is not a number" + kNumberMend);
  EXPECT_EQ(refusal_of_close("1 2"), place + "\"1 2\" is not a number" + kNumberMend);
  EXPECT_EQ(refusal_of_close("+-1"), place + "\"+-1\" is not a number" + kNumberMend);
  EXPECT_EQ(refusal_of_close("inf"), place + "\"inf\" is not a finite number" + kNumberMend);
  EXPECT_EQ(refusal_of_close("1e999"),
            place + "\"1e999\" is beyond the range of numbers" + kNumberMend);
}

TEST(PriceFileErrors, PricesThatAreNotAboveZero) {
  const std::string place = "p.csv: line 3, column 3 \"close\": ";
  const std::string rest =
      " is not a price above zero; correct the price, or leave the cell empty where it is not "
      "known";
  EXPECT_EQ(refusal_of_close("0"), place + "\"0\"" + rest);
  EXPECT_EQ(refusal_of_close("-0.0"), place + "\"-0.0\"" + rest);
  EXPECT_EQ(refusal_of_close("-12.5"), place + "\"-12.5\"" + rest);
  EXPECT_EQ(refusal("date,symbol,open,close\n2011-01-03,AAA,-1,5\n"),
            "p.csv: line 2, column 3 \"open\": \"-1\"" + rest);
}

TEST(PriceFileErrors, ANegativeVolume) {
  EXPECT_EQ(refusal("date,symbol,close,volume\n2011-01-03,AAA,1,-5\n"),
            "p.csv: line 2, column 4 \"volume\": \"-5\" is a negative volume; correct it, or leave "
            "the cell empty where it is not known");
}

TEST(PriceFileErrors, AHighBelowItsLow) {
  EXPECT_EQ(refusal("date,symbol,low,high,close\n2011-01-03,AAA,9.5,9,9\n"),
            "p.csv: line 2, column 4 \"high\": \"9\" is a high below the low of the same day, "
            "\"9.5\"; correct one of the two, or leave both cells empty");
}

TEST(PriceFileErrors, Dates) {
  const std::string rest =
      " is not a calendar date; write an existing day as yyyy-mm-dd, for example 2013-03-01, or "
      "say "
      "how it is written with --date-format";
  EXPECT_EQ(refusal("date,symbol,close\n2011-02-29,AAA,1\n"),
            "p.csv: line 2, column 1 \"date\": \"2011-02-29\"" + rest);
  EXPECT_EQ(refusal("A,Date\n1,03/01/2011\n"),
            "p.csv: line 2, column 2 \"Date\": \"03/01/2011\" is a day whose order is not certain; "
            "say what it means with --date-format dd/mm/yyyy, or mm/dd/yyyy, with the signs that "
            "stand in the file");
  EXPECT_EQ(refusal("date,A\n,1\n"), "p.csv: line 2, column 1 \"date\": \"\"" + rest);
}

TEST(PriceFileErrors, MomentsWithinADay) {
  const std::string rest =
      " is a moment within a day; intraday prices are not read; give one row a day, with the day "
      "as yyyy-mm-dd";
  for (const std::string moment : {"2011-01-03 09:30:00", "2011-01-03T16:00"}) {
    EXPECT_EQ(refusal("date,A\n" + moment + ",1\n"),
              "p.csv: line 2, column 1 \"date\": \"" + moment + "\"" + rest);
  }
  EXPECT_EQ(refusal("date,A\n2011-01-03 00:00:00,1\n2011-01-04T00:00,1\n"), "accepted");
}

TEST(PriceFileErrors, Symbols) {
  EXPECT_EQ(refusal("date,symbol,close\n2011-01-03,,1\n"),
            "p.csv: line 2, column 2 \"symbol\": \"\" names no instrument; give the symbol of the "
            "instrument that this row belongs to");
  EXPECT_EQ(refusal("date,symbol,close\n2011-01-03,\"A\nB\",1\n"),
            "p.csv: line 2, column 2 \"symbol\": \"A\\x0aB\" is not a symbol of printable ASCII "
            "characters; use a ticker made of letters, digits and signs");
  EXPECT_EQ(refusal("date,\xc3\x84\n2011-01-03,1\n"),
            "p.csv: line 1, column 2: \"\xc3\x84\" is not a symbol of printable ASCII characters; "
            "use a ticker made of letters, digits and signs");
}

TEST(PriceFileErrors, TheSameDayTwice) {
  EXPECT_EQ(refusal("date,symbol,close\n2011-01-03,AAA,1\n2011-01-03,BBB,1\n\n2011-01-03,AAA,2\n"),
            "p.csv: line 5, column 1 \"date\": \"2011-01-03\" is given a second time for \"AAA\" "
            "(first in line 2); keep one row a day and instrument");
  EXPECT_EQ(refusal("date,A\n2011-01-03,1\n2011-01-04,1\n2011-01-03,1\n"),
            "p.csv: line 4, column 1 \"date\": \"2011-01-03\" is given a second time (first in "
            "line 2); keep one row a day");
}

TEST(PriceFileErrors, MissingColumns) {
  EXPECT_EQ(refusal("when,symbol,close\n2011-01-03,AAA,1\n"),
            std::string("p.csv: line 1: the header has no column \"date\"") + kColumnsMend);
  EXPECT_EQ(refusal("date,symbol,price\n2011-01-03,AAA,1\n"),
            std::string("p.csv: line 1: the header has no column \"close\"") + kColumnsMend);
  EXPECT_EQ(refusal("Date,Open,High,Low,Volume\n2011-01-03,1,1,1,1\n"),
            std::string("p.csv: line 1: the header has no column \"close\"") + kColumnsMend);
  EXPECT_EQ(refusal("2011-01-03,AAA,1\n2011-01-04,AAA,1\n"),
            std::string("p.csv: line 1: the header has no column \"date\"") + kColumnsMend);
  EXPECT_EQ(refusal("date\n2011-01-03\n"),
            "p.csv: line 1: the header names no instrument beside \"date\"; add one column of "
            "closes an instrument, or the columns symbol and close");
}

TEST(PriceFileErrors, ColumnsTooMany) {
  EXPECT_EQ(refusal("date,symbol,close,adj_close\n2011-01-03,AAA,1,1\n"),
            "p.csv: line 1, column 4: \"adj_close\" is an adjusted close beside a raw one; say "
            "which is meant with --columns close=NAME; the adjusted one scales open, high and low "
            "too");
  EXPECT_EQ(refusal("date,symbol,close,Close\n2011-01-03,AAA,1,1\n"),
            "p.csv: line 1, column 4: \"Close\" may be the close as well as \"close\"; say "
            "which it is with --columns close=NAME");
  EXPECT_EQ(refusal("date,A,B,A\n2011-01-03,1,1,1\n"),
            "p.csv: line 1, column 4: \"A\" is also the name of column 2; remove or rename one of "
            "the two");
  EXPECT_EQ(refusal("date,A,,B\n2011-01-03,1,1,1\n"),
            "p.csv: line 1, column 3: \"\" is no name for a column; give every column of the "
            "header a name");
}

TEST(PriceFileErrors, RaggedRows) {
  EXPECT_EQ(refusal("date,symbol,close\n2011-01-03,AAA\n"),
            "p.csv: line 2: the row has 2 cells where the header has 3; give it one cell a column; "
            "an empty cell is a gap");
  EXPECT_EQ(refusal("date,A\n2011-01-03,1\n2011-01-04,1,2\n"),
            "p.csv: line 3: the row has 3 cells where the header has 2; give it one cell a column; "
            "an empty cell is a gap");
}

// The beginnings of the lines of a message.
std::vector<std::string> places(const std::string& message) {
  std::vector<std::string> found;
  std::istringstream lines(message);
  for (std::string line; std::getline(lines, line);)
    found.push_back(line.substr(0, line.find_first_of("\";")));
  return found;
}

TEST(PriceFileErrors, AllMistakesOfTheRowsAreToldInTheOrderOfTheFile) {
  using testing::ElementsAre;
  EXPECT_THAT(places(refusal("date,symbol,open,close\n2011-01-03,AAA,x,-1\n2011-01-04,AAA\n"
                             "2011-02-30,AAA,1,1\n2011-01-05,AAA,1,1\n2011-01-05,AAA,1,1\n")),
              ElementsAre("p.csv: line 2, column 3 ", "p.csv: line 2, column 4 ",
                          "p.csv: line 3: the row has 2 cells where the header has 4",
                          "p.csv: line 4, column 1 ", "p.csv: line 6, column 1 "));
  // Rows of a wide file are reported in the order of the file, not of their dates.
  EXPECT_THAT(places(refusal("date,A,B\n2011-01-09,x,0\n2011-01-04,1,y\n2011-01-05,1,1\n"
                             "2011-01-05,1,1\n")),
              ElementsAre("p.csv: line 2, column 2 ", "p.csv: line 2, column 3 ",
                          "p.csv: line 3, column 3 ", "p.csv: line 5, column 1 "));
}

TEST(PriceFileErrors, TwentyMistakesAreEnough) {
  std::string text = "date,A\n";
  for (int i = 0; i < 100; ++i)
    text += "2011-01-03,x\n";
  const std::vector<std::string> found = places(refusal(text));
  ASSERT_EQ(found.size(), 21u);
  EXPECT_EQ(found[19], "p.csv: line 21, column 2 ");
  EXPECT_EQ(found[20], "p.csv: read no further after 20 mistakes");
}

TEST(PriceFileErrors, AMisplacedQuoteIsTheLast) {
  using testing::ElementsAre;
  EXPECT_THAT(places(refusal("date,A\n2011-01-03,x\n2011-01-04,1\"2\n2011-01-05,y\n")),
              ElementsAre("p.csv: line 2, column 2 ",
                          "p.csv: line 3: a double quote stands inside a cell (character 13 of the "
                          "line)"));
}

TEST(PriceFileErrors, EmptyFiles) {
  EXPECT_EQ(refusal(""),
            "p.csv: holds no header and no prices; begin it with a row such as "
            "date,symbol,open,high,low,close,volume");
  EXPECT_EQ(refusal("date,symbol,close\n\n"),
            "p.csv: holds a header but no prices; add the rows with the prices below the header");
}

TEST(PriceFileErrors, ALongValueIsCutWhereACharacterEnds) {
  const std::string forty(40, '7');
  EXPECT_EQ(refusal_of_close(forty + "x").substr(33, 46), "\"" + forty + "...\" ");
  const std::string umlaut = "\xc3\x84";
  const std::string message = refusal_of_close("'" + std::string(38, '7') + umlaut + "1");
  EXPECT_EQ(message.substr(33, 44), "\"'" + std::string(38, '7') + "...\"");
}

TEST(PriceFileErrors, AFileThatSpansTooMuch) {
  // 10,001 instruments, each on a day of its own.
  std::ostringstream text;
  text << "date,symbol,close\n";
  Date date = std::chrono::year{1970} / 1 / 1;
  for (int i = 0; i < 10001; ++i) {
    text << date_text(date) << ",S" << i << ",1\n";
    date += std::chrono::days{1};
  }
  EXPECT_EQ(
      refusal(text.str()),
      "p.csv: spans 10001 days and 10001 instruments or more, which is beyond 100000000 cells; "
      "check that date and symbol are the columns meant, or split the file");
}

TEST(PriceFileErrors, FilesThatCannotBeRead) {
  try {
    (void)read_price_file("/nowhere/prices.csv");
    FAIL();
  } catch (const PriceFileError& error) {
    EXPECT_STREQ(
        error.what(),
        "/nowhere/prices.csv: cannot be opened: No such file or directory; check the path, "
        "and that you may read the file");
  }
  try {
    (void)read_price_file("/");
    FAIL();
  } catch (const PriceFileError& error) {
    EXPECT_STREQ(error.what(),
                 "/: is a folder without price files; put files into it whose names end in .csv, "
                 ".tsv or .txt, with .gz behind or not, or name the files themselves");
  }
}

TEST(PriceFileErrors, ThePlaceIsKeptAsData) {
  try {
    (void)read_price_text("date,symbol,close\n2011-01-03,AAA,x\n", "p.csv");
    FAIL();
  } catch (const PriceFileError& error) {
    EXPECT_EQ(error.place().file, "p.csv");
    EXPECT_EQ(error.place().line, 2u);
    EXPECT_EQ(error.place().column, 3u);
    EXPECT_EQ(error.place().column_name, "close");
    EXPECT_EQ(error.place().value, "x");
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
