// Seeds from a file: graphs of the vocabulary are read; anything else is refused with file, place
// and remedy.
#include "hosts/embedded/search/seed_graphs.hpp"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

class SeedGraphsTest : public FolderTest {
 protected:
  std::filesystem::path file(const std::string& text) {
    std::ofstream(in_folder("seeds.json")) << text;
    return in_folder("seeds.json");
  }

  void refused(const std::string& text, const std::string& told) {
    try {
      static_cast<void>(read_seed_graphs(file(text), vocabulary_, {5, 25}));
      FAIL() << text << " must be refused";
    } catch (const SeedFileError& error) {
      const std::string message = error.what();
      EXPECT_NE(message.find("seeds.json: "), std::string::npos) << message;
      EXPECT_NE(message.find(told), std::string::npos) << message;
    }
  }

  Vocabulary vocabulary_ = make_vocabulary(small_universe());
};

TEST_F(SeedGraphsTest, ReadsGraphsInTheirOrder) {
  const std::string text = genetic::json_text(genetic::List{ranked("close"), feature("returns")});
  const genetic::List graphs = read_seed_graphs(file(text), vocabulary_, {5, 25});
  ASSERT_EQ(graphs.size(), 2U);
  EXPECT_EQ(expression_text(graphs.at(0)), "cross_rank(close)");
  EXPECT_EQ(expression_text(graphs.at(1)), "returns");
  EXPECT_EQ(read_seed_graphs(file("[]"), vocabulary_, {5, 25}).size(), 0U);
}

TEST_F(SeedGraphsTest, RefusesWhatCannotBeUsed) {
  refused("[", "not JSON");
  refused("{}", "holds no list");
  refused("[7]", "graph 1 of 1: graph, root:");
  refused(genetic::json_text(genetic::List{ranked("close"), ranked("colour")}),
          "graph 2 of 2: graph, children[0]:");
  EXPECT_THROW(static_cast<void>(read_seed_graphs(in_folder("none.json"), vocabulary_, {5, 25})),
               SeedFileError);
}

TEST_F(SeedGraphsTest, AreTheFirstGenerationOfARun) {
  write_prices(in_folder("prices.csv"), small_universe());
  SearchOptions options;
  options.prices = in_folder("prices.csv");
  options.database = in_folder("runs.db");
  options.seeds = file(genetic::json_text(genetic::List{ranked("close"), ranked("returns")}));
  options.jobs = 1;
  options.batch_size = 4;
  options.generations = 2;
  RecordingObserver observer;
  InterruptFlag interrupt;
  static_cast<void>(run_search(options, observer, interrupt));
  ASSERT_GE(observer.recorded.size(), 3U);
  EXPECT_EQ(observer.recorded[0].expression, "cross_rank(close)");
  EXPECT_EQ(observer.recorded[1].expression, "cross_rank(returns)");
  // Repairs of the seeds may follow, and then the second generation.
  EXPECT_EQ(observer.recorded[1].generation, 0);
  EXPECT_EQ(observer.recorded.back().generation, 1);
}

}  // namespace
}  // namespace varnholt::embedded::test
