// Configurations with a mistake: each is refused with its place, what is wrong, and the remedy.
// Method: one small text a mistake, against the whole message.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/config/host_config.hpp"
#include "tests/hosts/embedded/config/config_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string refusal_of(const std::string& table, const std::string& line) {
  return refusal("[" + table + "]\n" + line + "\n");
}

std::string place(const std::string& key, const std::string& value) {
  const std::size_t column = key.size() - key.find('.') - 1 + 4;
  return "c.toml: line 2, column " + std::to_string(column) + ", " + key + ": " + value;
}

TEST(HostConfigErrors, ANumberOfAnotherType) {
  const std::string remedy = "; write a finite number such as 0.3";
  const auto sharpe = [](const std::string& value) {
    return refusal_of("gates", "sharpe_min = " + value);
  };
  const std::string key = "gates.sharpe_min";
  EXPECT_EQ(sharpe("\"high\""), place(key, "\"high\" is not a number" + remedy));
  EXPECT_EQ(sharpe("true"), place(key, "true is not a number" + remedy));
  EXPECT_EQ(sharpe("2011-01-01"), place(key, "2011-01-01 is not a number" + remedy));
  EXPECT_EQ(sharpe("[1, 2]"), place(key, "[1, 2] is not a number" + remedy));
  EXPECT_EQ(sharpe("{a = 1}"), place(key, "{a = 1} is not a number" + remedy));
  EXPECT_EQ(sharpe("[1,\n2]"), place(key, "[1,... is not a number" + remedy));
  EXPECT_EQ(sharpe("nan"), place(key, "nan is not a finite number" + remedy));
  EXPECT_EQ(sharpe("-inf"), place(key, "-inf is not a finite number" + remedy));
}

struct Range {
  const char* table;
  const char* key;
  std::vector<const char*> good;
  std::vector<const char*> bad;
  const char* remedy;
};

TEST(HostConfigErrors, WhatIsNoDay) {
  for (const char* const value : {"20120229", "2012-02-28T10:00:00", "[2012-02-29]", "true"}) {
    EXPECT_EQ(refusal_of("eras", std::string("holdout_from = ") + value),
              place("eras.holdout_from", value) + " is not a day; write a day as 2026-01-31");
  }
  for (const char* const value : {"'2011-02-29'", "'2012-2-9'", "''"}) {
    EXPECT_EQ(refusal_of("eras", std::string("holdout_from = ") + value),
              place("eras.holdout_from", value) +
                  " is no day of the calendar; write a day as 2026-01-31");
  }
}

TEST(HostConfigErrors, ANumberOutOfRange) {
  const std::vector<Range> ranges = {
      {"gates", "turnover_max", {"0", "2.0"}, {"-0.001", "2.001"}, "from 0 to 2"},
      {"gates", "max_weight_max", {"0.0", "1"}, {"-1", "1.5"}, "from 0 to 1"},
      {"gates", "delta_exposure_max", {"0", "1"}, {"-1", "2"}, "from 0 to 1"},
      {"gates", "abs_weight_sum_mean_min", {"0", "1"}, {"-1", "1.1"}, "from 0 to 1"},
      {"gates", "sharpe_min", {"-1e300", "1e300"}, {}, ""},
      {"gates", "gross_returns_sharpe_min", {"-9", "9"}, {}, ""},
      {"limits", "turnover", {"0", "2"}, {"-1", "3"}, "from 0 to 2"},
      {"limits", "max_weight", {"0", "1"}, {"-1", "1.01"}, "from 0 to 1"},
      {"limits", "delta_exposure", {"0", "1"}, {"-1", "1.01"}, "from 0 to 1"},
      {"pool", "correlation_max", {"0", "1"}, {"-0.1", "1.1"}, "from 0 to 1"},
      {"pool", "novelty_min", {"0", "1"}, {"-0.1", "1.01"}, "from 0 to 1"},
      {"pool", "deflated_sharpe_min", {"0", "0.95"}, {"-0.1", "1.01"}, "from 0 to 1"},
      {"pool", "minimum_days", {"10", "1000000"}, {"9", "1000001", "-60"}, "from 10 to 1000000"},
      {"eras", "train", {"1", "1000"}, {"0", "-3", "1001", "4294967297"}, "from 1 to 1000"},
      {"eras",
       "holdout",
       {"0.001", "0.999"},
       {"0", "1", "0.0", "1.0", "-0.5"},
       "above 0 and below 1"},
      {"eras", "era", {"1", "3"}, {"0", "-1", "1001"}, "from 1 to 1000"},
      {"market", "id", {"1", "7"}, {"0", "-1"}, "of 1 or more"}};
  for (const Range& range : ranges) {
    for (const char* const value : range.good) {
      EXPECT_EQ(refusal_of(range.table, std::string(range.key) + " = " + value), "accepted");
    }
    for (const char* const value : range.bad) {
      EXPECT_THAT(refusal_of(range.table, std::string(range.key) + " = " + value),
                  AllOf(StartsWith(place(std::string(range.table) + "." + range.key,
                                         std::string(value) + " is out of range; write ")),
                        HasSubstr(range.remedy)));
    }
  }
}

