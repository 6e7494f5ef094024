// The attempts of a host that keeps no record of them: they have identities and nothing else.
#pragma once

#include <cstdint>

#include "search_templates/genetic/host/attempt_tracker.hpp"

namespace varnholt::genetic {

class NoAttempts : public AttemptTracker {
 public:
  // Identities count from 1. The tracker must outlive what it gives.
  [[nodiscard]] Create create_simulation_attempt() override {
    return [this](const NewAttempt& /*attempt*/) -> Value { return ++created_; };
  }
  [[nodiscard]] Finalize finalize_simulation_attempt() override {
    return [](const Value& /*attempt_id*/, const AttemptEnd& /*end*/) {};
  }
  void mark_simulation_attempt_dispatched(const Value& /*attempt_id*/) override {}
  void mark_simulation_attempt_backtest_started(const Value& /*attempt_id*/) override {}

 private:
  std::int64_t created_ = 0;
};

}  // namespace varnholt::genetic
