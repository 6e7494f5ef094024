// The configuration: what is left out has its default, what is written is taken, and the example
// file and the documentation say the defaults.
// Method: texts written out; the example file and the documentation of the repository; texts broken
// at random, which are either taken or refused as they should be.
#include "hosts/embedded/config/host_config.hpp"

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/hosts/embedded/config/config_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;

const std::filesystem::path kRoot = VARNHOLT_SOURCE_DIR;

std::string file_text(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void expect_equal(const HostConfig& actual, const HostConfig& expected) {
  EXPECT_EQ(actual.gates.min_sharpe, expected.gates.min_sharpe);
  EXPECT_EQ(actual.gates.min_gross_returns_sharpe, expected.gates.min_gross_returns_sharpe);
  EXPECT_EQ(actual.gates.max_turnover, expected.gates.max_turnover);
  EXPECT_EQ(actual.gates.max_max_weight, expected.gates.max_max_weight);
  EXPECT_EQ(actual.gates.max_delta_exposure, expected.gates.max_delta_exposure);
  EXPECT_EQ(actual.gates.min_abs_weight_sum_mean, expected.gates.min_abs_weight_sum_mean);
  EXPECT_EQ(actual.limits.turnover, expected.limits.turnover);
  EXPECT_EQ(actual.limits.max_weight, expected.limits.max_weight);
  EXPECT_EQ(actual.limits.delta_exposure, expected.limits.delta_exposure);
  EXPECT_EQ(actual.pool.name, expected.pool.name);
  EXPECT_EQ(actual.pool.correlation_max, expected.pool.correlation_max);
  EXPECT_EQ(actual.pool.novelty_min, expected.pool.novelty_min);
  EXPECT_EQ(actual.pool.deflated_sharpe_min, expected.pool.deflated_sharpe_min);
  EXPECT_EQ(actual.pool.replaces_weaker, expected.pool.replaces_weaker);
  EXPECT_EQ(actual.pool.minimum_days, expected.pool.minimum_days);
  EXPECT_EQ(actual.eras.train, expected.eras.train);
  EXPECT_EQ(actual.eras.holdout, expected.eras.holdout);
  EXPECT_EQ(actual.eras.holdout_from, expected.eras.holdout_from);
  EXPECT_EQ(actual.eras.era, expected.eras.era);
  EXPECT_EQ(actual.market_id, expected.market_id);
}

TEST(HostConfig, AnEmptyTextIsTheDefaults) {
  expect_equal(parse_host_config("", "c.toml"), HostConfig());
  expect_equal(parse_host_config("# nothing\n[gates]\n[pool]\n", "c.toml"), HostConfig());
}

TEST(HostConfig, TheDefaultsAreWhatIsDocumented) {
  const HostConfig config;
  EXPECT_FALSE(config.gates.min_sharpe.has_value()) << "made of the days";
  EXPECT_EQ(config.gates.min_gross_returns_sharpe, 0.3);
  EXPECT_EQ(config.gates.max_turnover, 1.5);
  EXPECT_EQ(config.gates.max_max_weight, 1.0);
  EXPECT_EQ(config.gates.max_delta_exposure, 1.0);
  EXPECT_EQ(config.gates.min_abs_weight_sum_mean, 0.5);
  EXPECT_EQ(config.limits.turnover, 2.0);
  EXPECT_EQ(config.limits.max_weight, 1.0);
  EXPECT_EQ(config.limits.delta_exposure, 1.0);
  EXPECT_EQ(config.pool.name, "signals");
  EXPECT_EQ(config.pool.correlation_max, 0.7);
  EXPECT_EQ(config.pool.novelty_min, 0.2);
  EXPECT_EQ(config.pool.minimum_days, 60);
  EXPECT_EQ(config.eras.train, 3);
  EXPECT_EQ(config.eras.holdout, 0.25);
  EXPECT_FALSE(config.eras.era.has_value());
  EXPECT_EQ(config.market_id, 1);
}

TEST(HostConfig, ADayMayBeATextToo) {
  EXPECT_EQ(parse_host_config("[eras]\nholdout_from = '2012-02-29'\n", "x").eras.holdout_from,
            parse_date("2012-02-29"));
}

TEST(HostConfig, TheExampleIsTheDefaults) {
  expect_equal(read_host_config(kRoot / "examples/genetic-search.toml"), HostConfig());
}

// The keys that the example writes, one key a line; the era, the first day of the hold-out and the
// least Sharpe ratio, whose defaults are no values, are shown only.
std::vector<std::pair<std::string, std::string>> example_lines() {
  std::vector<std::pair<std::string, std::string>> lines;
  std::istringstream text(file_text(kRoot / "examples/genetic-search.toml"));
  std::string table;
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("[")) table = line;
    if (line.starts_with("# era = ") || line.starts_with("# holdout_from = ") ||
        line.starts_with("# sharpe_min = "))
      line = line.substr(2);
    if (line.empty() || line.starts_with("#") || line.starts_with("[")) continue;
    lines.emplace_back(table, line.substr(0, line.find(' ')));
  }
  return lines;
}

