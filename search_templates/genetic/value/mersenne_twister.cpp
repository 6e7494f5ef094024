#include "search_templates/genetic/value/mersenne_twister.hpp"

#include <algorithm>
#include <span>
#include <string>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::size_t kWords = MersenneTwisterState::kWordCount;
constexpr std::size_t kMiddleWord = 397;
constexpr std::uint32_t kUpperBit = 0x80000000u;
constexpr std::uint32_t kLowerBits = 0x7FFFFFFFu;
constexpr std::uint32_t kTwistMatrix = 0x9908B0DFu;
constexpr std::uint32_t kArraySeed = 19650218u;

using Words = std::array<std::uint32_t, kWords>;

std::uint32_t mixed(std::uint32_t word) noexcept {
  return word ^ (word >> 30);
}

void fill_from_number(Words& words, std::uint32_t number) noexcept {
  words[0] = number;
  for (std::uint32_t i = 1; i < kWords; ++i) {
    words[i] = 1812433253u * mixed(words[i - 1]) + i;
  }
}

void fill_from_array(Words& words, std::span<const std::uint32_t> key) noexcept {
  fill_from_number(words, kArraySeed);
  std::size_t i = 1;
  std::uint32_t j = 0;
  // Both passes leave out the first word, which repeats the last one when the end is reached.
  const auto step = [&words, &i]() noexcept {
    if (++i == kWords) {
      words[0] = words[kWords - 1];
      i = 1;
    }
  };
  for (std::size_t k = std::max(kWords, key.size()); k > 0; --k) {
    words[i] = (words[i] ^ (mixed(words[i - 1]) * 1664525u)) + key[j] + j;
    step();
    if (++j == key.size()) j = 0;
  }
  for (std::size_t k = kWords - 1; k > 0; --k) {
    words[i] = (words[i] ^ (mixed(words[i - 1]) * 1566083941u)) - static_cast<std::uint32_t>(i);
    step();
  }
  words[0] = kUpperBit;
}

std::uint32_t twisted(std::uint32_t upper, std::uint32_t lower) noexcept {
  const std::uint32_t joined = (upper & kUpperBit) | (lower & kLowerBits);
  return (joined >> 1) ^ ((joined & 1u) != 0 ? kTwistMatrix : 0u);
}

}  // namespace

void MersenneTwister::seed(std::uint64_t seed_value) noexcept {
  const std::array<std::uint32_t, 2> key{static_cast<std::uint32_t>(seed_value),
                                         static_cast<std::uint32_t>(seed_value >> 32)};
  // The key has no leading zero word, but always one word.
  fill_from_array(state_.words, std::span(key).first(key[1] != 0 ? 2 : 1));
  state_.position = kWords;
  state_.gauss_next.reset();
}

void MersenneTwister::renew_words() noexcept {
  Words& words = state_.words;
  for (std::size_t i = 0; i < kWords - kMiddleWord; ++i) {
    words[i] = words[i + kMiddleWord] ^ twisted(words[i], words[i + 1]);
  }
  for (std::size_t i = kWords - kMiddleWord; i < kWords - 1; ++i) {
    words[i] = words[i + kMiddleWord - kWords] ^ twisted(words[i], words[i + 1]);
  }
  words[kWords - 1] = words[kMiddleWord - 1] ^ twisted(words[kWords - 1], words[0]);
  state_.position = 0;
}

std::uint32_t MersenneTwister::next_word() noexcept {
  if (state_.position >= kWords) renew_words();
  std::uint32_t word = state_.words[state_.position++];
  word ^= word >> 11;
  word ^= (word << 7) & 0x9D2C5680u;
  word ^= (word << 15) & 0xEFC60000u;
  return word ^ (word >> 18);
}

double MersenneTwister::random() noexcept {
  const std::uint32_t upper = next_word() >> 5;
  const std::uint32_t lower = next_word() >> 6;
  return (upper * 67108864.0 + lower) / 9007199254740992.0;  // (upper * 2**26 + lower) / 2**53
}

std::uint64_t MersenneTwister::getrandbits(int bits) {
  if (bits < 0) throw ValueError("number of bits must be non-negative");
  if (bits > 64) {
    throw ValueError("getrandbits gives at most 64 bits, not " + std::to_string(bits) +
                     ": draw the rest in a second call");
  }
  if (bits == 0) return 0;
  if (bits <= 32) return next_word() >> (32 - bits);
  const std::uint64_t low = next_word();
  const std::uint64_t high = next_word() >> (64 - bits);
  return (high << 32) | low;
}

void MersenneTwister::set_state(const MersenneTwisterState& state) {
  if (state.position > kWords) throw ValueError("invalid state");
  state_ = state;
}

}  // namespace varnholt::genetic