TEST(HostConfigErrors, AnIntegerOfAnotherType) {
  EXPECT_EQ(refusal_of("eras", "train = 3.0"),
            place("eras.train", "3.0 is not an integer; write an integer from 1 to 1000"));
  EXPECT_EQ(refusal_of("market", "id = \"1\""),
            place("market.id", "\"1\" is not an integer; write an integer of 1 or more"));
  EXPECT_EQ(
      refusal_of("pool", "minimum_days = true"),
      place("pool.minimum_days", "true is not an integer; write an integer from 10 to 1000000"));
}

TEST(HostConfigErrors, ASwitchOfAnotherType) {
  EXPECT_EQ(refusal_of("pool", "replaces_weaker = false"), "accepted");
  EXPECT_EQ(refusal_of("pool", "replaces_weaker = 1"),
            place("pool.replaces_weaker", "1 is neither true nor false; write true or false"));
}

TEST(HostConfigErrors, APoolNameThatIsNone) {
  const std::string remedy = "; write 1 to 100 printable ASCII characters, such as \"signals\"";
  EXPECT_EQ(refusal_of("pool", "name = 7"), place("pool.name", "7 is not a text" + remedy));
  EXPECT_EQ(refusal_of("pool", "name = ''"), place("pool.name", "'' is empty" + remedy));
  EXPECT_EQ(refusal_of("pool", "name = \"a\\nb\""),
            place("pool.name", "\"a\\nb\" holds another character" + remedy));
  EXPECT_EQ(refusal_of("pool", "name = \"a\\u00e4\""),
            place("pool.name", "\"a\\u00e4\" holds another character" + remedy));
  const std::string longest(100, 'x');
  EXPECT_EQ(refusal_of("pool", "name = '" + longest + "'"), "accepted");
  EXPECT_EQ(refusal_of("pool", "name = '" + longest + "x'"),
            place("pool.name", "'" + std::string(39, 'x') + "... is too long" + remedy));
}

TEST(HostConfigErrors, AKeyOrTableThatIsNotKnown) {
  EXPECT_EQ(refusal_of("gates", "sharp_min = 1"),
            "c.toml: line 2, column 1, gates.sharp_min: [gates] has no such key; the keys of "
            "[gates] are: sharpe_min, gross_returns_sharpe_min, turnover_max, max_weight_max, "
            "delta_exposure_max, abs_weight_sum_mean_min");
  EXPECT_EQ(refusal_of("limits", "sharpe_min = 1"),
            "c.toml: line 2, column 1, limits.sharpe_min: [limits] has no such key; the keys of "
            "[limits] are: turnover, max_weight, delta_exposure");
  const std::string tables =
      "; the tables are [gates], [limits], [pool], [eras], [market] and [vocabulary]";
  EXPECT_EQ(refusal_of("gate", "sharpe_min = 1"),
            "c.toml: line 1, column 2, gate: there is no such table" + tables);
  EXPECT_EQ(refusal("\n  sharpe_min = 1\n"),
            "c.toml: line 2, column 3, sharpe_min: the key stands in no table" + tables);
  EXPECT_EQ(refusal("[gates.more]\n"),
            "c.toml: line 1, column 8, gates.more: [gates] has no such key; the keys of [gates] "
            "are: sharpe_min, gross_returns_sharpe_min, turnover_max, max_weight_max, "
            "delta_exposure_max, abs_weight_sum_mean_min");
  EXPECT_THAT(refusal("[eras]\n\"\\u0007 x\" = 1"),
              StartsWith("c.toml: line 2, column 1, eras.\"\\x07 x\": [eras] has no such key"));
}

