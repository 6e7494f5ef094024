// Goal: market and era come from the first of their names that holds a positive integer, whatever
// the host holds there, and reach the payload in the right order of precedence.
//
// Method: tables over kinds of values and over the names, each name alone and each before the
// others; the reads of the context stand in the scripted host's log.
#include "search_templates/genetic/context/market_era.hpp"

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// A number of the host that is none of our kinds: a fraction, a decimal, a foreign boolean, a
// subtype of the real. `integer` tells what int() makes of it.
class HostNumber : public HostObject {
 public:
  HostNumber(std::function<Value()> integer, std::optional<double> real = std::nullopt)
      : integer_(std::move(integer)), real_(real) {}

  [[nodiscard]] std::string type_name() const override { return "HostNumber"; }
  [[nodiscard]] bool is_instance_of(Kind kind) const override {
    return kind == Kind::kReal && real_.has_value();
  }
  [[nodiscard]] double to_float() const override { return real_.value_or(0.5); }
  [[nodiscard]] Value to_integer() const override { return integer_(); }

 private:
  std::function<Value()> integer_;
  std::optional<double> real_;
};

Value host_number(std::function<Value()> integer, std::optional<double> real = std::nullopt) {
  return make_object<HostNumber>(std::move(integer), real);
}

template <typename E>
Value broken_number(E error) {
  return host_number([error]() -> Value { throw E(error); });
}

TEST(PositiveIntOrNone, IsTheIntegerOfWhatConvertsToOneAboveZero) {
  const std::pair<Value, std::string> cases[] = {
      {7, "7"},
      {1, "1"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {to_integer("9223372036854775808"), "9223372036854775808"},
      {7.0, "7"},
      {1e15, "1000000000000000"},
      {1e20, "100000000000000000000"},
      // What int() takes for digits.
      {"7", "7"},
      {" 7\n", "7"},
      {"+7", "7"},
      {"007", "7"},
      {"1_000", "1000"},
      {"\xD9\xA7", "7"},  // The Arabic-Indic digit.
      {"9223372036854775808", "9223372036854775808"},
      {std::string(4300, '9'), std::string(4300, '9')},
      // Other numbers of the host are truncated, and its other boolean counts as 1.
      {host_number(always(Value(7))), "7"},
      {host_number(always(Value(1))), "1"},
      {host_number(always(Value(7)), 7.0), "7"},
  };
  for (const auto& [value, integer] : cases) {
    SCOPED_TRACE(repr(value));
    const Value found = positive_int_or_none(value);
    EXPECT_EQ(repr(found), integer);
    EXPECT_EQ(exact_kind(found), Kind::kInteger);
  }
  // A large real converts exactly.
  EXPECT_TRUE(positive_int_or_none(1e300) == Value(1e300));
  EXPECT_EQ(str(positive_int_or_none(1e300)).size(), 301U);
}

TEST(PositiveIntOrNone, IsAbsentForEverythingElse) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const Value cases[] = {
      Value(), true, false, 0, -3, to_integer("-9223372036854775809"),
      // Reals with a fraction, and those that are no integer at all.
      0.0, -7.0, 7.5, 0.5, -0.5, kInfinity, -kInfinity, std::nan(""),
      // Texts that int() refuses.
      "", " ", "seven", "7.0", "7.5", "1__0", "0x7", "0", "-7", "True", std::string(4301, '9'),
      // Anything but a number.
      List{7}, Tuple{7}, Mapping{{"market_id", 7}}, scripted_object(Mapping{{"market_id", 7}}),
      host_number(always(Value(0))), host_number(always(Value(-1))),
      host_number(always(Value(7)), 7.5), host_number(always(Value(7)), kInfinity),
      // The three errors that mean "no integer".
      broken_number(TypeError("x")), broken_number(ValueError("x")),
      broken_number(OverflowError("x"))};
  for (const Value& value : cases)
    EXPECT_TRUE(positive_int_or_none(value).is_absent()) << repr(value);
}

TEST(PositiveIntOrNone, LetsOtherErrorsOfTheConversionPass) {
  EXPECT_EQ(error_of([] { return positive_int_or_none(broken_number(RuntimeError("gone"))); }),
            "RuntimeError: gone");
  EXPECT_EQ(error_of([] { return positive_int_or_none(broken_number(AttributeError("gone"))); }),
            "AttributeError: gone");
}

