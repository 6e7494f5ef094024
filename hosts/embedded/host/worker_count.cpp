#include "hosts/embedded/host/worker_count.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

constexpr std::uint64_t kBytesInMebibyte = 1024 * 1024;

}  // namespace

ResolvedWorkers::ResolvedWorkers(const WorkerDemand& demand, const MachineLimits& limits)
    : requested_(demand.requested),
      resolved_(demand.requested),
      candidates_per_worker_(demand.candidates_per_worker) {
  if (limits.busy_workers() < limits.processors) {
    cap(limits.busy_workers(),
        fmt::format("its control group gives this process {} processors", *limits.processor_quota));
  } else {
    cap(limits.processors, fmt::format("this process may run on {} processors", limits.processors));
  }
  if (demand.worker_memory_limit_bytes && limits.memory_available_bytes) {
    const std::uint64_t limit = *demand.worker_memory_limit_bytes;
    const std::uint64_t own = limit > demand.inherited_bytes ? limit - demand.inherited_bytes : 1;
    cap(static_cast<std::int64_t>(*limits.memory_available_bytes / own),
        fmt::format("{} MiB of memory are available, and each may take {} MiB of its own",
                    *limits.memory_available_bytes / kBytesInMebibyte, own / kBytesInMebibyte));
  }
  resolved_ = std::max<std::int64_t>(1, std::min(resolved_, demand.candidates));
}

void ResolvedWorkers::cap(std::int64_t count, const std::string& why) {
  count = std::max<std::int64_t>(1, count);
  if (count >= resolved_) return;
  resolved_ = count;
  reduction_ = why;
}

}  // namespace varnholt::embedded