TEST(HostConfigErrors, ATableThatIsNone) {
  EXPECT_EQ(refusal("gates = 3\n"),
            "c.toml: line 1, column 9, gates: 3 is not a table; write one table [gates] with its "
            "keys below it");
  EXPECT_THAT(refusal("[[eras]]\ntrain = 3\n"),
              HasSubstr(" is not a table; write one table [eras]"));
}

TEST(HostConfigErrors, KeysAreNotNestedWithoutEnd) {
  std::string key = "a";
  for (int part = 0; part < 150'000; ++part)
    key += ".a";
  EXPECT_THAT(refusal("# first\n" + key + " = 1\n"), StartsWith("c.toml: line 2, column 1"));
  EXPECT_THAT(refusal("[" + key + "]\n"), HasSubstr("more than 1000 dots in one line"));
}

TEST(HostConfigErrors, TheFirstMistakeOfTheTextIsNamed) {
  EXPECT_THAT(refusal("[pool]\nnovelty_min = -1\n[gates]\nturnover_max = 9\nabc = 1\n"),
              StartsWith("c.toml: line 2, column 15, pool.novelty_min: -1 "));
  EXPECT_THAT(refusal("[gates]\nturnover_max = 9\nabc = 1\n"),
              StartsWith("c.toml: line 2, column 16, gates.turnover_max: 9 "));
}

TEST(HostConfigErrors, AnEraBeyondTheTrainEras) {
  EXPECT_EQ(refusal("[eras]\nera = 4\n"),
            "c.toml: line 2, column 7, eras.era: 4 is beyond the 3 train eras; write an integer "
            "from 1 to 3, raise eras.train, or leave the key out for the last train era");
  EXPECT_EQ(refusal("[eras]\nera = 4\ntrain = 4\n"), "accepted");
}

TEST(HostConfigErrors, ATextThatIsNotToml) {
  const std::string remedy = "; write tables and keys as examples/genetic-search.toml has them";
  EXPECT_EQ(refusal("[gates]\nsharpe_min = abc\n"),
            "c.toml: line 2, column 14: \"sharpe_min = abc\" is not TOML: Error while parsing "
            "value: could not determine value type" +
                remedy);
  EXPECT_THAT(refusal("[gates]\nsharpe_min = 1\nsharpe_min = 2\n"),
              AllOf(StartsWith("c.toml: line 3, column "), HasSubstr("cannot redefine"),
                    HasSubstr(remedy)));
  EXPECT_THAT(refusal("[gates]\nx = \"\xff\"\n"), StartsWith("c.toml: line 2, column "));
  EXPECT_THAT(refusal("[gates]\nsharpe_min = 1e999\n"), StartsWith("c.toml: line 2, column "));
  EXPECT_THAT(refusal("[market]\nid = 9223372036854775808\n"),
              StartsWith("c.toml: line 2, column "));
  EXPECT_THAT(refusal("[gates]\nsharpe_min = " + std::string(10'000, '[')),
              HasSubstr("is not TOML"));
  EXPECT_THAT(refusal(std::string_view("\0", 1)), HasSubstr("is not TOML"));
}

// The parser has an assertion where it should have a parse error.
TEST(HostConfigErrors, ATextThatBreaksAnAssertionOfTheParser) {
  EXPECT_EQ(
      refusal("[gates]\n# \xc3\xa4\n [=]\nsharpe_min = 1\n"),
      "c.toml: line 3, column 3: \" [=]\" is not TOML: unexpected character; write tables and "
      "keys as examples/genetic-search.toml has them");
  EXPECT_THAT(refusal("[="), StartsWith("c.toml: line 1, column 2: \"[=\" is not TOML"));
}

TEST(HostConfigErrors, ACharacterBeyondAsciiInNoComment) {
  const std::string rest = " has a character beyond ASCII outside of a comment; write it in ASCII";
  EXPECT_EQ(refusal("[gates] # ä\nä = 1\n"), "c.toml: line 2, column 1: \"ä = 1\"" + rest);
  EXPECT_EQ(refusal("[pool]\nname = 'aä'\n"), "c.toml: line 2, column 10: \"name = 'aä'\"" + rest);
  EXPECT_EQ(refusal("[pool]\n# \xff, \xef\xba\xb6\nname = 'a'\n"), "accepted");
}

TEST(HostConfigErrors, AByteOrderMarkIsNoMistake) {
  EXPECT_EQ(refusal("\xef\xbb\xbf"), "accepted");
  EXPECT_THAT(refusal("\xef\xbb\xbfgates = 3"), StartsWith("c.toml: line 1, column 9, gates: 3 "));
}

TEST(HostConfigErrors, CarryTheirPlace) {
  try {
    static_cast<void>(parse_host_config("[gates]\n turnover_max = 3\n", "c.toml"));
    ADD_FAILURE() << "accepted";
  } catch (const HostConfigError& error) {
    EXPECT_EQ(error.place().file, "c.toml");
    EXPECT_EQ(error.place().line, 2U);
    EXPECT_EQ(error.place().column, 17U);
    EXPECT_EQ(error.place().key, "gates.turnover_max");
    EXPECT_EQ(error.place().value, "3");
  }
}

class ConfigFile : public ::testing::Test {
 protected:
  ConfigFile() : path_(std::filesystem::path(::testing::TempDir()) / "varnholt_config_test.toml") {
    std::filesystem::remove(path_);
  }
  ~ConfigFile() override { std::filesystem::remove(path_); }

  void write(const std::string& text) const { std::ofstream(path_, std::ios::binary) << text; }
  [[nodiscard]] std::string refusal_of_file(const std::filesystem::path& path) const {
    try {
      static_cast<void>(read_host_config(path));
    } catch (const HostConfigError& error) {
      return error.what();
    }
    return "accepted";
  }

  std::filesystem::path path_;
};

TEST_F(ConfigFile, IsReadAndNamedInErrors) {
  write("[gates]\nsharpe_min = 0.5\n");
  EXPECT_EQ(read_host_config(path_).gates.min_sharpe, 0.5);
  write("[gates]\nsharpe_min = 'x'\n");
  EXPECT_THAT(refusal_of_file(path_), StartsWith(path_.string() + ": line 2, column 14, "));
}

TEST_F(ConfigFile, ThatIsNotThere) {
  EXPECT_EQ(refusal_of_file(path_),
            path_.string() +
                ": cannot be opened: No such file or directory; name a TOML file that may be read");
}

TEST_F(ConfigFile, ThatIsADirectory) {
  EXPECT_EQ(refusal_of_file(::testing::TempDir()),
            ::testing::TempDir() + ": is a folder; name a TOML file that may be read");
}

TEST_F(ConfigFile, ThatIsTooLarge) {
  write(std::string(kLargestConfigBytes, '\n'));
  EXPECT_EQ(refusal_of_file(path_), "accepted");
  write(std::string(kLargestConfigBytes + 1, '\n'));
  EXPECT_EQ(refusal_of_file(path_),
            path_.string() +
                ": is larger than 1048576 bytes; name a configuration; one is a page or two");
}

}  // namespace
}  // namespace varnholt::embedded::test
