// Goal: the thresholds of a context are merged from three sources in their order, and handed to
// the host with the era configuration that the gates go by.
//
// Method: tables over the sources and the configurations; what reached the host stands in its log.
#include "search_templates/genetic/context/thresholds.hpp"

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

// A subclass of the mapping type with a truth of its own, which may fail.
class Thresholds : public HostObject {
 public:
  Thresholds(Mapping entries, std::function<bool()> truth)
      : entries_(std::move(entries)), truth_(std::move(truth)) {}

  [[nodiscard]] std::string type_name() const override { return "Thresholds"; }
  [[nodiscard]] bool truth() const override { return truth_(); }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override { return entries_; }

 private:
  Mapping entries_;
  std::function<bool()> truth_;
};

// An interrupt of the host: no ordinary error.
struct Interrupt {};

class ContextThresholds : public testing::Test {
 protected:
  void attributes(Mapping entries) {
    host.context.on_attribute = [entries = std::move(entries)](std::string_view name) {
      return entries.find(name);
    };
  }
  void searched(ScriptedCallable::Function answer) {
    host.context.on_search_context_thresholds =
        always(scripted_callable(host.log, "thresholds_operation", std::move(answer)));
  }
  // What reached the host: the merged thresholds and the configuration.
  std::string told() {
    host.log.clear();
    static_cast<void>(context_thresholds(host.context, host.engine));
    const std::string line = host.log.lines().back();
    const std::string head = "engine.stats_gate_threshold_set(";
    EXPECT_TRUE(line.starts_with(head)) << line;
    return line.substr(head.size(), line.size() - head.size() - 1);
  }

  ScriptedHost host;
};

TEST_F(ContextThresholds, ALaterSourceWinsAndKeepsThePlaceOfTheEarlierKey) {
  struct Case {
    Value plain;
    Value own;
    Value searched;
    std::string merged;
  };
  const Case cases[] = {
      {Mapping{{"a", 1}, {"b", 1}, {"c", 1}}, Mapping{{"b", 2}, {"d", 2}},
       Mapping{{"c", 3}, {"e", 3}}, "{'a': 1, 'b': 2, 'c': 3, 'd': 2, 'e': 3}"},
      {Mapping{{"a", 1}}, Value(), Value(), "{'a': 1}"},
      {Value(), Mapping{{"a", 2}}, Value(), "{'a': 2}"},
      {Value(), Value(), Mapping{{"a", 3}}, "{'a': 3}"},
      {Mapping{{"a", 1}}, Mapping{{"a", 2}}, Mapping{{"a", 3}}, "{'a': 3}"},
      // An absent threshold is a value like any other.
      {Mapping{{"a", 1}}, Mapping{{"a", Value()}}, Value(), "{'a': None}"},
      // What is empty or no mapping adds nothing.
      {Mapping(), Mapping(), Mapping(), "{}"},
      {List{1}, Tuple{Value(Tuple{"a", 1})}, "text", "{}"},
      {5, true, scripted_object(Mapping{{"a", 1}}), "{}"},
      {Mapping{{"a", 1}}, List{Tuple{"a", 2}}, 7, "{'a': 1}"},
  };
  for (const Case& test_case : cases) {
    SCOPED_TRACE(test_case.merged);
    attributes({{"thresholds", test_case.plain}, {"_thresholds", test_case.own}});
    searched(always(test_case.searched));
    EXPECT_EQ(told(), test_case.merged + ", None");
    attributes({{"thresholds", as_host_containers(test_case.plain)},
                {"_thresholds", as_host_containers(test_case.own)}});
    searched(always(as_host_containers(test_case.searched)));
    EXPECT_EQ(told(), test_case.merged + ", None");
  }
}

TEST_F(ContextThresholds, AMappingIsMergedOnlyWhenItIsTrue) {
  const Mapping entries{{"a", 1}};
  attributes({{"thresholds", make_object<Thresholds>(entries, [] { return false; })}});
  EXPECT_EQ(told(), "{}, None");
  attributes({{"thresholds", make_object<Thresholds>(entries, [] { return true; })}});
  EXPECT_EQ(told(), "{'a': 1}, None");
}

