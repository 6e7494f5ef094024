// Goal: the history that a search keeps from its children is given back before it is freed, or the
// allocator would hand out memory that children do not have.
// Method: the kernel's own notes on the memory of this process, counted before and after.
#include "hosts/embedded/search/search_setup.hpp"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

// How many of this process's mappings children do not have.
int mappings_kept_from_children() {
  std::ifstream mappings("/proc/self/smaps");
  int kept = 0;
  for (std::string line; std::getline(mappings, line);) {
    if (line.starts_with("VmFlags:") && line.find(" dc") != std::string::npos) ++kept;
  }
  return kept;
}

class SearchSetupTest : public SearchRunTest {};

TEST_F(SearchSetupTest, TheHistoryIsKeptFromChildrenOnlyWhileTheSearchRuns) {
  // Many pages of closes: of a small panel there may be not one whole page.
  write_prices(in_folder("prices.csv"),
               make_synthetic_universe({.instruments = 20, .days = 400, .factors = 2}));
  const SearchOptions searched = options();
  const int before = mappings_kept_from_children();
  {
    const SearchSetup setup(searched);
    EXPECT_GT(mappings_kept_from_children(), before);
  }
  EXPECT_EQ(mappings_kept_from_children(), before);
  SearchSetup setup(searched);
  const Evaluator whole = setup.take_whole_history();
  EXPECT_EQ(mappings_kept_from_children(), before);
}

TEST_F(SearchSetupTest, SeedsAreBroughtToTheirForm) {
  std::ofstream(in_folder("seeds.txt")) << "1 * ts_max(ts_max(close, 3), 2)\n-(-returns)\n";
  SearchOptions searched = options();
  searched.seeds = in_folder("seeds.txt");
  const auto seeds = [](const SearchOptions& asked) {
    SearchSetup setup(asked);
    std::string texts;
    const genetic::List graphs = setup.config().thawed_initial_candidates().list();
    for (std::size_t i = 0; i < graphs.size(); ++i)
      texts += expression_text(graphs.at(i)) + "\n";
    return texts;
  };
  // Of four and of three days four fifths are all.
  EXPECT_EQ(seeds(searched), "ts_max(close, 4)\nreturns\n");
  searched.least_known_share = 0.5;
  EXPECT_EQ(seeds(searched), "ts_max(ts_max(close, 3), 2)\nreturns\n");
  searched.config.vocabulary.simplify = false;
  searched.is_as_written = true;
  EXPECT_EQ(seeds(searched),
            "arith_mul(1, ts_max(ts_max(close, 3), 2))\narith_neg(arith_neg(returns))\n");
}

}  // namespace
}  // namespace varnholt::embedded::test