class MarketEra : public testing::Test {
 protected:
  // The attributes that the context has, by name; all others are missing.
  void attributes(Mapping entries) {
    host.context.on_attribute = [entries = std::move(entries)](std::string_view name) {
      return entries.find(name);
    };
  }
  // The names of the attributes that were read, in order.
  [[nodiscard]] std::vector<std::string> reads() const {
    std::vector<std::string> names;
    for (const std::string& line : host.log.lines()) {
      const std::string head = "context.attribute('";
      EXPECT_TRUE(line.starts_with(head)) << line;
      names.push_back(line.substr(head.size(), line.size() - head.size() - 2));
    }
    return names;
  }

  ScriptedHost host;
};

using ContextEraConfig = MarketEra;

TEST_F(ContextEraConfig, IsTheOwnOneUnlessThatIsAbsent) {
  struct Case {
    Mapping context;
    Value found;
    std::vector<std::string> reads;
  };
  const Case cases[] = {
      {{{"_era_config", "own"}, {"era_config", "other"}}, "own", {"_era_config"}},
      {{{"_era_config", Value()}, {"era_config", "other"}}, "other", {"_era_config", "era_config"}},
      {{{"era_config", "other"}}, "other", {"_era_config", "era_config"}},
      // False and empty are not absent.
      {{{"_era_config", 0}, {"era_config", "other"}}, 0, {"_era_config"}},
      {{{"_era_config", Mapping()}, {"era_config", "other"}}, Mapping(), {"_era_config"}},
      {Mapping(), Value(), {"_era_config", "era_config"}},
      {{{"era_config", Value()}}, Value(), {"_era_config", "era_config"}},
  };
  for (const Case& test_case : cases) {
    SCOPED_TRACE(repr(test_case.context));
    host.log.clear();
    attributes(test_case.context);
    EXPECT_EQ(context_era_config(host.context), test_case.found);
    EXPECT_THAT(reads(), ElementsAreArray(test_case.reads));
  }
}

TEST_F(ContextEraConfig, IsTheHostsObjectItself) {
  const Value config = Mapping{{"id", 1}};
  attributes({{"era_config", config}});
  EXPECT_TRUE(same_object(context_era_config(host.context), config));
}

struct Search {
  const char* name;
  Value (*find)(SearchContext&);
  std::vector<std::string> context_names;  // In the order of the reads, repeats included.
  std::vector<std::string> config_names;
};

const std::vector<Search>& searches() {
  static const std::vector<Search> all = {
      {"market", context_market_id, {"_market_id", "market_id"}, {"market_id", "market"}},
      {"era",
       context_era_number,
       {"_era_number", "era_number", "_era_number", "era_number"},
       {"era_number", "era_number", "id"}}};
  return all;
}

TEST_F(MarketEra, EveryNameIsReadInOrderBeforeTheSearchGivesUp) {
  for (const Search& search : searches()) {
    SCOPED_TRACE(search.name);
    host.log.clear();
    attributes(Mapping());
    EXPECT_TRUE(search.find(host.context).is_absent());
    std::vector<std::string> all = search.context_names;
    all.insert(all.end(), {"_era_config", "era_config"});
    EXPECT_EQ(reads(), all);
  }
}

TEST_F(MarketEra, AContextNameWinsOverAllThatFollow) {
  for (const Search& search : searches()) {
    SCOPED_TRACE(search.name);
    const Value config = Mapping{{"market_id", 50}, {"market", 51}, {"era_number", 52}, {"id", 53}};
    for (std::size_t first = 0; first < 2; ++first) {
      Mapping context{{"_era_config", config}};
      for (std::size_t later = first; later < 2; ++later)
        context.set(search.context_names[later], static_cast<std::int64_t>(later) + 1);
      if (first == 1) context.set(search.context_names[0], 0);
      host.log.clear();
      attributes(context);
      EXPECT_EQ(search.find(host.context), static_cast<std::int64_t>(first) + 1);
      // The search ends there.
      EXPECT_EQ(reads(),
                std::vector(search.context_names.begin(),
                            search.context_names.begin() + static_cast<std::ptrdiff_t>(first) + 1));
    }
  }
}

