// The random generator of CPython's `random.Random`: the same seed gives the same draws, bit for
// bit, and the state moves between the two in both directions.
//
// Sources: MT19937 by M. Matsumoto and T. Nishimura, "Mersenne Twister: a 623-dimensionally
// equidistributed uniform pseudorandom number generator", ACM TOMACS 8 (1998), 3-30, with its
// initialisation by an array; what is drawn from it follows CPython 3.11's documented and observed
// behaviour. `std::mt19937` draws the same words, but neither starts from CPython's seeding nor
// gives its words and their position in one form everywhere. Not for secrets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace varnholt::genetic {

// What `random.Random.getstate()` holds under version 3: the 624 words, the number of them already
// used (which stands as the 625th integer), and the second of a pair of Gaussian draws, where one
// waits. This generator draws no Gaussian numbers, but keeps the pending one for whoever does.
struct MersenneTwisterState {
  static constexpr std::size_t kWordCount = 624;

  std::array<std::uint32_t, kWordCount> words{};
  std::uint32_t position = kWordCount;
  std::optional<double> gauss_next;

  friend bool operator==(const MersenneTwisterState&, const MersenneTwisterState&) = default;
};

class MersenneTwister {
 public:
  // As `random.Random(seed)` with a non-negative integer.
  explicit MersenneTwister(std::uint64_t seed_value) { seed(seed_value); }

  // As `random.Random()` followed by `setstate`. Throws as set_state does.
  explicit MersenneTwister(const MersenneTwisterState& state) { set_state(state); }

  // Starts anew from a non-negative integer; a pending Gaussian draw is dropped.
  void seed(std::uint64_t seed_value) noexcept;

  // A multiple of 2**-53 in [0, 1), each equally likely. Uses two words.
  [[nodiscard]] double random() noexcept;

  // An integer of `bits` random bits, 0 to 64 of them; for 0 bits it returns 0 and draws nothing.
  // Uses one word up to 32 bits and two above. Throws ValueError for a negative number of bits, and
  // for more than 64, which CPython allows.
  [[nodiscard]] std::uint64_t getrandbits(int bits);

  [[nodiscard]] const MersenneTwisterState& state() const noexcept { return state_; }

  // Continues from a state. Throws ValueError "invalid state", and keeps its own, if the position
  // is beyond the words.
  void set_state(const MersenneTwisterState& state);

 private:
  [[nodiscard]] std::uint32_t next_word() noexcept;
  void renew_words() noexcept;

  MersenneTwisterState state_;
};

}  // namespace varnholt::genetic
