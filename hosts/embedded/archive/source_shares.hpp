// How much of what is fresh each source gives, by what came of it of late.
#pragma once

namespace varnholt::embedded {

// How the search came to a signal: drawn at random, bred from the archive, a known formula or bred
// from one, or in a way that the host does not choose.
enum class CandidateSource { Random, Archive, Known, Other };

// A source does well when its signals get into the archive. Each is counted by how many of its own
// did, in an estimate that forgets: a signal's weight is less by 1 % with each that follows.
class SourceShares {
 public:
  static constexpr double kLeastKnown = 0.05;
  static constexpr double kGreatestKnown = 0.25;
  static constexpr double kLeastBred = 0.3;
  static constexpr double kGreatestBred = 0.8;

  void count(CandidateSource source, bool has_entered);

  // Of all that is fresh the part that is a known formula or made of one: its rate over the sum of
  // the three, within its limits.
  [[nodiscard]] double known() const;
  // Of the others the part that is bred from the archive: likewise, of two.
  [[nodiscard]] double bred() const;

 private:
  struct Success {
    double tried = 0.0;
    double entered = 0.0;

    void count(bool has_entered);
    // One more of each than there were, so that a way that was never tried has a chance.
    [[nodiscard]] double rate() const { return (entered + 1.0) / (tried + 2.0); }
  };

  Success at_random_;
  Success from_archive_;
  Success of_known_;
};

}  // namespace varnholt::embedded
