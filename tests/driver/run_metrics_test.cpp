// Goal: the metrics record has its thirteen entries in order, less what a narrow recorder refuses.
// Method: scripted recorders with the signatures that matter.
#include "search_templates/genetic/driver/run_metrics.hpp"

#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr auto kPositionalOnly = ParameterKind::kPositionalOnly;
constexpr auto kOrdinary = ParameterKind::kPositionalOrKeyword;
constexpr auto kKeywordOnly = ParameterKind::kKeywordOnly;
constexpr auto kArguments = ParameterKind::kVariablePositional;
constexpr auto kKeywords = ParameterKind::kVariableKeyword;

using Signature = std::optional<std::vector<Parameter>>;

class RunMetrics : public testing::Test {
 protected:
  // The keys that a recorder of this signature gets.
  Names keys_for(Signature signature) {
    search.host.context.on_record_search_run_metrics = always(scripted_callable(
        search.host.log, "record_metrics",
        [this](std::span<const Value> positional, const Mapping& keywords) {
          EXPECT_THAT(positional, IsEmpty());
          record = keywords;
          return Value("ignored");
        },
        std::move(signature)));
    record = Mapping();
    search.host.log.clear();
    record_search_run_metrics(search.host.context, *search.config, figures);
    Names keys;
    MappingCursor cursor(record);
    while (const auto entry = cursor.next())
      keys.push_back(str(entry->key));
    return keys;
  }

  SearchHarness search{5};
  RunFigures figures{3, 6, 8, 6, 2, 1, "duplicate", 4, 1.5};
  Mapping record;
};

const Names kAll = {"batch_size",
                    "process_count",
                    "candidate_count",
                    "generated_graph_count",
                    "unique_graph_count",
                    "duplicate_graph_count",
                    "unique_ratio",
                    "seed",
                    "improvement_round_count",
                    "terminal_reason",
                    "failure_count",
                    "elapsed_simulation_seconds",
                    "determinism_metadata"};
const Names kAlways = {
    "batch_size",      "process_count", "candidate_count",           "improvement_round_count",
    "terminal_reason", "failure_count", "elapsed_simulation_seconds"};

TEST_F(RunMetrics, ThirteenEntriesInOrder) {
  EXPECT_EQ(keys_for(std::nullopt), kAll);
  EXPECT_EQ(repr(record),
            "{'batch_size': 5, 'process_count': 3, 'candidate_count': 6, 'generated_graph_count': "
            "8, 'unique_graph_count': 6, 'duplicate_graph_count': 2, 'unique_ratio': 0.75, 'seed': "
            "20240229, 'improvement_round_count': 1, 'terminal_reason': 'duplicate', "
            "'failure_count': 4, 'elapsed_simulation_seconds': 1.5, 'determinism_metadata': "
            "{'seed': 20240229, 'process_count': 3, 'tie_semantics': "
            "'score_desc_then_candidate_index_asc_then_canonical_graph'}}");
}

TEST_F(RunMetrics, NoGeneratedGraphsGiveTheRatioZero) {
  figures.generated_graph_count = 0;
  figures.unique_graph_count = 0;
  keys_for(std::nullopt);
  EXPECT_EQ(repr(record.at("unique_ratio")), "0.0");
}

TEST_F(RunMetrics, AnyKeywordIsTakenByAVariableKeyword) {
  EXPECT_EQ(keys_for(Signature{{{"terminal_reason", kOrdinary}, {"kwargs", kKeywords}}}), kAll);
}

TEST_F(RunMetrics, NarrowRecorderLosesSixEntriesAndNoOther) {
  // The other seven are passed even to one that takes none of them.
  EXPECT_EQ(keys_for(Signature{std::vector<Parameter>{}}), kAlways);
  EXPECT_EQ(keys_for(Signature{{{"terminal_reason", kOrdinary}}}), kAlways);
}

TEST_F(RunMetrics, NamedEntriesAreKeptInTheirPlaces) {
  EXPECT_EQ(keys_for(Signature{{{"seed", kKeywordOnly}, {"unique_ratio", kOrdinary}}}),
            (Names{"batch_size", "process_count", "candidate_count", "unique_ratio", "seed",
                   "improvement_round_count", "terminal_reason", "failure_count",
                   "elapsed_simulation_seconds"}));
}