TEST_F(ContextThresholds, NeverWriteIntoTheirSources) {
  const Mapping plain{{"a", 1}};
  const Mapping own{{"a", 2}};
  const Mapping found{{"a", 3}};
  attributes({{"thresholds", plain}, {"_thresholds", own}});
  searched(always(Value(found)));
  host.engine.on_stats_gate_threshold_set = [&](const Mapping& merged, const Value&) {
    for (const Mapping& source : {plain, own, found})
      EXPECT_FALSE(same_object(merged, source));
    return Value();
  };
  EXPECT_EQ(told(), "{'a': 3}, None");
  EXPECT_EQ(repr(List{plain, own, found}), "[{'a': 1}, {'a': 2}, {'a': 3}]");
}

// The configuration is looked for in the opposite order to that of the market and the era.
TEST_F(ContextThresholds, AskForTheConfigurationWithoutUnderscoreFirst) {
  struct Case {
    Mapping context;
    std::string config;
  };
  const Case cases[] = {
      {{{"_era_config", "own"}, {"era_config", "other"}}, "'other'"},
      {{{"_era_config", "own"}, {"era_config", Value()}}, "'own'"},
      {{{"_era_config", "own"}}, "'own'"},
      {{{"_era_config", "own"}, {"era_config", 0}}, "0"},
      {{{"era_config", "other"}}, "'other'"},
      {Mapping(), "None"},
  };
  for (const Case& test_case : cases) {
    attributes(test_case.context);
    EXPECT_EQ(told(), "{}, " + test_case.config) << repr(test_case.context);
  }
  attributes(cases[0].context);
  EXPECT_EQ(context_era_config(host.context), "own");
}

TEST_F(ContextThresholds, ReadInTheirOrder) {
  searched(always(Value()));
  EXPECT_EQ(told(), "{}, None");
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.attribute('thresholds')", "context.attribute('_thresholds')",
                          "context.search_context_thresholds", "thresholds_operation()",
                          "context.attribute('era_config')", "context.attribute('_era_config')",
                          "engine.stats_gate_threshold_set({}, None)"));
  // An operation that cannot be called is not, and a configuration that is there ends the reads.
  host.context.on_search_context_thresholds = always(Callable());
  attributes({{"era_config", "config"}});
  EXPECT_EQ(told(), "{}, 'config'");
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.attribute('thresholds')", "context.attribute('_thresholds')",
                          "context.search_context_thresholds", "context.attribute('era_config')",
                          "engine.stats_gate_threshold_set({}, 'config')"));
}

TEST_F(ContextThresholds, AreWhateverTheHostMakesOfThem) {
  for (const Value& set : {Value(), Value(0), Value(Mapping{{"k", 1}}), Value("set")}) {
    host.engine.on_stats_gate_threshold_set = always(set);
    EXPECT_TRUE(same_object(context_thresholds(host.context, host.engine), set));
  }
}

TEST_F(ContextThresholds, AnOrdinaryFailureOfTheOperationCountsAsNothing) {
  attributes({{"thresholds", Mapping{{"a", 1}}}});
  searched([](auto, const auto&) -> Value { throw RuntimeError("gone"); });
  EXPECT_EQ(told(), "{'a': 1}, None");
  searched([](auto, const auto&) -> Value { throw AttributeError("gone"); });
  EXPECT_EQ(told(), "{'a': 1}, None");
  searched([](auto, const auto&) -> Value { throw std::out_of_range("gone"); });
  EXPECT_EQ(told(), "{'a': 1}, None");
  searched([](auto, const auto&) -> Value { throw Interrupt(); });
  EXPECT_THROW(static_cast<void>(told()), Interrupt);
}

TEST_F(ContextThresholds, EveryOtherFailurePasses) {
  const auto failure = [this] {
    return error_of([this] { return context_thresholds(host.context, host.engine); });
  };
  // The truth of what the operation gave is not guarded, nor is that of an attribute.
  const Value broken =
      make_object<Thresholds>(Mapping(), []() -> bool { throw ValueError("truth is ambiguous"); });
  searched(always(broken));
  EXPECT_EQ(failure(), "ValueError: truth is ambiguous");
  searched(always(Value()));
  attributes({{"_thresholds", broken}});
  EXPECT_EQ(failure(), "ValueError: truth is ambiguous");

  attributes(Mapping());
  host.engine.on_stats_gate_threshold_set = failing(KeyError("unknown gate"));
  EXPECT_EQ(failure(), "KeyError: unknown gate");
  host.context.on_search_context_thresholds = failing(ValueError("broken property"));
  EXPECT_EQ(failure(), "ValueError: broken property");
  host.context.on_attribute = failing(RuntimeError("broken attribute"));
  EXPECT_EQ(failure(), "RuntimeError: broken attribute");
}

}  // namespace
}  // namespace varnholt::genetic::test
