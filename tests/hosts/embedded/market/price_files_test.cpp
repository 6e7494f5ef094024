// Goal: prices may stand in several files or a folder: what is read does not depend on the order in
// which they are named, nothing stands in two of them unnoticed, and their mistakes are told
// together.
// Method: small files in a folder of the test's own, named in several ways; the refusals by their
// texts.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/market/panel_digest.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

class PriceFiles : public FolderTest {
 protected:
  void put(const char* name, const std::string& text) const {
    std::filesystem::create_directories(in_folder(name).parent_path());
    std::ofstream(in_folder(name), std::ios::binary) << text;
  }

  [[nodiscard]] PriceSource named(const std::vector<const char*>& names) const {
    PriceSource source;
    for (const char* const name : names)
      source.add(in_folder(name));
    return source;
  }

  [[nodiscard]] static std::string refusal(const PriceSource& source) {
    try {
      (void)read_price_file(source);
    } catch (const PriceFileError& error) {
      return error.what();
    }
    return "accepted";
  }
};

TEST_F(PriceFiles, AreOfASymbolEachByTheirNames) {
  put("MSFT.csv", "date,close,volume\n2020-01-03,20,7\n2020-01-02,19,6\n");
  put("AAPL.us.txt", "Date;Close\n2020-01-01;1,5\n2020-01-03;1,75\n");
  const MarketData data = read_price_file(named({"MSFT.csv", "AAPL.us.txt"}));
  EXPECT_THAT(data.symbols, ElementsAre("AAPL", "MSFT"));
  EXPECT_THAT(data.dates, SizeIs(3));
  EXPECT_TRUE(panels_are_near(data.close, panel({{1.5, kNan}, {kNan, 19}, {1.75, 20}}), 0.0));
  // What one of them does not have is not known of its instruments.
  EXPECT_TRUE(
      panels_are_near(data.volume.value(), panel({{kNan, kNan}, {kNan, 6}, {kNan, 7}}), 0.0));
}

TEST_F(PriceFiles, MayBeOfSeveralShapesAndOfAYearEach) {
  put("2020.csv", "date,symbol,close\n2020-01-02,AAA,1\n2020-01-02,BBB,2\n");
  put("2021.csv", "date,AAA,CCC\n2021-01-04,3,4\n");
  const MarketData data = read_price_file(named({"2020.csv", "2021.csv"}));
  EXPECT_THAT(data.symbols, ElementsAre("AAA", "BBB", "CCC"));
  EXPECT_TRUE(panels_are_near(data.close, panel({{1, 2, kNan}, {3, kNan, 4}}), 0.0));
}

TEST_F(PriceFiles, AreTheSamePricesInAnyOrder) {
  put("b.csv", "date,symbol,close,sector\n2020-01-02,B,2,tech\n2020-01-03,B,3,oil\n");
  put("a.csv", "date,symbol,close,sector\n2020-01-02,A,1,oil\n2020-01-03,A,1,tech\n");
  put("c.csv", "date,symbol,close,sector\n2020-01-03,C,1,\n");
  const PricesRead one = read_prices(named({"a.csv", "b.csv", "c.csv"}));
  const PricesRead other = read_prices(named({"c.csv", "b.csv", "a.csv", "b.csv"}));
  EXPECT_EQ(one.digest, other.digest);
  EXPECT_EQ(panel_digest(one.data, 2), panel_digest(other.data, 2));
  const PricesRead folder = read_prices(in_folder(""));
  EXPECT_EQ(one.digest, folder.digest);
  EXPECT_EQ(panel_digest(one.data, 2), panel_digest(folder.data, 2));
  // So do those of one file that says the same.
  put("all/all.csv",
      "date,symbol,close,sector\n2020-01-03,B,3,oil\n2020-01-03,A,1,tech\n"
      "2020-01-02,B,2,tech\n2020-01-02,A,1,oil\n2020-01-03,C,1,\n");
  EXPECT_EQ(panel_digest(one.data, 2), panel_digest(read_price_file(in_folder("all/all.csv")), 2));
}

TEST_F(PriceFiles, GroupsHaveOneNumberAName) {
  put("a.csv", "date,symbol,close,sector\n2020-01-02,A,1,oil\n2020-01-03,A,1,tech\n");
  put("b.csv", "date,symbol,close,sector\n2020-01-02,B,2,tech\n2020-01-03,B,3,oil\n");
  const GroupPanel sector = read_price_file(in_folder("")).groups.at("sector");
  EXPECT_EQ(sector(0, 0), sector(1, 1));
  EXPECT_EQ(sector(1, 0), sector(0, 1));
  EXPECT_NE(sector(0, 0), sector(0, 1));
}

