// The panels of all features of a set of market data, made once. They are all that a search keeps
// of the data.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"

namespace varnholt::embedded {

// Everything is computed by the constructor and only read afterwards, so that a process which
// forks after it shares the panels with all of its children. They lie in large pages.
class FeaturePanels {
 public:
  explicit FeaturePanels(MarketData data, const VocabularySettings& settings = {});

  [[nodiscard]] const Vocabulary& vocabulary() const { return vocabulary_; }

  // The panel of that feature, or nullptr where the data have no such feature.
  [[nodiscard]] const Panel* find(std::string_view name) const;

  // The groups of that name, which the vocabulary has.
  [[nodiscard]] const GroupPanel& group(const std::string& name) const { return groups_.at(name); }

 private:
  Vocabulary vocabulary_;
  std::map<std::string, GroupPanel, std::less<>> groups_;
  std::map<std::string, Panel, std::less<>> panels_;
};

}  // namespace varnholt::embedded
