// Goal: the exported weights are those that the signal was judged by, to the last digit, and an
// export that cannot be done leaves nothing behind.
// Method: real files; the weights read back and backtested; a folder, a device and a limit of the
// size of files that refuse to be written.
#include "hosts/embedded/search/signal_export.hpp"

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

// cross_zscore(ts_delta(close, 5)): of either sign, with days without a position.
constexpr const char* kGraph =
    R"({"children":[{"children":[{"children":[],"node":"close","type":"feature"},)"
    R"({"children":[],"node":"5","type":"window"}],"node":"ts_delta","type":"rotation"}],)"
    R"("node":"cross_zscore","type":"rotation"})";

MarketData universe() {
  SyntheticUniverseOptions options;
  options.instruments = 6;
  options.days = 240;
  options.seed = 5;
  return make_synthetic_universe(options);
}

// What a reader makes of the file: the cells of each line.
std::vector<std::vector<std::string>> cells_of(const fs::path& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream cells(line);
    rows.emplace_back();
    for (std::string cell; std::getline(cells, cell, ',');)
      rows.back().push_back(cell);
  }
  return rows;
}

Panel weights_in(const std::vector<std::vector<std::string>>& rows) {
  Panel weights(static_cast<Eigen::Index>(rows.size()) - 1,
                static_cast<Eigen::Index>(rows.front().size()) - 1);
  for (Eigen::Index day = 0; day < weights.rows(); ++day) {
    for (Eigen::Index column = 0; column < weights.cols(); ++column) {
      const std::string& cell =
          rows[static_cast<std::size_t>(day) + 1][static_cast<std::size_t>(column) + 1];
      char* end = nullptr;
      weights(day, column) = std::strtod(cell.c_str(), &end);
      EXPECT_EQ(*end, '\0') << cell;
    }
  }
  return weights;
}

void expect_equal(const BacktestStatistics& left, const BacktestStatistics& right) {
  EXPECT_EQ(left.sharpe, right.sharpe);
  EXPECT_EQ(left.gross_returns_sharpe, right.gross_returns_sharpe);
  EXPECT_EQ(left.annualized_returns, right.annualized_returns);
  EXPECT_EQ(left.turnover, right.turnover);
  EXPECT_EQ(left.drawdown, right.drawdown);
  EXPECT_EQ(left.max_weight, right.max_weight);
  EXPECT_EQ(left.delta_exposure, right.delta_exposure);
  EXPECT_EQ(left.abs_weight_sum_mean, right.abs_weight_sum_mean);
  EXPECT_EQ(left.quality_score, right.quality_score);
  EXPECT_EQ(left.holding_days, right.holding_days);
  EXPECT_EQ(left.active_days, right.active_days);
  EXPECT_EQ(left.missing_return_count, right.missing_return_count);
}