// The repeated names are two reads of the host's attribute.
TEST_F(MarketEra, ARepeatedNameIsReadAgain) {
  int reads_of_own = 0;
  host.context.on_attribute = [&](std::string_view name) -> std::optional<Value> {
    if (name != "_era_number") return std::nullopt;
    return ++reads_of_own == 2 ? 9 : 0;
  };
  EXPECT_EQ(context_era_number(host.context), 9);
  EXPECT_THAT(reads(), ElementsAre("_era_number", "era_number", "_era_number"));
}

TEST_F(MarketEra, AConfigurationIsReadByKeyOrByAttribute) {
  struct Case {
    Mapping config;
    Value market;
    Value era;
  };
  const Case cases[] = {
      {{{"market_id", 3}, {"market", 4}}, 3, {}},
      {{{"market_id", "none"}, {"market", 4}}, 4, {}},
      {{{"market", 4}}, 4, {}},
      {{{"era_number", 11}, {"id", 12}}, {}, 11},
      {{{"id", 12}}, {}, 12},
      {{{"era_number", Value()}, {"id", "12"}}, {}, 12},
      {{{"era_number", true}, {"id", 7.0}}, {}, 7},
      // The id is the era's alone, and these are names of the context, not of its configuration.
      {{{"id", 12}, {"market", 4}}, 4, 12},
      {{{"_market_id", 1}, {"_era_number", 2}, {"era", 3}}, {}, {}},
      {Mapping(), {}, {}},
  };
  for (const Case& test_case : cases) {
    SCOPED_TRACE(repr(test_case.config));
    for (const Value& config : {Value(test_case.config), as_host_containers(test_case.config),
                                scripted_object(test_case.config)}) {
      attributes({{"_era_config", config}});
      EXPECT_EQ(context_market_id(host.context), test_case.market) << type_name(config);
      EXPECT_EQ(context_era_number(host.context), test_case.era) << type_name(config);
    }
  }
}

TEST_F(MarketEra, ReadsOfTheConfigurationStopAtTheFirstNumber) {
  attributes({{"_era_config", scripted_object({{"market", 4}, {"id", 5}}, &host.log, "config")}});
  EXPECT_EQ(context_market_id(host.context), 4);
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.attribute('_market_id')", "context.attribute('market_id')",
                          "context.attribute('_era_config')", "config.market_id", "config.market"));
  host.log.clear();
  EXPECT_EQ(context_era_number(host.context), 5);
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.attribute('_era_number')", "context.attribute('era_number')",
                          "context.attribute('_era_number')", "context.attribute('era_number')",
                          "context.attribute('_era_config')", "config.era_number",
                          "config.era_number", "config.id"));
}

TEST_F(MarketEra, WhatIsNoConfigurationGivesNothing) {
  for (const Value& config : {Value(), Value(5), Value("market"), Value(List{1}), Value(true)}) {
    attributes({{"_era_config", config}});
    EXPECT_TRUE(context_market_id(host.context).is_absent()) << repr(config);
    EXPECT_TRUE(context_era_number(host.context).is_absent()) << repr(config);
  }
}

TEST_F(MarketEra, AFailingReadPasses) {
  host.context.on_attribute = failing(ValueError("broken property"));
  for (const Search& search : searches()) {
    EXPECT_EQ(error_of([&] { return search.find(host.context); }), "ValueError: broken property");
  }
  Mapping payload;
  EXPECT_THROW(ensure_payload_market_era(payload, host.context), ValueError);
  EXPECT_TRUE(payload.empty());
}

using EnsurePayloadMarketEra = MarketEra;

struct PayloadCase {
  Mapping payload;
  Mapping context;
  std::string expected;
};