TEST(HostConfig, TheExampleHasEveryKeyAndTheDocumentationTellsIt) {
  const std::string documentation = file_text(kRoot / "docs/configuration.md");
  const auto lines = example_lines();
  EXPECT_EQ(lines.size(), 25U);
  for (const auto& [table, key] : lines) {
    SCOPED_TRACE(table + " " + key);
    EXPECT_THAT(documentation, HasSubstr("## `" + table + "`"));
    EXPECT_THAT(documentation, HasSubstr("| `" + key + "` |"));
    // That the list is whole: the remedy of a wrong key names all there are.
    EXPECT_THAT(refusal(table + "\nx = 1"), HasSubstr(key));
  }
  std::size_t named = 0;
  for (const char* const table : {"[gates]", "[limits]", "[pool]", "[eras]", "[market]"}) {
    const std::string text = refusal(std::string(table) + "\nx = 1");
    named += 1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), ',')) - 2;
  }
  EXPECT_EQ(named + 5, lines.size());  // Five of [vocabulary], whose remedy names tables too.
}

TEST(HostConfig, TakesWhatIsWritten) {
  const HostConfig config = parse_host_config(R"(
# Äpfel
pool.name = "first hill"
[gates]
sharpe_min = -1
gross_returns_sharpe_min = 1e2
turnover_max = 0.25
max_weight_max = 0.125
delta_exposure_max = 0
abs_weight_sum_mean_min = 1
[limits]
turnover = 1.5
max_weight = 0.5
delta_exposure = 0.75
[eras]
train = 5
holdout = 0.5
holdout_from = 2012-02-29
era = 2
[market]
id = 9223372036854775807
)",
                                              "c.toml");
  expect_equal(
      config,
      HostConfig{
          .gates = {.min_abs_weight_sum_mean = 1.0,
                    .max_turnover = 0.25,
                    .max_max_weight = 0.125,
                    .max_delta_exposure = 0.0,
                    .min_gross_returns_sharpe = 100.0,
                    .min_sharpe = -1.0},
          .limits = {1.5, 0.5, 0.75},
          .pool = {.name = "first hill"},
          .eras = {.train = 5, .holdout = 0.5, .era = 2, .holdout_from = parse_date("2012-02-29")},
          .market_id = 9223372036854775807});
  const HostConfig pool = parse_host_config(
      "[pool]\ncorrelation_max = 0.5\nnovelty_min = 0.75\nminimum_days = 250\n", "c.toml");
  EXPECT_EQ(pool.pool.correlation_max, 0.5);
  EXPECT_EQ(pool.pool.novelty_min, 0.75);
  EXPECT_EQ(pool.pool.minimum_days, 250);
}

// Bytes of the example are changed, dropped, doubled; what is not taken is refused with the file's
// name and a remedy, and nothing else is thrown.
TEST(HostConfig, BrokenTextsAreTakenOrRefusedProperly) {
  const std::string example = file_text(kRoot / "examples/genetic-search.toml");
  constexpr std::string_view kSpice = "[]=\"'#.,{}\n\r\t\0\x7f\xff\xc3-+e0919n_";
  int taken = 0, refused = 0;
  for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    std::string text = example;
    for (std::uint64_t edit = engine() % 6; edit > 0; --edit) {
      const std::size_t at = engine() % text.size();
      switch (engine() % 3) {
        case 0:
          text[at] = kSpice[engine() % kSpice.size()];
          break;
        case 1:
          text.insert(at, 1, kSpice[engine() % kSpice.size()]);
          break;
        default:
          text.insert(at, text.substr(engine() % text.size(), engine() % 40));
      }
    }
    try {
      static_cast<void>(parse_host_config(text, "c.toml"));
      ++taken;
    } catch (const HostConfigError& error) {
      ++refused;
      const std::string what = error.what();
      ASSERT_TRUE(what.starts_with("c.toml: line ")) << what;
      ASSERT_NE(what.find("; "), std::string::npos) << what;
      ASSERT_EQ(what.find('\n'), std::string::npos) << what;
      ASSERT_LT(what.size(), 700U) << what;
    }
  }
  EXPECT_GT(taken, 100);
  EXPECT_GT(refused, 500);
}

}  // namespace
}  // namespace varnholt::embedded::test
