// Panels of sub-expressions that several candidates share: computed once, in the parent, before its
// children are forked, which inherit them.
//
// Signals that are bred have large parts in common: with their parents, and with each other. A part
// is computed here when several candidates of one chunk have it, or when it has been met often
// enough in those before. The panels that were used least recently give way to others, so that all
// of them together stay below a limit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/expression.hpp"

namespace varnholt::embedded {

// What each step says, as a text: equal for equal parts of any two expressions.
[[nodiscard]] std::vector<std::string> step_texts(const Expression& expression);

class SharedPanels {
 public:
  // A part that has been met so often, in different candidates, is kept.
  static constexpr std::int64_t kOftenEnough = 3;
  // Smaller panels are computed faster than it takes to look for them.
  static constexpr std::size_t kSmallestPanelBytes = std::size_t{256} * 1024;

  // Computes a part, with the help of what is kept already.
  using ComputePart = std::function<Panel(const Expression& part, const SharedPanels& kept)>;

  // Each panel has `panel_bytes`. With a limit of 0 nothing is kept.
  SharedPanels(ComputePart compute, std::size_t panel_bytes, std::size_t limit_bytes,
               std::size_t smallest_panel_bytes = kSmallestPanelBytes);
  SharedPanels(const SharedPanels&) = delete;
  SharedPanels& operator=(const SharedPanels&) = delete;
  ~SharedPanels() = default;

  // Computes what these expressions, of candidates that are evaluated next, share.
  void prepare(const std::vector<Expression>& expressions);

  // The panel of a part, or null. Changes nothing, so that children may ask.
  [[nodiscard]] const Panel* find(const std::string& step_text) const;
  [[nodiscard]] bool is_empty() const noexcept { return panels_.empty(); }
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  // How many panels were computed so far.
  [[nodiscard]] std::int64_t computed() const noexcept { return computed_; }

 private:
  struct Kept {
    Panel panel;
    std::list<std::string>::iterator use;
  };

  [[nodiscard]] bool is_wanted(const std::string& step_text, std::int64_t in_chunk) const;
  // Whether there is room now for one more panel.
  [[nodiscard]] bool make_room(std::size_t bytes, std::size_t in_use);
  void touch(Kept& kept);
  void forget_rare();

  ComputePart compute_;
  std::size_t panel_bytes_;
  std::size_t limit_bytes_;
  std::size_t smallest_panel_bytes_;
  std::unordered_map<std::string, Kept> panels_;
  std::list<std::string> uses_;  // The least recent first.
  std::unordered_map<std::string, std::int64_t> met_;
  std::size_t bytes_ = 0;
  std::int64_t computed_ = 0;
};

}  // namespace varnholt::embedded