class SignalExport : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(folder_); }
  void TearDown() override { fs::remove_all(folder_); }

  [[nodiscard]] fs::path in_folder(const char* name) const { return folder_ / name; }
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder_))
      found.push_back(entry.path().filename());
    return found;
  }

 private:
  fs::path folder_ =
      fs::temp_directory_path() / ("varnholt-export-" + std::to_string(getpid()) + "-" +
                                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

void put(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string text_of(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

template <typename Action>
std::string refusal(const Action& action) {
  try {
    action();
  } catch (const ExportError& error) {
    return error.what();
  }
  return "no error";
}

TEST_F(SignalExport, GivesBackWhatTheSignalWasJudgedBy) {
  const MarketData data = universe();
  const EraPlan plan = split_eras(data.dates, {3, 0.25, 2});
  // As a search judges it: nothing of the days after its era is there.
  const Evaluator seen(data.first_days(plan.seen_days()));
  const genetic::Value graph = read_json(kGraph);
  const Evaluator whole(data);

  write_weights(in_folder("w.csv"), data, history_weights(data, kGraph, {}), Existing::IsKept);
  const Panel weights = weights_in(cells_of(in_folder("w.csv")));

  const BookRules& rules = seen.options().book;
  const BacktestStatistics recorded = seen.evaluate(graph).backtest.statistics;
  EXPECT_NE(recorded.sharpe, 0.0);
  expect_equal(backtest_weights(weights.topRows(plan.seen_days()),
                                data.close.topRows(plan.seen_days()), rules)
                   .statistics,
               recorded);
  expect_equal(sample_statistics(weights, data.close, rules, plan).in_sample, recorded);
  expect_equal(sample_statistics(weights, data.close, rules, plan).holdout,
               sample_statistics(whole.evaluate(graph).weights, data.close, rules, plan).holdout);
}

TEST_F(SignalExport, WritesARowADayAndAColumnAnInstrument) {
  const MarketData data = universe();
  write_weights(in_folder("w.csv"), data, history_weights(data, kGraph, {}), Existing::IsKept);
  const auto rows = cells_of(in_folder("w.csv"));
  ASSERT_EQ(rows.size(), data.dates.size() + 1);
  EXPECT_EQ(rows[0][0], "date");
  for (std::size_t i = 0; i < data.symbols.size(); ++i)
    EXPECT_EQ(rows[0][i + 1], data.symbols[i]);
  for (std::size_t day = 0; day < data.dates.size(); ++day)
    EXPECT_EQ(rows[day + 1][0], date_text(data.dates[day]));
  EXPECT_THAT(names(), UnorderedElementsAre("w.csv"));
}

TEST_F(SignalExport, QuotesASymbolThatWouldEndItsCell) {
  MarketData data = universe().first_days(2);
  data.symbols = {"A,B", "C\"D", "E", "F", "G", "H"};
  write_weights(in_folder("w.csv"), data, Panel::Zero(2, 6), Existing::IsKept);
  EXPECT_THAT(text_of(in_folder("w.csv")), HasSubstr("date,\"A,B\",\"C\"\"D\",E,F,G,H\n"));
}

// A cell that begins like a formula is one to a spreadsheet, whatever its column is.
TEST_F(SignalExport, NoSymbolBeginsAFormula) {
  MarketData data = universe().first_days(2);
  data.symbols = {"=1+1", "+A", "-A", "@SUM(A1)", "A=1", "=HYPERLINK(\"x\",\"y\")"};
  write_weights(in_folder("w.csv"), data, Panel::Zero(2, 6), Existing::IsKept);
  EXPECT_THAT(text_of(in_folder("w.csv")),
              HasSubstr("date,'=1+1,'+A,'-A,'@SUM(A1),A=1,\"'=HYPERLINK(\"\"x\"\",\"\"y\"\")\"\n"));
}

RunStart run_of(const std::string& digest) {
  RunStart run;
  run.settings_json = "{}";
  run.price_digest = digest;
  return run;
}

TEST_F(SignalExport, ReadsThePricesAsTheRunDid) {
  const std::string text = "Day;LAST\n02/01/2020;1,5\n";
  put(in_folder("p.csv"), text);
  RunStart run = run_of(sha256_hex(text));
  run.settings_json =
      R"({"price_format":{"columns":{"close":"LAST","date":"Day"},"date_format":"dd/mm/yyyy",)"
      R"("decimal":",","symbol":"ACME"}})";
  const MarketData data = read_run_prices(in_folder("p.csv"), run);
  EXPECT_EQ(data.symbols, std::vector<std::string>{"ACME"});
  EXPECT_EQ(date_text(data.dates.at(0)), "2020-01-02");
  EXPECT_EQ(data.close(0, 0), 1.5);
}

TEST_F(SignalExport, ReadsThePricesWithTheDigestOfTheRun) {
  const std::string text = "date,AAA\n2020-01-01,1.5\n2020-01-02,2\n";
  put(in_folder("p.csv"), text);
  const MarketData data = read_run_prices(in_folder("p.csv"), run_of(sha256_hex(text)));
  EXPECT_EQ(data.day_count(), 2);
  EXPECT_EQ(data.close(0, 0), 1.5);
}

TEST_F(SignalExport, RefusesOtherPrices) {
  put(in_folder("p.csv"), "date,AAA\n2020-01-01,1.5\n");
  const std::string digest = sha256_hex("date,AAA\n2020-01-01,1.6\n");
  EXPECT_THAT(
      refusal([&] { static_cast<void>(read_run_prices(in_folder("p.csv"), run_of(digest))); }),
      AllOf(HasSubstr("p.csv: it is not the price file of the run"), HasSubstr(digest),
            HasSubstr(sha256_hex("date,AAA\n2020-01-01,1.5\n")), HasSubstr("--prices FILE")));
  EXPECT_THAT(
      refusal([&] { static_cast<void>(read_run_prices(in_folder("none"), run_of(digest))); }),
      HasSubstr("none: it cannot be opened: No such file or directory; name the"));
  std::filesystem::create_directories(in_folder("empty"));
  EXPECT_THAT(
      refusal([&] { static_cast<void>(read_run_prices(in_folder("empty"), run_of(digest))); }),
      HasSubstr("it is a folder without price files; name the"));
  EXPECT_THAT(refusal([&] { static_cast<void>(read_run_prices(PriceSource(), run_of(digest))); }),
              HasSubstr("no price file is named"));
}

TEST_F(SignalExport, TellsWhatIsWrongWithPricesOfTheRightDigest) {
  const std::string text = "date,AAA\n2020-01-01,abc\n";
  put(in_folder("p.csv"), text);
  EXPECT_THROW(static_cast<void>(read_run_prices(in_folder("p.csv"), run_of(sha256_hex(text)))),
               PriceFileError);
}

TEST_F(SignalExport, RefusesAGraphThatSaysNothingOnThesePrices) {
  MarketData data = universe();
  EXPECT_THROW(static_cast<void>(history_weights(
                   data, R"({"children":[],"node":"sentiment","type":"feature"})", {})),
               GraphError);
  EXPECT_THROW(static_cast<void>(history_weights(data, "{", {})), genetic::ValueError);
}

TEST_F(SignalExport, KeepsAFileThatIsThereUnlessItIsToldOtherwise) {
  const MarketData data = universe();
  const Panel weights = history_weights(data, kGraph, {});
  const fs::path path = in_folder("w.csv");
  put(path, "mine");
  EXPECT_THAT(refusal([&] { write_weights(path, data, weights, Existing::IsKept); }),
              HasSubstr("w.csv: there is such a file already; name another one, or"));
  EXPECT_EQ(text_of(path), "mine");
  write_weights(path, data, weights, Existing::IsReplaced);
  EXPECT_EQ(cells_of(path).size(), data.dates.size() + 1);
  EXPECT_THAT(names(), UnorderedElementsAre("w.csv"));
}

TEST_F(SignalExport, ReplacesNothingButFiles) {
  fs::create_directory(in_folder("sub"));
  fs::create_symlink("nowhere", in_folder("link"));
  const MarketData data = universe().first_days(2);
  for (const char* name : {"sub", "link"}) {
    EXPECT_THAT(refusal([&] {
                  write_weights(in_folder(name), data, Panel::Zero(2, 6), Existing::IsReplaced);
                }),
                HasSubstr("it is no regular file"));
    EXPECT_THAT(refusal([&] { check_weights_path(in_folder(name), Existing::IsKept); }),
                HasSubstr("there is such a file already"));
  }
  EXPECT_THAT(names(), UnorderedElementsAre("sub", "link"));
}

TEST_F(SignalExport, RefusesAFolderThatIsNotThere) {
  const MarketData data = universe().first_days(2);
  EXPECT_THAT(refusal([&] {
                write_weights(in_folder("no") / "w.csv", data, Panel::Zero(2, 6), Existing::IsKept);
              }),
              HasSubstr("w.csv: it cannot be made: No such file or directory; name a file in"));
}

TEST_F(SignalExport, RefusesWeightsOfAnotherShape) {
  const MarketData data = universe().first_days(2);
  EXPECT_THROW(write_weights(in_folder("w.csv"), data, Panel::Zero(3, 6), Existing::IsKept),
               std::invalid_argument);
  EXPECT_THAT(names(), ::testing::IsEmpty());
}

// A limit of the size of files stands for a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    before_signal_ = std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, before_signal_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_ = {};
  void (*before_signal_)(int) = nullptr;
};

TEST_F(SignalExport, LeavesWhatWasThereWhenTheDiskIsFull) {
  const MarketData data = universe();
  const Panel weights = history_weights(data, kGraph, {});
  put(in_folder("old.csv"), "mine");
  {
    const FileSizeLimit limit(1000);
    EXPECT_THROW(write_weights(in_folder("new.csv"), data, weights, Existing::IsKept),
                 std::system_error);
    EXPECT_THROW(write_weights(in_folder("old.csv"), data, weights, Existing::IsReplaced),
                 std::system_error);
  }
  EXPECT_THAT(names(), UnorderedElementsAre("old.csv"));
  EXPECT_EQ(text_of(in_folder("old.csv")), "mine");
}

}  // namespace
}  // namespace varnholt::embedded::test
