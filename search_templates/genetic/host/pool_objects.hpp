// The worker pool's work items and results for a host that is written in C++. A host of another
// language has objects of its own with the same attributes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// One candidate on its way to the worker pool. Its metadata is written by the parent before each
// attempt and read by the child.
class CandidateEvaluation : public HostObject {
 public:
  CandidateEvaluation(Value candidate_index, Value graph)
      : candidate_index_(std::move(candidate_index)), graph_(std::move(graph)) {}

  [[nodiscard]] const Value& candidate_index() const noexcept { return candidate_index_; }
  [[nodiscard]] const Value& graph() const noexcept { return graph_; }
  [[nodiscard]] Mapping metadata() const noexcept { return metadata_; }

  [[nodiscard]] std::string type_name() const override { return "CandidateEvaluation"; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    if (name == keys::kCandidateIndex.view()) return candidate_index_;
    if (name == keys::kGraph.view()) return graph_;
    if (name == keys::kMetadata.view()) return metadata_;
    return std::nullopt;
  }

 private:
  Value candidate_index_;
  Value graph_;
  Mapping metadata_;
};

// What came back for one candidate. The payload is the candidate result record that the child made.
class ProcessResult : public HostObject {
 public:
  ProcessResult(Value candidate_index, Value payload, Value worker_pid,
                Value elapsed_simulation_seconds, Value attempt)
      : candidate_index_(std::move(candidate_index)),
        payload_(std::move(payload)),
        worker_pid_(std::move(worker_pid)),
        elapsed_simulation_seconds_(std::move(elapsed_simulation_seconds)),
        attempt_(std::move(attempt)) {}

  [[nodiscard]] const Value& candidate_index() const noexcept { return candidate_index_; }
  [[nodiscard]] const Value& payload() const noexcept { return payload_; }
  [[nodiscard]] const Value& worker_pid() const noexcept { return worker_pid_; }
  [[nodiscard]] const Value& elapsed_simulation_seconds() const noexcept {
    return elapsed_simulation_seconds_;
  }
  [[nodiscard]] const Value& attempt() const noexcept { return attempt_; }

  [[nodiscard]] std::string type_name() const override { return "ProcessResult"; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    if (name == keys::kCandidateIndex.view()) return candidate_index_;
    if (name == keys::kPayload.view()) return payload_;
    if (name == keys::kWorkerPid.view()) return worker_pid_;
    if (name == keys::kElapsedSimulationSeconds.view()) return elapsed_simulation_seconds_;
    if (name == keys::kAttempt.view()) return attempt_;
    return std::nullopt;
  }

 private:
  Value candidate_index_;
  Value payload_;
  Value worker_pid_;
  Value elapsed_simulation_seconds_;
  Value attempt_;
};

}  // namespace varnholt::genetic
