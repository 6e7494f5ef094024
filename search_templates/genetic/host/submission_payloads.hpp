// What the host adds to the payload of a submission. Asked in the parent, for a candidate that
// passed, when its payload is made. A host that overrides nothing submits the search's own figures.
#pragma once

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

using StatsPayloadOperation = Operation<Value(const Value& stats, const Value& era_config)>;

class SubmissionPayloads {
 public:
  virtual ~SubmissionPayloads() = default;

  // Makes the statistics of a submission: a pair of a mapping, or anything else for none, and a
  // reason. An ordinary failure counts as none; the search then reads figures from the statistics'
  // attributes.
  [[nodiscard]] virtual StatsPayloadOperation find_submitted_stats_payload_from_backtest() {
    return {};
  }
  // Writes the client's manifest into the payload. A failure propagates.
  virtual void annotate_submission_client_manifest(Mapping& /*payload*/,
                                                   const Value& /*sync_manager*/) {}
  // The same operation for a caller that reads the arguments once it has been found. A host that
  // finds its operations by name overrides this.
  [[nodiscard]] virtual Operation<void(Mapping& payload, const Value& sync_manager)>
  required_annotate_submission_client_manifest() {
    return [this](Mapping& payload, const Value& sync_manager) {
      annotate_submission_client_manifest(payload, sync_manager);
    };
  }
};

}  // namespace varnholt::genetic
