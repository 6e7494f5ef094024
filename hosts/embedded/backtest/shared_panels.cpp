#include "hosts/embedded/backtest/shared_panels.hpp"

#include <iterator>
#include <unordered_set>
#include <utility>

#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded {
namespace {

// How many parts are counted; then those that were met once are forgotten.
constexpr std::size_t kCountedParts = 100'000;

std::size_t bytes_of(const Panel& panel) {
  return static_cast<std::size_t>(panel.size()) * sizeof(double);
}

// The expression that ends with the step.
Expression up_to(const Expression& expression, std::size_t step) {
  Expression part;
  part.steps.assign(expression.steps.begin(),
                    expression.steps.begin() + static_cast<std::ptrdiff_t>(step) + 1);
  part.shape = expression.shape;
  return part;
}

}  // namespace

std::vector<std::string> step_texts(const Expression& expression) {
  std::vector<std::string> texts;
  texts.reserve(expression.steps.size());
  for (const ExpressionStep& step : expression.steps) {
    if (step.feature != nullptr) {
      texts.emplace_back(step.feature->name);
      continue;
    }
    if (step.is_constant()) {
      texts.push_back(number_text(step.number));
      continue;
    }
    std::string text(step.function->name);
    text += '(';
    for (std::size_t i = 0; i < step.function->data_children(); ++i)
      text.append(texts[step.inputs[i]]).append(",");
    if (step.group != nullptr) text.append(*step.group).append(",");
    if (step.function->takes(ArgumentKind::Number)) text.append(number_text(step.number) + ",");
    if (step.function->needs_window()) text += std::to_string(step.window);
    texts.push_back(text + ')');
  }
  return texts;
}

SharedPanels::SharedPanels(ComputePart compute, std::size_t panel_bytes, std::size_t limit_bytes,
                           std::size_t smallest_panel_bytes)
    : compute_(std::move(compute)),
      panel_bytes_(panel_bytes),
      limit_bytes_(limit_bytes),
      smallest_panel_bytes_(smallest_panel_bytes) {}

const Panel* SharedPanels::find(const std::string& step_text) const {
  const auto found = panels_.find(step_text);
  return found == panels_.end() ? nullptr : &found->second.panel;
}

bool SharedPanels::is_wanted(const std::string& step_text, std::int64_t in_chunk) const {
  if (in_chunk >= 2) return true;
  const auto met = met_.find(step_text);
  return met != met_.end() && met->second >= kOftenEnough;
}

void SharedPanels::touch(Kept& kept) {
  uses_.splice(uses_.end(), uses_, kept.use);
}

bool SharedPanels::make_room(std::size_t bytes, std::size_t in_use) {
  while (bytes_ + bytes > limit_bytes_ && uses_.size() > in_use) {
    const auto oldest = panels_.find(uses_.front());
    bytes_ -= bytes_of(oldest->second.panel);
    panels_.erase(oldest);
    uses_.pop_front();
  }
  return bytes_ + bytes <= limit_bytes_;
}

void SharedPanels::forget_rare() {
  if (met_.size() < kCountedParts) return;
  for (auto part = met_.begin(); part != met_.end();)
    part = part->second <= 1 ? met_.erase(part) : std::next(part);
  // Where all of them are frequent, none is any more.
  if (met_.size() >= kCountedParts / 2) met_.clear();
}

void SharedPanels::prepare(const std::vector<Expression>& expressions) {
  if (panel_bytes_ < smallest_panel_bytes_ || panel_bytes_ > limit_bytes_) return;
  std::vector<std::vector<std::string>> texts;
  std::unordered_map<std::string, std::int64_t> in_chunk;
  for (const Expression& expression : expressions) {
    texts.push_back(step_texts(expression));
    // A part that an expression has twice is one step of it.
    for (std::size_t step = 0; step < expression.steps.size(); ++step) {
      if (expression.steps[step].function != nullptr) ++in_chunk[texts.back()[step]];
    }
  }
  forget_rare();
  for (const auto& [text, count] : in_chunk)
    met_[text] += count;

  // The panels that this chunk reads, which are the most recent; each counts once.
  std::unordered_set<std::string> in_use;
  for (std::size_t i = 0; i < expressions.size(); ++i) {
    // From the whole signal downwards: what is below a part that is kept is not looked at.
    std::vector<bool> is_read(expressions[i].steps.size(), false);
    is_read.back() = true;
    for (std::size_t step = expressions[i].steps.size(); step-- > 0;) {
      const ExpressionStep& told = expressions[i].steps[step];
      if (!is_read[step] || told.function == nullptr) continue;
      const std::string& text = texts[i][step];
      const auto kept = panels_.find(text);
      if (kept != panels_.end()) {
        touch(kept->second);
        in_use.insert(text);
        continue;
      }
      if (is_wanted(text, in_chunk[text]) && make_room(panel_bytes_, in_use.size())) {
        Panel panel = compute_(up_to(expressions[i], step), *this);
        prefer_large_pages(panel.data(), bytes_of(panel));
        bytes_ += bytes_of(panel);
        ++computed_;
        panels_.emplace(text, Kept{std::move(panel), uses_.insert(uses_.end(), text)});
        in_use.insert(text);
        continue;
      }
      for (std::size_t input = 0; input < told.function->data_children(); ++input)
        is_read[told.inputs[input]] = true;
    }
  }
}

}  // namespace varnholt::embedded
