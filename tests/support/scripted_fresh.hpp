// A source of fresh random graphs that answers as a test tells it to.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

class ScriptedFresh : public FreshCandidates {
 public:
  explicit ScriptedFresh(CallLog& log) : log_(log) {}

  // What a request for so many graphs gets. By default nothing.
  std::function<Value(std::int64_t)> on_draw = always(Value(List{}));
  // The parameters of a replacement; nothing for the module's own source.
  std::function<std::optional<std::vector<Parameter>>()> on_replacement_signature =
      always(std::optional<std::vector<Parameter>>());

  [[nodiscard]] Value draw(SearchContext& /*context*/, std::int64_t count,
                           const std::shared_ptr<RandomGenerator>& rng) override {
    log_.add("fresh.draw", {count, rng == nullptr ? Value() : Value("rng")});
    last_rng = rng;
    return on_draw(count);
  }
  [[nodiscard]] std::optional<std::vector<Parameter>> replacement_signature() override {
    return on_replacement_signature();
  }
  [[nodiscard]] Value draw_without_rng(SearchContext& /*context*/, std::int64_t count) override {
    log_.add("fresh.draw_without_rng", {count});
    last_rng = nullptr;
    return on_draw(count);
  }
  // The generator that the last request came with.
  std::shared_ptr<RandomGenerator> last_rng;

 private:
  CallLog& log_;
};

}  // namespace varnholt::genetic::test
