// Goal: price files of the shapes that people have hold the same prices, and what can be read in
// two ways is asked for.
// Method: one small market written in many ways, each read and compared; the refusals by their
// texts.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include "hosts/embedded/market/price_file.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Shape {
  const char* name;
  std::string text;
  PriceFormat format = {};
};

void PrintTo(const Shape& shape, std::ostream* out) {
  *out << shape.name;
}

std::string utf16(const std::string& text, bool is_big) {
  std::string bytes = is_big ? "\xfe\xff" : "\xff\xfe";
  for (const char c : text) {
    if (is_big) bytes += '\0';
    bytes += c;
    if (!is_big) bytes += '\0';
  }
  return bytes;
}

std::string gzip(const std::string& text) {
  z_stream stream = {};
  deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
  std::string packed(deflateBound(&stream, text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

// Two days of AAA and BBB, of which BBB is not known on the first.
const std::string kLong =
    "date,symbol,close\n2020-01-02,AAA,1.5\n2020-01-03,AAA,2\n2020-01-03,BBB,30.25\n";

std::vector<Shape> shapes_of_two() {
  std::vector<Shape> shapes = {
      {"the plain long form", kLong},
      {"upper case and usual names",
       "DATE,Ticker,Last\n2020-01-02,AAA,1.5\n2020-01-03,AAA,2\n"
       "2020-01-03,BBB,30.25\n"},
      {"brackets, and columns beside prices",
       "<TICKER>,<PER>,<DATE>,<TIME>,<CLOSE>,<OPENINT>\nAAA,D,20200102,000000,1.5,0\n"
       "AAA,D,20200103,000000,2,0\nBBB,D,20200103,000000,30.25,0\n"},
      {"columns of other names",
       "When,What,Paid\n2020-01-02,AAA,1.5\n2020-01-03,AAA,2\n2020-01-03,BBB,30.25\n",
       {.columns = {{"date", "When"}, {"symbol", "What"}, {"close", "Paid"}}}},
      {"semicolons and decimal commas",
       "date;symbol;close\n2020-01-02;AAA;1,5\n2020-01-03;AAA;2\n2020-01-03;BBB;30,25\n"},
      {"tabs",
       "date\tsymbol\tclose\n2020-01-02\tAAA\t1.5\n2020-01-03\tAAA\t2\n"
       "2020-01-03\tBBB\t30.25\n"},
      {"quoted cells with decimal commas",
       "\"date\",\"symbol\",\"close\"\n\"2020-01-02\",\"AAA\",\"1,5\"\n\"2020-01-03\",\"AAA\","
       "\"2\"\n\"2020-01-03\",\"BBB\",\"30,25\"\n"},
      {"a byte order mark", "\xef\xbb\xbf" + kLong},
      {"UTF-16, the low byte first", utf16(kLong, false)},
      {"UTF-16, the high byte first", utf16(kLong, true)},
      {"gzip", gzip(kLong)},
      {"gzip in two members", gzip(kLong.substr(0, 40)) + gzip(kLong.substr(40))},
      {"gzip of UTF-16", gzip(utf16(kLong, false))},
      {"the wide form", "date,AAA,BBB\n2020-01-02,1.5,\n2020-01-03,2,30.25\n"},
      {"a wide frame whose index has no name", ",AAA,BBB\n2020-01-02,1.5,\n2020-01-03,2,30.25\n"},
      {"a wide frame with tabs and no name",
       "\tAAA\tBBB\n2020-01-02\t1.5\t\n2020-01-03\t2\t30.25\n"},
      {"a wide frame read in and out", "Unnamed: 0,AAA,BBB\n2020-01-02,1.5,\n2020-01-03,2,30.25\n"},
      {"fields over symbols",
       "Price,Close,Close\nTicker,AAA,BBB\nDate,,\n2020-01-02,1.5,\n"
       "2020-01-03,2,30.25\n"},
      {"symbols over fields", ",AAA,BBB\n,Close,Close\n2020-01-02,1.5,\n2020-01-03,2,30.25\n"},
  };
  for (const char* missing : {"NaN", "nan", "NA", "N/A", "#N/A", "null", "NULL", "None", "-"}) {
    shapes.push_back({missing, std::string("date,AAA,BBB\n2020-01-02,1.5,") + missing +
                                   "\n2020-01-03,2,30.25\n"});
  }
  const auto dated = [&shapes](const char* first, const char* second, const char* form = "") {
    shapes.push_back({first,
                      std::string("date,AAA,BBB\n") + first + ",1.5,\n" + second + ",2,30.25\n",
                      {.date_format = form}});
  };
  dated("20200102", "20200103");
  dated("2020/01/02", "2020/01/03");
  dated("2020.01.02", "2020.01.03");
  dated("2020-01-02 00:00:00", "2020-01-03 00:00:00");
  dated("2020-01-02T00:00:00.000Z", "2020-01-03T00:00:00.000Z");
  dated("2020-01-02 00:00:00-05:00", "2020-01-03 00:00:00-05:00");
  dated("02/01/2020", "03/01/2020", "dd/mm/yyyy");
  dated("1/2/2020", "1/3/2020", "mm/dd/yyyy");
  dated("2.1.2020", "3.1.2020", "dd.mm.yyyy");
  dated("02-Jan-2020", "03-JAN-2020", "dd-mon-yyyy");
  dated("02012020", "03012020", "ddmmyyyy");
  return shapes;
}

class ShapeOfTwo : public ::testing::TestWithParam<Shape> {};

TEST_P(ShapeOfTwo, HoldsTheSamePrices) {
  const MarketData data = read_price_text(GetParam().text, "p.csv", GetParam().format);
  EXPECT_THAT(data.symbols, ElementsAre("AAA", "BBB"));
  ASSERT_EQ(data.dates.size(), 2U);
  EXPECT_EQ(date_text(data.dates[0]), "2020-01-02");
  EXPECT_EQ(date_text(data.dates[1]), "2020-01-03");
  EXPECT_TRUE(panels_are_near(data.close, panel({{1.5, kNan}, {2, 30.25}}), 0.0));
  EXPECT_FALSE(data.open || data.high || data.low || data.volume);
}

INSTANTIATE_TEST_SUITE_P(All, ShapeOfTwo, ::testing::ValuesIn(shapes_of_two()));

TEST(PriceShapes, AFileOfOneInstrumentIsNamedByItself) {
  const std::string text = "Date,Open,High,Low,Close,Volume\n2020-01-02,1,3,1,2,100\n";
  const MarketData data = read_price_text(text, "/data/MSFT.csv.gz");
  EXPECT_THAT(data.symbols, ElementsAre("MSFT"));
  EXPECT_EQ(data.open.value()(0, 0), 1.0);
  EXPECT_EQ(data.volume.value()(0, 0), 100.0);
  EXPECT_THAT(read_price_text(text, "x.csv", {.symbol = "ACME"}).symbols, ElementsAre("ACME"));
}

TEST(PriceShapes, AnAdjustedCloseScalesItsDay) {
  const std::string text =
      "Date,Open,High,Low,Close,Adj Close,Volume,Dividends,Stock Splits\n"
      "2020-01-02,10,12,8,11,5.5,100,0,0\n";
  const MarketData data = read_price_text(text, "A.csv", {.columns = {{"close", "Adj Close"}}});
  EXPECT_EQ(data.close(0, 0), 5.5);
  EXPECT_EQ(data.open.value()(0, 0), 5.0);
  EXPECT_EQ(data.high.value()(0, 0), 6.0);
  EXPECT_EQ(data.low.value()(0, 0), 4.0);
  EXPECT_EQ(data.volume.value()(0, 0), 200.0);
  const MarketData raw = read_price_text(text, "A.csv", {.columns = {{"close", "Close"}}});
  EXPECT_EQ(raw.close(0, 0), 11.0);
  EXPECT_EQ(raw.open.value()(0, 0), 10.0);
  EXPECT_EQ(read_price_text("Date,Adj Close\n2020-01-02,5.5\n", "A.csv").close(0, 0), 5.5);
}

TEST(PriceShapes, AFrameOfTwoHeaderRowsHasAllFields) {
  const MarketData data = read_price_text(
      "Price,Close,Open,Volume,Close\nTicker,AAA,AAA,AAA,BBB\nDate,,,,\n2020-01-02,2,1,7,3\n",
      "p.csv");
  EXPECT_THAT(data.symbols, ElementsAre("AAA", "BBB"));
  EXPECT_TRUE(panels_are_near(data.close, panel({{2, 3}}), 0.0));
  EXPECT_TRUE(panels_are_near(data.open.value(), panel({{1, kNan}}), 0.0));
  EXPECT_TRUE(panels_are_near(data.volume.value(), panel({{7, kNan}}), 0.0));
}

std::string refusal(const std::string& text, const PriceFormat& format = {}) {
  try {
    (void)read_price_text(text, "p.csv", format);
  } catch (const PriceFileError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(PriceShapes, WhatCanBeReadInTwoWaysIsAskedFor) {
  EXPECT_THAT(refusal("date;A\n2020-01-02;1,250\n"),
              HasSubstr("line 2, column 2: \"1,250\" may be thousands or a decimal comma; say what "
                        "the commas in numbers are with --decimal comma"));
  EXPECT_EQ(refusal("date;A\n2020-01-02;1,250\n", {.decimal = ','}), "accepted");
  EXPECT_EQ(refusal("date;A\n2020-01-02;1,250\n2020-01-03;1,3\n"), "accepted");
  EXPECT_THAT(refusal("date;A\n2020-01-02;1,25\n2020-01-03;1.25\n"),
              HasSubstr("line 3, column 2 \"A\": \"1.25\" has a decimal point where the file has "
                        "decimal commas"));
  EXPECT_THAT(refusal("date,A\n1.2.2003,1\n"), HasSubstr("is a day whose order is not certain"));
  EXPECT_THAT(refusal("date,A\n2003-01-02,1\n", {.date_format = "dd/mm/yyyy"}),
              HasSubstr("is not a day of the form that --date-format gives"));
  EXPECT_THAT(refusal("date,A\n2003-01-02,1\n", {.columns = {{"date", "Day"}}}),
              HasSubstr("line 1: the header has no column \"Day\" for date"));
}

TEST(PriceShapes, WhatIsNoTextIsCalledWhatItIs) {
  EXPECT_THAT(refusal("PK\x03\x04 and so on"), HasSubstr("p.csv: is a ZIP archive or a workbook"));
  EXPECT_THAT(refusal("PAR1...."), HasSubstr("is a Parquet file; save the prices as CSV"));
  EXPECT_THAT(refusal("<!DOCTYPE html><html>"), HasSubstr("is a page of the web"));
  EXPECT_THAT(refusal(std::string("date,A\n\0\0\0", 10)), HasSubstr("is a binary file, no text"));
  const std::string packed = gzip(kLong);
  EXPECT_THAT(refusal(packed.substr(0, packed.size() - 12)),
              HasSubstr("is packed, and ends too early; get the file again"));
  std::string damaged = packed;
  damaged[packed.size() / 2] = static_cast<char>(~damaged[packed.size() / 2]);
  EXPECT_THAT(refusal(damaged), HasSubstr("is packed, and"));
  EXPECT_THAT(refusal(std::string("\xff\xfe\x00\xd8", 4)),
              HasSubstr("is UTF-16 with half a character in it"));
  EXPECT_THAT(refusal("\xff\xfe\x41"), HasSubstr("is UTF-16, and ends within a character"));
}

TEST(DateFormat, RefusesAPatternThatIsNoDay) {
  EXPECT_NO_THROW(DateFormat("yyyy-mm-dd"));
  for (const char* pattern : {"", "yyyy-mm", "dd/mm/yy", "yyyy-mm-mon-dd", "hh:mm"})
    EXPECT_THROW(DateFormat{pattern}, std::invalid_argument) << pattern;
  EXPECT_FALSE(DateFormat("dd/mm/yyyy").parse("31/02/2020"));
  EXPECT_FALSE(DateFormat("dd/mm/yyyy").parse("01/02/2020 "));
  EXPECT_FALSE(DateFormat("ddmmyyyy").parse("1022020"));
}

}  // namespace
}  // namespace varnholt::embedded::test