TEST_F(RunMetrics, EachOfTheSixCanBeTheOnlyOneKept) {
  for (const char* name : {"generated_graph_count", "unique_graph_count", "duplicate_graph_count",
                           "unique_ratio", "seed", "determinism_metadata"}) {
    const Names keys = keys_for(Signature{{{name, kKeywordOnly}}});
    EXPECT_THAT(keys, SizeIs(8)) << name;
    EXPECT_THAT(keys, testing::Contains(name));
  }
}

TEST_F(RunMetrics, PositionalParametersTakeNoKeyword) {
  EXPECT_EQ(keys_for(Signature{{{"seed", kPositionalOnly}, {"seed", kArguments}}}), kAlways);
}

TEST_F(RunMetrics, TheRecorderIsLookedAtAnewForEachOfTheSix) {
  keys_for(Signature{{{"kwargs", kKeywords}}});
  EXPECT_THAT(search.host.log.names(),
              ElementsAre("context.record_search_run_metrics", "record_metrics.signature",
                          "record_metrics.signature", "record_metrics.signature",
                          "record_metrics.signature", "record_metrics.signature",
                          "record_metrics.signature", "record_metrics"));
}

// A recorder whose signature changes from look to look: the first is for the metadata.
TEST_F(RunMetrics, TheMetadataIsAskedForFirst) {
  class Changing : public CallableBody {
   public:
    explicit Changing(Mapping& record) : record_(record) {}
    Value call(std::span<const Value> /*positional*/, const Mapping& keywords) override {
      record_ = keywords;
      return {};
    }
    [[nodiscard]] std::optional<std::vector<Parameter>> signature() const override {
      if (++looks_ == 1) return std::vector<Parameter>{};
      return std::nullopt;
    }

   private:
    Mapping& record_;
    mutable int looks_ = 0;
  };
  search.host.context.on_record_search_run_metrics =
      always(Callable(std::make_shared<Changing>(record)));
  record_search_run_metrics(search.host.context, *search.config, figures);
  EXPECT_EQ(record.size(), 12U);
  EXPECT_FALSE(record.contains("determinism_metadata"));
}

TEST_F(RunMetrics, MissingRecorderIsNoError) {
  search.host.context.on_record_search_run_metrics = always(Callable());
  search.host.log.clear();
  record_search_run_metrics(search.host.context, *search.config, figures);
  EXPECT_THAT(search.host.log.names(), ElementsAre("context.record_search_run_metrics"));
}

TEST_F(RunMetrics, RecordersOwnErrorPasses) {
  search.host.context.on_record_search_run_metrics = always(
      scripted_callable(search.host.log, "record_metrics",
                        [](const auto&, const Mapping&) -> Value { throw ValueError("full"); }));
  EXPECT_THROW(record_search_run_metrics(search.host.context, *search.config, figures), ValueError);
}

TEST(CallableAcceptsKeyword, ByNameAndKind) {
  CallLog log;
  const auto accepts = [&log](Signature signature) {
    return callable_accepts_keyword(scripted_callable(log, "f", always(Value()), signature),
                                    "seed");
  };
  EXPECT_TRUE(accepts(std::nullopt));  // What cannot be told is taken to accept it.
  EXPECT_FALSE(accepts(Signature{std::vector<Parameter>{}}));
  EXPECT_TRUE(accepts(Signature{{{"seed", kOrdinary}}}));
  EXPECT_TRUE(accepts(Signature{{{"seed", kKeywordOnly}}}));
  EXPECT_FALSE(accepts(Signature{{{"seed", kPositionalOnly}}}));
  EXPECT_FALSE(accepts(Signature{{{"seed", kArguments}}}));
  EXPECT_TRUE(accepts(Signature{{{"anything", kKeywords}}}));
  EXPECT_TRUE(accepts(Signature{{{"other", kOrdinary}, {"anything", kKeywords}}}));
  EXPECT_FALSE(accepts(Signature{{{"seeds", kOrdinary}, {"other", kKeywordOnly}}}));
}

}  // namespace
}  // namespace varnholt::genetic::test
