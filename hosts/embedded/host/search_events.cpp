#include "hosts/embedded/host/search_events.hpp"

namespace varnholt::embedded {

RepairCount SearchProgress::all_repairs() const {
  RepairCount all;
  for (const auto& [plan, count] : repairs) {
    all.tried += count.tried;
    all.rescued += count.rescued;
    all.submitted += count.submitted;
  }
  return all;
}

std::string_view to_text(StopCause cause) noexcept {
  switch (cause) {
    case StopCause::Generations:
      return "generations";
    case StopCause::Candidates:
      return "candidates";
    case StopCause::Seconds:
      return "seconds";
    case StopCause::Signal:
      return "signal";
    case StopCause::None:
      break;
  }
  return "none";
}

}  // namespace varnholt::embedded