TEST_F(EnsurePayloadMarketEra, PayloadBeatsContextAndContextBeatsTheManifest) {
  const PayloadCase cases[] = {
      {{{"market_id", 1}, {"era_number", 2}, {"client_manifest_market_id", 8}},
       {{"_market_id", 3}, {"_era_number", 4}},
       "{'market_id': 1, 'era_number': 2, 'client_manifest_market_id': 8}"},
      {{{"client_manifest_market_id", 8}, {"client_manifest_era_number", 9}},
       {{"market_id", 3}, {"era_number", 4}},
       "{'client_manifest_market_id': 8, 'client_manifest_era_number': 9, 'market_id': 3, "
       "'era_number': 4}"},
      {{{"client_manifest_market_id", "8"}, {"client_manifest_era_number", 9.0}},
       Mapping(),
       "{'client_manifest_market_id': '8', 'client_manifest_era_number': 9.0, 'market_id': 8, "
       "'era_number': 9}"},
      // Each of the two on its own.
      {{{"market_id", 1}}, {{"era_number", 4}}, "{'market_id': 1, 'era_number': 4}"},
      {{{"client_manifest_era_number", 9}},
       {{"market_id", 3}},
       "{'client_manifest_era_number': 9, 'market_id': 3, 'era_number': 9}"},
      {Mapping(), {{"_era_config", Mapping{{"id", 12}}}}, "{'era_number': 12}"},
      // An entry that is replaced keeps its place, also by the integer of its own text.
      {{{"market_id", "7"}, {"x", 0}, {"era_number", 3.0}},
       Mapping(),
       "{'market_id': 7, 'x': 0, 'era_number': 3}"},
      {{{"market_id", "unknown"}}, {{"market_id", 4}}, "{'market_id': 4}"},
      {{{"market_id", true}}, {{"market_id", 4}}, "{'market_id': 4}"},
      {{{"market_id", 0}, {"client_manifest_market_id", 6}},
       Mapping(),
       "{'market_id': 6, 'client_manifest_market_id': 6}"},
      // What cannot be resolved stays, or stays missing.
      {{{"market_id", "unknown"}, {"era_number", Value()}},
       Mapping(),
       "{'market_id': 'unknown', 'era_number': None}"},
      {{{"market_id", -1}, {"client_manifest_market_id", 0}},
       {{"market_id", 0}},
       "{'market_id': -1, 'client_manifest_market_id': 0}"},
      {Mapping(), Mapping(), "{}"},
  };
  for (const PayloadCase& test_case : cases) {
    SCOPED_TRACE(repr(test_case.payload) + " with " + repr(test_case.context));
    attributes(test_case.context);
    Mapping foreign = as_host_containers(test_case.payload).mapping();
    ensure_payload_market_era(foreign, host.context);
    EXPECT_EQ(repr(foreign), test_case.expected);
    Mapping payload = test_case.payload;
    ensure_payload_market_era(payload, host.context);
    EXPECT_EQ(repr(payload), test_case.expected);
  }
}

TEST_F(EnsurePayloadMarketEra, AsksTheContextOnlyForWhatThePayloadLacks) {
  Mapping complete{{"market_id", 1}, {"era_number", "2"}};
  ensure_payload_market_era(complete, host.context);
  EXPECT_THAT(host.log.lines(), ElementsAre());

  Mapping without_era{{"market_id", 1}};
  ensure_payload_market_era(without_era, host.context);
  EXPECT_THAT(reads(), ElementsAre("_era_number", "era_number", "_era_number", "era_number",
                                   "_era_config", "era_config"));

  // The market is looked for before the era.
  host.log.clear();
  Mapping empty;
  ensure_payload_market_era(empty, host.context);
  EXPECT_THAT(reads(),
              ElementsAre("_market_id", "market_id", "_era_config", "era_config", "_era_number",
                          "era_number", "_era_number", "era_number", "_era_config", "era_config"));
}

// Nothing is written before everything is known.
TEST_F(EnsurePayloadMarketEra, AFailureLeavesThePayloadAsItWas) {
  host.context.on_attribute = [](std::string_view name) -> std::optional<Value> {
    if (name == "_era_number") throw RuntimeError("gone");
    return name == "_market_id" ? std::optional<Value>(5) : std::nullopt;
  };
  Mapping payload{{"market_id", "unknown"}};
  EXPECT_THROW(ensure_payload_market_era(payload, host.context), RuntimeError);
  EXPECT_EQ(repr(payload), "{'market_id': 'unknown'}");
}

}  // namespace
}  // namespace varnholt::genetic::test
