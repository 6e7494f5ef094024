// Goal: further columns of a long price file are features where they hold numbers and groups where
// they hold names, and what is not certain about one is asked for.
// Method: small files with one such column each; the refusals by their texts.
#include "hosts/embedded/market/own_columns.hpp"

#include <array>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/market/panel_digest.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/market/price_table.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Key;

// A file of two days and two instruments, with a column that has these four cells.
MarketData with(const std::string& header, const std::array<std::string, 4>& cells,
                const PriceFormat& format = {}) {
  return read_price_text("date,symbol,close," + header + "\n2020-01-02,A,1," + cells[0] +
                             "\n2020-01-02,B,2," + cells[1] + "\n2020-01-03,A,3," + cells[2] +
                             "\n2020-01-03,B,4," + cells[3] + "\n",
                         "p.csv", format);
}

std::string refusal(const std::string& header, const std::array<std::string, 4>& cells = {},
                    const PriceFormat& format = {}) {
  try {
    (void)with(header, cells, format);
  } catch (const PriceFileError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(OwnColumns, OfNumbersAreFeatures) {
  const MarketData data = with("Short Interest", {"-1.5", "NaN", "", "2e3"});
  ASSERT_THAT(data.features, ElementsAre(Key("short_interest")));
  EXPECT_TRUE(panels_are_near(data.features.at("short_interest"),
                              panel({{-1.5, kNan}, {kNan, 2000}}), 0.0));
  EXPECT_THAT(data.groups, IsEmpty());
  EXPECT_EQ(data.first_days(1).features.at("short_interest").rows(), 1);
}

TEST(OwnColumns, OfNamesAreGroupsThatMayChange) {
  const MarketData data = with("exchange", {"NYSE", "", "Nasdaq", "NYSE"});
  ASSERT_THAT(data.groups, ElementsAre(Key("exchange")));
  EXPECT_THAT(data.features, IsEmpty());
  const GroupPanel& group = data.groups.at("exchange");
  EXPECT_EQ(group(0, 0), group(1, 1));
  EXPECT_NE(group(1, 0), group(0, 0));
  EXPECT_EQ(group(0, 1), kNoGroup);
}

TEST(OwnColumns, AreDecidedByTheFirstCellThatIsNotMissing) {
  EXPECT_TRUE(panels_are_near(with("x", {"", "-", "7", ""}).features.at("x"),
                              panel({{kNan, kNan}, {7, kNan}}), 0.0));
  const GroupPanel names = with("x", {"", "", "a", "7"}).groups.at("x");
  EXPECT_EQ(names(0, 0), kNoGroup);
  EXPECT_NE(names(1, 0), names(1, 1));
  // Nothing is known of a column without a cell.
  const MarketData none = with("x", {"", "", "", ""});
  EXPECT_THAT(none.features, IsEmpty());
  EXPECT_THAT(none.groups, IsEmpty());
  EXPECT_THAT(refusal("x", {"1", "2", "three", "4"}),
              HasSubstr("p.csv: line 4, column 4 \"x\": \"three\" is not a number; write a decimal "
                        "number such as 101.25, or leave the cell empty where the value is not "
                        "known; where the column holds names, say so with --columns "
                        "group:NAME=HEADER"));
  EXPECT_THAT(refusal("x", {"1.234.5", "2", "3", "4"}), HasSubstr("is not a number"));
}

TEST(OwnColumns, AreWhatTheirOwnerSays) {
  PriceFormat format;
  format.columns = {{"group:gics", "GICS Code"}, {"skip:Remark", "Remark"}};
  const MarketData data = read_price_text(
      "date,symbol,close,GICS Code,Remark\n2020-01-02,A,1,10,bought\n2020-01-02,B,1,20,3\n",
      "p.csv", format);
  EXPECT_THAT(data.groups, ElementsAre(Key("gics")));
  EXPECT_NE(data.groups.at("gics")(0, 0), data.groups.at("gics")(0, 1));
  EXPECT_THAT(data.features, IsEmpty());
  // A column of prices may be a feature too, and a field may be left out.
  format.columns = {{"feature:raw", "Close"}, {"skip:Volume", "Volume"}};
  const MarketData twice = read_price_text("Date,Close,Volume\n2020-01-02,7,x\n", "A.csv", format);
  EXPECT_EQ(twice.features.at("raw")(0, 0), 7.0);
  EXPECT_FALSE(twice.volume.has_value());
  EXPECT_THAT(refusal("x", {}, {.columns = {{"feature:y", "z"}}}),
              HasSubstr("the header has no column \"z\" for feature:y"));
}

TEST(OwnColumns, WithoutAGoodNameAreAskedFor) {
  EXPECT_THAT(refusal("Change %"),
              HasSubstr("p.csv: line 1, column 4: \"Change %\" is not a column of prices, and no "
                        "name that a formula can hold; give it one of small letters, digits and "
                        "underscores, with --columns feature:NAME=Change % for numbers, "
                        "group:NAME=Change % for names, or skip=Change % to leave it out"));
  EXPECT_THAT(refusal("1d"), HasSubstr("no name that a formula can hold"));
  for (const char* const slip : {"volum", "Volme", "hihg", "clsoe", "opens", "hgh"}) {
    EXPECT_THAT(refusal(slip), HasSubstr("may be a misspelt \"")) << slip;
  }
  EXPECT_THAT(refusal("volum"), HasSubstr("--columns volume=volum, or feature:volum=volum"));
  EXPECT_EQ(refusal("volum", {}, {.columns = {{"feature:volum", "volum"}}}), "accepted");
  EXPECT_EQ(refusal("short_volume"), "accepted");
  EXPECT_THAT(refusal("x y,x_y"), HasSubstr("is called x_y, as another column is"));
}

TEST(OwnColumns, AreOfOneKindInAllFiles) {
  std::vector<PriceTable> tables(2);
  for (const std::size_t i : {0U, 1U}) {
    tables[i].file = i == 0 ? "a.csv" : "b.csv";
    tables[i].data.dates = {parse_date("2020-01-02").value()};
    tables[i].data.symbols = {i == 0 ? "A" : "B"};
    tables[i].data.close = Panel::Ones(1, 1);
    tables[i].lines = LinePanel::Constant(1, 1, 2);
  }
  tables[0].data.features.emplace("x", Panel::Constant(1, 1, 5.0));
  const MarketData data = merged_tables(tables);
  EXPECT_TRUE(panels_are_near(data.features.at("x"), panel({{5, kNan}}), 0.0));
  tables[1].data.groups.emplace("x", GroupPanel::Zero(1, 1));
  tables[1].group_names["x"] = {"oil"};
  try {
    (void)merged_tables(tables);
    FAIL();
  } catch (const PriceFileError& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("b.csv: the column \"x\" holds names, and numbers in a.csv; say what it "
                          "is with --columns feature:x=HEADER or group:x=HEADER"));
  }
}

TEST(OwnColumns, ArePartOfWhatThePricesAre) {
  const MarketData with_them = with("x", {"1", "2", "3", "4"});
  MarketData without = with_them;
  without.features.clear();
  EXPECT_NE(panel_digest(with_them, 2), panel_digest(without, 2));
  MarketData other = with_them;
  other.features.at("x")(1, 1) = 5.0;
  EXPECT_NE(panel_digest(with_them, 2), panel_digest(other, 2));
  EXPECT_EQ(panel_digest(with_them, 1), panel_digest(other, 1));
}

}  // namespace
}  // namespace varnholt::embedded::test
