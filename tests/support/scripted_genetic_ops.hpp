// The hand-made genetic operators. See scripted_host.hpp for how they are scripted.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "search_templates/genetic/host/genetic_ops.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

class ScriptedGeneticOps : public GeneticOps {
 public:
  explicit ScriptedGeneticOps(CallLog& log) : log_(log) {}

  // What an operator is asked with. Hoisting has no other graphs.
  struct Request {
    Value elite;
    Value others;  // The mate of a crossover, the replacements of a mutation.
    std::shared_ptr<RandomGenerator> rng;
    Callable validator;
  };
  using Operator = std::function<Value(const Request&)>;

  Operator on_crossover = always(Value(Mapping{{"node", "crossed"}}));
  Operator on_point_mutation = always(Value(Mapping{{"node", "pointed"}}));
  Operator on_subtree_mutation = always(Value(Mapping{{"node", "regrown"}}));
  Operator on_hoist_mutation = always(Value(Mapping{{"node", "hoisted"}}));

  [[nodiscard]] Value crossover(const Value& elite, const Value& mate,
                                const std::shared_ptr<RandomGenerator>& rng,
                                const Callable& validator) override {
    return ask("genetic_ops.crossover", on_crossover, {elite, mate, rng, validator});
  }
  [[nodiscard]] Value point_mutation(const Value& elite, const Value& replacements,
                                     const std::shared_ptr<RandomGenerator>& rng,
                                     const Callable& validator) override {
    return ask("genetic_ops.point_mutation", on_point_mutation,
               {elite, replacements, rng, validator});
  }
  [[nodiscard]] Value subtree_mutation(const Value& elite, const Value& replacements,
                                       const std::shared_ptr<RandomGenerator>& rng,
                                       const Callable& validator) override {
    return ask("genetic_ops.subtree_mutation", on_subtree_mutation,
               {elite, replacements, rng, validator});
  }
  [[nodiscard]] Value hoist_mutation(const Value& elite,
                                     const std::shared_ptr<RandomGenerator>& rng,
                                     const Callable& validator) override {
    log_.add("genetic_ops.hoist_mutation", {elite}, keywords(rng, validator));
    return on_hoist_mutation({elite, Value(), rng, validator});
  }

 private:
  Value ask(std::string_view name, const Operator& answer, const Request& request) {
    log_.add(name, {request.elite, request.others}, keywords(request.rng, request.validator));
    return answer(request);
  }
  // The two stand in the log as names, or as None where they are missing.
  static Mapping keywords(const std::shared_ptr<RandomGenerator>& rng, const Callable& validator) {
    return {{"rng", rng == nullptr ? Value() : Value("rng")},
            {"validator", validator ? Value("validator") : Value()}};
  }

  CallLog& log_;
};

}  // namespace varnholt::genetic::test
