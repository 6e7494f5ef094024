// Goal: a text that is given back while it is read is read as any other, and numbers are rounded as
// the standard library rounds them.
// Method: files of several megabytes, with quotes and each kind of line end, against prices that
// are computed by a formula; random decimal numbers against strtod.
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/market/price_cells.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;

constexpr int kDays = 3000;
constexpr int kInstruments = 60;

std::string day_text(int day) {
  return date_text(parse_date("2000-01-01").value() + std::chrono::days{day});
}

int close_of(int day, int instrument) {
  return 1 + (day * 7 + instrument * 13) % 1000;
}

// More than five megabytes; every tenth symbol is quoted, with a line end inside a note.
std::string long_text(const char* line_end) {
  std::string text = std::string("date,symbol,close,note") + line_end;
  for (int day = 0; day < kDays; ++day) {
    for (int i = 0; i < kInstruments; ++i) {
      const std::string symbol = "S" + std::to_string(100 + i);
      text += day_text(day) + "," + (i % 10 == 0 ? "\"" + symbol + "\"" : symbol) + "," +
              std::to_string(close_of(day, i)) + "," +
              (i % 10 == 0 ? std::string("\"two") + line_end + "lines\"" : "one") + line_end;
    }
  }
  return text;
}

void expect_closes(const MarketData& data) {
  ASSERT_EQ(data.day_count(), kDays);
  ASSERT_EQ(data.instrument_count(), kInstruments);
  int wrong = 0;
  for (int day = 0; day < kDays; ++day) {
    for (int i = 0; i < kInstruments; ++i)
      wrong += data.close(day, i) == close_of(day, i) ? 0 : 1;
  }
  EXPECT_EQ(wrong, 0);
}

TEST(LargePrices, OfALongFileAreReadWhole) {
  for (const char* const line_end : {"\n", "\r\n"}) {
    const std::string text = long_text(line_end);
    ASSERT_GT(text.size(), std::size_t{4} << 20U);
    const MarketData data = read_price_text(text, "p.csv");
    expect_closes(data);
    EXPECT_NE(data.groups.at("note")(kDays - 1, 0), data.groups.at("note")(kDays - 1, 1));
    EXPECT_EQ(data.groups.at("note")(0, 0), data.groups.at("note")(kDays - 1, 50));
  }
}

TEST(LargePrices, OfAWideFileAreReadWhole) {
  std::string text =
      "\xef\xbb\xbf"
      "date";
  for (int i = 0; i < kInstruments; ++i)
    text += ",S" + std::to_string(100 + i);
  for (int day = 0; day < kDays; ++day) {
    text += "\n" + day_text(day);
    for (int i = 0; i < kInstruments; ++i)
      text += "," + std::to_string(close_of(day, i)) + ".000000000000";
  }
  ASSERT_GT(text.size(), std::size_t{2} << 20U);
  expect_closes(read_price_text(text, "p.csv"));
}

TEST(LargePrices, TellTheLineOfARowThatIsLongGone) {
  std::string text = long_text("\n");
  text += day_text(0) + ",S101,1,one\n";
  try {
    (void)read_price_text(text, "p.csv");
    FAIL();
  } catch (const PriceFileError& error) {
    // The note of the row before takes two lines.
    EXPECT_THAT(error.what(), HasSubstr("is given a second time for \"S101\" (first in line 4)"));
  }
}

TEST(LargePrices, AreRoundedAsNumbersAre) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 20'000; ++i) {
    std::string text = std::to_string(random() % 100'000'000'000U + 1);
    text.resize(1 + random() % text.size());
    const std::size_t decimals = random() % 12;
    if (decimals > 0) text += "." + std::to_string(random()).substr(0, decimals);
    if (std::strtod(text.c_str(), nullptr) == 0.0) continue;
    EXPECT_EQ(read_price_cell(text, {}), std::strtod(text.c_str(), nullptr)) << text;
  }
  EXPECT_EQ(read_price_cell("5.", {}), 5.0);
  EXPECT_EQ(read_price_cell(".5", {}), 0.5);
  for (const char* const bad : {".", "1.2.3", "1 2", "0x10", "1e"})
    EXPECT_THROW((void)read_price_cell(bad, {}), CellMistake) << bad;
}

}  // namespace
}  // namespace varnholt::embedded::test
