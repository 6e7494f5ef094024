// A host's scoring that remembers whom it was asked for, in order.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

class RecordingEliteness : public Eliteness {
 public:
  // One request: for whom, and the two weights.
  struct Call {
    Value candidate;
    double diversity_weight = 0.0;
    double parsimony_weight = 0.0;

    // The same candidate, not one that equals it.
    friend bool operator==(const Call& left, const Call& right) {
      return same_object(left.candidate, right.candidate) &&
             left.diversity_weight == right.diversity_weight &&
             left.parsimony_weight == right.parsimony_weight;
    }
  };
  using Score = std::function<Value(const Value& candidate, double diversity_weight)>;

  explicit RecordingEliteness(Score score) : score_(std::move(score)) {}
  // Scores as the record's entry "score" says, whatever the weights.
  RecordingEliteness()
      : RecordingEliteness([](const Value& candidate, double /*diversity_weight*/) {
          return candidate.mapping().at("score");
        }) {}

  [[nodiscard]] Value score_candidate(const Value& candidate, const Mapping& keywords) override {
    const double diversity_weight = keywords.at("diversity_weight").real();
    calls.push_back({candidate, diversity_weight, keywords.at("parsimony_weight").real()});
    return score_(candidate, diversity_weight);
  }

  std::vector<Call> calls;

  // The calls as "id@diversity weight", by the records' entry "id".
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    for (const Call& call : calls) {
      lines.push_back(str(call.candidate.mapping().get("id")) + "@" +
                      str(Value(call.diversity_weight)));
    }
    return lines;
  }

 private:
  Score score_;
};

}  // namespace varnholt::genetic::test
