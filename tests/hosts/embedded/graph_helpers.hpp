// Graphs for the tests of the embedded host, and a stream of random numbers to grow them from.
#pragma once

#include <initializer_list>
#include <string_view>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/mersenne_twister.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

inline genetic::Value feature(std::string_view name) {
  return make_graph_node(name, "feature", genetic::List());
}

inline genetic::Value window(std::string_view days) {
  return make_graph_node(days, "window", genetic::List());
}

inline genetic::Value rotation(std::string_view name,
                               std::initializer_list<genetic::Value> children) {
  return make_graph_node(name, "rotation", genetic::List(children));
}

class TwisterGenerator : public genetic::RandomGenerator {
 public:
  explicit TwisterGenerator(std::uint64_t seed) : twister_(seed) {}

  [[nodiscard]] double random() override { return twister_.random(); }
  [[nodiscard]] std::uint64_t getrandbits(int count) override {
    return twister_.getrandbits(count);
  }
  [[nodiscard]] genetic::Value getstate() const override { return {}; }

 private:
  genetic::MersenneTwister twister_;
};

}  // namespace varnholt::embedded
