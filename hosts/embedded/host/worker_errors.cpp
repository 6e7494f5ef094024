#include "hosts/embedded/host/worker_errors.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include <fmt/format.h>

#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::Value;

namespace keys = genetic::keys;

namespace {

class MappedAttributes : public genetic::ErrorAttributes {
 public:
  explicit MappedAttributes(Mapping attributes) : attributes_(std::move(attributes)) {}

  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    return attributes_.find(name);
  }

 private:
  Mapping attributes_;
};

Mapping attributes_of(const WorkerFailure& failure) {
  return {{keys::kTerminalReason, failure.terminal_reason},
          {keys::kDetail, failure.detail},
          {keys::kCandidateIndex, failure.candidate_index}};
}

Mapping attributes_of(const std::vector<WorkerFailure>& failures) {
  Mapping attributes = attributes_of(failures.at(0));
  attributes.set(keys::kFailureCount, static_cast<std::int64_t>(failures.size()));
  std::vector<Value> errors;
  errors.reserve(failures.size());
  for (const WorkerFailure& failure : failures)
    errors.push_back(genetic::error_object(ProcessEvaluationError(failure)));
  attributes.set(keys::kTerminalErrors, genetic::Tuple(std::span<const Value>(errors)));
  return attributes;
}

std::string text_of(const std::vector<WorkerFailure>& failures) {
  if (failures.size() == 1) return failures[0].detail;
  return fmt::format("{} workers failed, the first one: {}", failures.size(),
                     failures.at(0).detail);
}

}  // namespace

ProcessEvaluationError::ProcessEvaluationError(const std::string& text, Mapping attributes)
    : RuntimeError(text), attributes_(std::make_shared<MappedAttributes>(std::move(attributes))) {}

ProcessEvaluationError::ProcessEvaluationError(const WorkerFailure& failure)
    : ProcessEvaluationError(failure.detail, attributes_of(failure)) {}

ProcessEvaluationError::ProcessEvaluationError(const std::vector<WorkerFailure>& failures)
    : ProcessEvaluationError(text_of(failures), attributes_of(failures)) {}

}  // namespace varnholt::embedded