TEST_F(PriceFiles, TheDigestIsThatOfTheBytesAndTheNames) {
  put("a.csv", "date,close\n2020-01-02,1\n");
  EXPECT_EQ(read_prices(in_folder("a.csv")).digest, sha256_hex("date,close\n2020-01-02,1\n"));
  put("b.csv", "date,close\n2020-01-02,2\n");
  const std::string digest = read_prices(in_folder("")).digest;
  EXPECT_EQ(read_prices(in_folder(""), {}, {}, digest).digest, digest);
  std::filesystem::rename(in_folder("b.csv"), in_folder("c.csv"));
  EXPECT_NE(read_prices(in_folder("")).digest, digest);
  put("c.csv", "nonsense");
  EXPECT_THROW((void)read_prices(in_folder(""), {}, {}, digest), OtherPrices);
}

TEST_F(PriceFiles, OfAFolderAreThoseThatAreNamedSo) {
  put("f/A.CSV", "date,close\n2020-01-02,1\n");
  put("f/B.tsv", "date\tclose\n2020-01-02\t2\n");
  put("f/.hidden.csv", "nonsense");
  put("f/README.md", "nonsense");
  put("f/below/C.csv", "nonsense");
  EXPECT_THAT(read_price_file(in_folder("f")).symbols, ElementsAre("A", "B"));
  std::filesystem::create_directories(in_folder("empty"));
  EXPECT_THAT(refusal(in_folder("empty")),
              AllOf(HasSubstr("empty: is a folder without price files; put files into it"),
                    HasSubstr(".csv")));
}

TEST_F(PriceFiles, ADayOfASymbolInTwoOfThemIsRefusedWithBothPlaces) {
  put("a.csv", "date,symbol,close\n2020-01-02,A,1\n\n2020-01-03,A,1\n");
  put("b.csv", "date,symbol,close\n2020-01-03,B,2\n2020-01-03,A,1\n");
  const std::string a = in_folder("a.csv").string();
  const std::string b = in_folder("b.csv").string();
  const std::string text = b + ": line 3: 2020-01-03 of \"A\" is given a second time (first in " +
                           a + ", line 4); keep it in one of the two files";
  EXPECT_EQ(refusal(named({"a.csv", "b.csv"})), text);
  EXPECT_EQ(refusal(named({"b.csv", "a.csv"})), text);
  put("w.csv", "date,A\n2020-01-01,1\n2020-01-03,\n");
  EXPECT_THAT(refusal(named({"a.csv", "w.csv"})),
              HasSubstr("w.csv: line 3: 2020-01-03 of \"A\" is given a second time (first in "));
}

TEST_F(PriceFiles, TellTheMistakesOfAllAtOnce) {
  put("a.csv", "date,close\n2020-01-02,x\n2020-01-03,1\n");
  put("b.csv", "date,open,high\n2020-01-02,1,1\n");
  put("c.csv", "date,close\n2020-01-02,1\n2020-01-33,1\n");
  const std::string text = refusal(named({"c.csv", "a.csv", "none.csv", "b.csv"}));
  std::vector<std::size_t> places;
  for (const char* const part :
       {"a.csv: line 2, column 2 \"close\": \"x\" is not a number", "\n",
        "b.csv: line 1: the header has no column", "\n", "c.csv: line 3, column 1 \"date\": ", "\n",
        "none.csv: cannot be opened: "}) {
    places.push_back(text.find(part, places.empty() ? 0 : places.back()));
    EXPECT_NE(places.back(), std::string::npos) << part << " in " << text;
  }
}

TEST_F(PriceFiles, TellTwentyMistakesAtMost) {
  std::string bad = "date,close\n";
  for (int day = 10; day < 25; ++day)
    bad += "2020-01-" + std::to_string(day) + ",x\n";
  put("a.csv", bad);
  put("b.csv", bad);
  const std::string text = refusal(in_folder(""));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20);
  EXPECT_THAT(text, HasSubstr("b.csv: read no further after 20 mistakes; there may be more"));
}

TEST_F(PriceFiles, AreNamedInMessages) {
  EXPECT_EQ(PriceSource("a.csv").text(), "a.csv");
  PriceSource source("a.csv");
  source.add("b.csv");
  source.add("c.csv");
  EXPECT_EQ(source.text(), "a.csv and 2 more");
  EXPECT_THAT(refusal(PriceSource()), HasSubstr("no price file is named"));
}

}  // namespace
}  // namespace varnholt::embedded::test
