// Seeds from a file: graphs of the vocabulary are read; anything else is refused with file, place
// and remedy.
#include "hosts/embedded/search/seed_graphs.hpp"

#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;

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
      EXPECT_NE(message.find("seeds.json"), std::string::npos) << message;
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

TEST_F(SeedGraphsTest, ReadsFormulasInTheirOrder) {
  const genetic::List graphs = read_seed_graphs(file("# two of them\n"
                                                     "reversal = -1 *\n"
                                                     "  rank(delta(close, 5))\n"
                                                     "returns  # as they are\n"),
                                                vocabulary_, {5, 25});
  ASSERT_EQ(graphs.size(), 2U);
  EXPECT_EQ(expression_text(graphs.at(0)), "arith_mul(-1, cross_rank(ts_delta(close, 5)))");
  EXPECT_EQ(expression_text(graphs.at(1)), "returns");
}

TEST_F(SeedGraphsTest, RefusesFormulasWithTheirPlace) {
  refused("", "seeds.json: holds no graph; write formulas, one a line, or a JSON list of graphs");
  refused("# nothing\n", "holds no graph");
  refused("returns\nrank(colour)\n",
          "seeds.json, line 2, column 6: \"colour\" is no feature of these market data;");
  refused("rank(rank(rank(rank(rank(close)))))", "line 1, column 1: the graph is deeper than 5");
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

TEST_F(SeedGraphsTest, RefusesInAFewWordsWhateverIsInTheFile) {
  const auto message = [this](const std::string& text) {
    try {
      static_cast<void>(read_seed_graphs(file(text), vocabulary_, {5, 25, 60}));
    } catch (const SeedFileError& error) {
      EXPECT_LT(std::string(error.what()).size(), 1500U) << text.substr(0, 40);
      return std::string(error.what());
    }
    return std::string("accepted");
  };
  const std::string digits(1'000'000, '7');
  const std::string name(1'000'000, 'n');
  EXPECT_THAT(message(R"([{"node":"close","type":"feature"},{"node":"close","node":"open"}])"),
              HasSubstr("item 2 of the list has the key \"node\" twice in one object; keep one"));
  EXPECT_THAT(message(R"([{"node":"clo\u0000se","type":"feature"}])"),
              HasSubstr("\"clo\\x00se\" is no feature of these market data; use one of"));
  EXPECT_THAT(message("[" + digits + "]"),
              HasSubstr("item 1 of the list has a number that is too large; write a smaller"));
  EXPECT_THAT(message("[-1." + digits + "]"), HasSubstr("write a shorter one"));
  EXPECT_THAT(message(R"([{"node":")" + name + R"(","type":"feature"}])"),
              HasSubstr("nnn...\" is no feature"));
  EXPECT_THAT(message(R"([{"node":"close","type":")" + name + R"("}])"),
              HasSubstr("nnn...\" is no type of node; use"));
  EXPECT_THAT(message("[\"" + name + "\\q\"]"), HasSubstr("not JSON: "));
  EXPECT_THAT(message(std::string(1000, '[')), HasSubstr("not JSON: "));
}

TEST_F(SeedGraphsTest, AreHeldToTheLimitsOfTheRun) {
  const std::string window =
      R"([{"node":"ts_mean","type":"rotation","children":[{"node":"close","type":"feature"},)"
      R"({"node":"60","type":"window"}]}])";
  EXPECT_EQ(read_seed_graphs(file(window), vocabulary_, {5, 25, 60}).size(), 1U);
  EXPECT_THROW(static_cast<void>(read_seed_graphs(file(window), vocabulary_, {5, 25, 59})),
               SeedFileError);
  EXPECT_THROW(static_cast<void>(read_seed_graphs(file(window), vocabulary_, {5, 2, 60})),
               SeedFileError);
  EXPECT_THROW(static_cast<void>(read_seed_graphs(file(window), vocabulary_, {1, 25, 60})),
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
  options.is_as_written = true;
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
