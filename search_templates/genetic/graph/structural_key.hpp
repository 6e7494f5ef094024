// The structural identity of a graph.
//
// A key stands for a graph's frozen form, and two keys are equal exactly when the frozen forms are:
// the order of a mapping's keys counts, 1, 1.0 and true are one scalar, a NaN equals only the very
// same NaN. It is not a digest but a compact canonical encoding of the form, with its hash beside
// it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class StructuralKey {
 public:
  friend bool operator==(const StructuralKey& left, const StructuralKey& right);

  [[nodiscard]] std::uint64_t hash() const noexcept { return hash_; }
  // The memory that the key holds besides its own object.
  [[nodiscard]] std::size_t encoded_size() const noexcept { return encoding_.size(); }
  // Two keys without objects are equal exactly when their encodings are.
  [[nodiscard]] std::string_view encoding() const noexcept { return encoding_; }
  [[nodiscard]] bool has_objects() const noexcept { return objects_ != nullptr; }

 private:
  friend class StructuralKeyEncoder;

  std::string encoding_;
  std::uint64_t hash_ = 0;
  // Scalars without an encoding of their own, in the order in which the encoding refers to them.
  // Nearly every key has none.
  std::shared_ptr<std::vector<Value>> objects_;
};

struct StructuralKeyHash {
  std::size_t operator()(const StructuralKey& key) const noexcept { return key.hash(); }
};

using StructuralKeySet = std::unordered_set<StructuralKey, StructuralKeyHash>;

// The key of a graph's plain data. Fails as plain_graph_data does.
[[nodiscard]] StructuralKey structural_key(const Value& graph);

}  // namespace varnholt::genetic
