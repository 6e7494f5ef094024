// How much of a search a worker process has to itself.
#pragma once

#include <string_view>

namespace varnholt::embedded {

enum class Isolation {
  Candidate,  // Each candidate has a process of its own.
  Chunk,      // A process evaluates several candidates, one after the other.
};

// Candidates of a chunk: what a fork costs is spread thin enough then, and a chunk that is lost
// costs little.
inline constexpr int kChunkCandidates = 16;

[[nodiscard]] constexpr int candidates_per_worker(Isolation isolation) noexcept {
  return isolation == Isolation::Chunk ? kChunkCandidates : 1;
}

// As it is asked for and stored.
[[nodiscard]] constexpr std::string_view to_text(Isolation isolation) noexcept {
  return isolation == Isolation::Chunk ? "chunk" : "candidate";
}

}  // namespace varnholt::embedded
