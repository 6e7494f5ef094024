#include "hosts/embedded/archive/source_shares.hpp"

#include <algorithm>

namespace varnholt::embedded {

void SourceShares::Success::count(bool has_entered) {
  constexpr double kKept = 0.99;
  tried = kKept * tried + 1.0;
  entered = kKept * entered + (has_entered ? 1.0 : 0.0);
}

void SourceShares::count(CandidateSource source, bool has_entered) {
  switch (source) {
    case CandidateSource::Random:
      return at_random_.count(has_entered);
    case CandidateSource::Archive:
      return from_archive_.count(has_entered);
    case CandidateSource::Known:
      return of_known_.count(has_entered);
    case CandidateSource::Other:
      return;
  }
}

double SourceShares::known() const {
  const double known = of_known_.rate();
  const double share = known / (known + from_archive_.rate() + at_random_.rate());
  return std::clamp(share, kLeastKnown, kGreatestKnown);
}

double SourceShares::bred() const {
  const double bred = from_archive_.rate();
  return std::clamp(bred / (bred + at_random_.rate()), kLeastBred, kGreatestBred);
}

}  // namespace varnholt::embedded
