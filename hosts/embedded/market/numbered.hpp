// Things that appear again and again in the rows of a file, known by numbers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include <Eigen/Core>

namespace varnholt::embedded {

// The keys of a file in the order in which they appear; each is known by its number.
template <typename Key, typename Hash = std::hash<Key>>
class Numbered {
 public:
  // The number of what `text` is, which `read` turns into a key where it is new; nothing where it
  // has none. Files are sorted by day or by symbol, so that most rows have one of the two in common
  // with the row before.
  template <typename Read>
  std::optional<std::uint32_t> number(std::string_view text, const Read& read) {
    if (has_last_ && text == last_text_) return last_;
    // A file that is sorted by day has the same symbols in the same order on each.
    if constexpr (std::is_same_v<Key, std::string>) {
      const std::uint32_t next = has_last_ && last_ + 1 < keys_.size() ? last_ + 1 : 0;
      if (next < keys_.size() && text == keys_[next]) {
        last_text_ = text;
        return last_ = next;
      }
    }
    const std::optional<Key> key = read();
    if (!key) return std::nullopt;
    const auto [entry, is_new] = numbers_.emplace(*key, static_cast<std::uint32_t>(keys_.size()));
    if (is_new) keys_.push_back(*key);
    last_text_ = text;
    last_ = entry->second;
    has_last_ = true;
    return last_;
  }

  [[nodiscard]] std::size_t size() const { return keys_.size(); }
  [[nodiscard]] const Key& operator[](std::size_t number) const { return keys_[number]; }
  // In the order of their numbers.
  [[nodiscard]] const std::vector<Key>& keys() const { return keys_; }

  // The keys in ascending order, and the place of each number in it.
  [[nodiscard]] std::vector<Key> sorted() const {
    std::vector<Key> keys = keys_;
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  [[nodiscard]] std::vector<Eigen::Index> places(const std::vector<Key>& sorted) const {
    std::vector<Eigen::Index> places;
    places.reserve(keys_.size());
    for (const Key& key : keys_) {
      places.push_back(std::lower_bound(sorted.begin(), sorted.end(), key) - sorted.begin());
    }
    return places;
  }

 private:
  std::unordered_map<Key, std::uint32_t, Hash> numbers_;
  std::vector<Key> keys_;
  std::string last_text_;
  std::uint32_t last_ = 0;
  bool has_last_ = false;
};

}  // namespace varnholt::embedded
