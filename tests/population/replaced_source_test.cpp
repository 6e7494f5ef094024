// Whether a source of fresh graphs that a host has put in the module's place is given the random
// generator. Method: a scripted source with signatures of every kind.
#include <optional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using ::testing::ElementsAre;
using Signature = std::optional<std::vector<Parameter>>;

const Parameter kContext{"ctx", ParameterKind::kPositionalOrKeyword};
const Parameter kSize{"batch_size", ParameterKind::kPositionalOrKeyword};

class ReplacedSource : public ::testing::Test {
 protected:
  [[nodiscard]] std::string asked(const Signature& signature) {
    source_.on_replacement_signature = test::always(signature);
    host_.log.clear();
    static_cast<void>(fresh_random_candidates_for_rng(source_, host_.context, 3, rng_));
    return host_.log.lines().at(0);
  }

  test::ScriptedHost host_;
  test::ScriptedFresh source_{host_.log};
  std::shared_ptr<RandomGenerator> rng_ =
      std::make_shared<test::ScriptedGenerator>(host_.log, MersenneTwister(1));
};

TEST_F(ReplacedSource, IsGivenTheGeneratorWhenItTakesIt) {
  for (const ParameterKind kind :
       {ParameterKind::kPositionalOnly, ParameterKind::kPositionalOrKeyword,
        ParameterKind::kVariablePositional, ParameterKind::kKeywordOnly,
        ParameterKind::kVariableKeyword}) {
    EXPECT_EQ(asked(Signature({kContext, kSize, {"rng", kind}})), "fresh.draw(3, 'rng')");
  }
  EXPECT_EQ(asked(Signature({kContext, kSize, {"kwargs", ParameterKind::kVariableKeyword}})),
            "fresh.draw(3, 'rng')");
  EXPECT_EQ(source_.last_rng, rng_);
}

TEST_F(ReplacedSource, IsAskedWithoutItOtherwise) {
  EXPECT_EQ(asked(Signature({kContext, kSize})), "fresh.draw_without_rng(3)");
  EXPECT_EQ(asked(Signature(std::vector<Parameter>{})), "fresh.draw_without_rng(3)");
  EXPECT_EQ(asked(Signature({{"args", ParameterKind::kVariablePositional}})),
            "fresh.draw_without_rng(3)");
  EXPECT_EQ(asked(Signature({{"random", ParameterKind::kKeywordOnly}})),
            "fresh.draw_without_rng(3)");
}

TEST_F(ReplacedSource, IsGivenItWhenItsSignatureCannotBeTold) {
  EXPECT_EQ(asked(std::nullopt), "fresh.draw(3, 'rng')");
}

TEST_F(ReplacedSource, MayReturnWhatItLikes) {
  const Value given = Tuple{1, 2, 3, 4};
  source_.on_draw = test::always(given);
  EXPECT_TRUE(same_object(fresh_random_candidates_for_rng(source_, host_.context, 3, rng_), given));
  source_.on_draw = test::failing(KeyError("k"));
  EXPECT_EQ(test::error_of(
                [&] { return fresh_random_candidates_for_rng(source_, host_.context, 3, rng_); }),
            "KeyError: k");
}

}  // namespace
}  // namespace varnholt::genetic
