// The structures that earlier runs have evaluated on the same days, by the same rules: a search
// that goes on with what the store holds leaves them out.
//
// The library drops what its own run has seen, and knows nothing of other runs; the order of its
// calls and draws is fixed. What is left to the host is what it offers and accepts: its source of
// random graphs passes known ones over, and its validator refuses them, which operators and repairs
// ask until they have another. Seeds are asked of nobody, so that the best of the earlier signals
// can be evaluated once more to be bred from.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class KnownStructures {
 public:
  KnownStructures() = default;
  // By their graph keys, as evaluations are stored under them.
  explicit KnownStructures(const std::vector<std::string>& graph_keys)
      : keys_(graph_keys.begin(), graph_keys.end()) {}

  // Whether the graph is one of them; if so it counts as left out.
  [[nodiscard]] bool leaves_out(const genetic::Value& graph);

  [[nodiscard]] std::int64_t count() const { return std::ssize(keys_); }
  // How many of them came up again; one that does so often counts once.
  [[nodiscard]] std::int64_t left_out() const { return std::ssize(left_out_); }

 private:
  std::unordered_set<std::string> keys_;
  std::unordered_set<std::string> left_out_;
};

}  // namespace varnholt::embedded
