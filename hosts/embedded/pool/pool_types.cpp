#include "hosts/embedded/pool/pool_types.hpp"

namespace varnholt::embedded {

std::string_view to_text(PoolStatus status) noexcept {
  switch (status) {
    case PoolStatus::Completed:
      return "completed";
    case PoolStatus::WorkRaised:
      return "work_raised";
    case PoolStatus::WorkerFailed:
      return "worker_failed";
    case PoolStatus::WorkerTimedOut:
      return "worker_timed_out";
    case PoolStatus::PriorityFailed:
      return "priority_failed";
    case PoolStatus::Cancelled:
      return "cancelled";
  }
  return "unknown";
}

}  // namespace varnholt::embedded
