#include "hosts/embedded/vocabulary/unit_check.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/vocabulary/graph_node.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Value;

// The unit of the panels from `first` on, and the first two that are not alike.
UnitOfCall unit_of_alike(const std::vector<UnitOfPanel>& panels, std::size_t first) {
  UnitOfCall call{kFitsAll, std::nullopt};
  for (std::size_t i = first; i < panels.size(); ++i) {
    const Unit& unit = panels[i].unit;
    if (!call.mixed && !are_alike(call.unit, unit)) call.mixed.emplace(call.unit, unit);
    if (call.unit.fits_all) call.unit = unit;
  }
  return call;
}

// "a price", "money".
std::string with_article(const Unit& unit) {
  const std::string name = unit_name(unit);
  return unit == kMoney || name.starts_with("a ") ? name : "a " + name;
}

class Units {
 public:
  explicit Units(const Vocabulary& vocabulary) : vocabulary_(vocabulary) {}

  UnitOfPanel of(const Value& value) {
    const GraphNode node = read_graph_node(value, GraphPlace{});
    if (node.type == kConstantType) return {kFitsAll, constant_value(node.name)};
    if (node.type == kFeatureType) {
      const FeatureEntry* const feature = vocabulary_.find_feature(node.name);
      return {feature == nullptr ? kFitsAll : feature->unit, std::nullopt};
    }
    const FunctionEntry* const function = vocabulary_.find_function(node.name);
    if (function == nullptr) return {kFitsAll, std::nullopt};
    std::vector<UnitOfPanel> panels;
    panels.reserve(3);
    int window = 0;
    for (std::size_t i = 0; i < node.children.size(); ++i) {
      if (i < function->data_children()) {
        panels.push_back(of(node.children.at(i)));
      } else if (i + 1 == node.children.size() && function->needs_window()) {
        window = window_of(read_graph_node(node.children.at(i), GraphPlace{}).name).value_or(0);
      }
    }
    const UnitOfCall call = unit_of_call(*function, panels, window);
    if (call.mixed) note(function->name, *call.mixed);
    return {call.unit, std::nullopt};
  }

  [[nodiscard]] UnitsOfGraph take(const Unit& unit) {
    found_.unit = unit;
    return std::move(found_);
  }

 private:
  void note(std::string_view function, const std::pair<Unit, Unit>& mixed) {
    ++found_.mixed_calls;
    if (!found_.first_mixture.empty()) return;
    found_.first_mixture = fmt::format("{} puts {} and {} together", function,
                                       with_article(mixed.first), with_article(mixed.second));
  }

  const Vocabulary& vocabulary_;
  UnitsOfGraph found_;
};

}  // namespace

UnitOfCall unit_of_call(const FunctionEntry& function, const std::vector<UnitOfPanel>& panels,
                        int window_days) {
  const Unit& x = panels.front().unit;
  switch (function.unit) {
    case UnitRule::Number:
      break;
    case UnitRule::OfFirst:
      return {x, std::nullopt};
    case UnitRule::Alike:
      return unit_of_alike(panels, 0);
    case UnitRule::AlikeNumber:
      return {kPureNumber, unit_of_alike(panels, 0).mixed};
    case UnitRule::AlikeChoices:
      return unit_of_alike(panels, 1);
    case UnitRule::Product:
      return {unit_product(x, panels.back().unit), std::nullopt};
    case UnitRule::Quotient:
      return {unit_quotient(x, panels.back().unit), std::nullopt};
    case UnitRule::Power:
      if (!panels.back().constant) return {x == kPureNumber ? x : kFitsAll, std::nullopt};
      return {unit_power(x, *panels.back().constant), std::nullopt};
    case UnitRule::DaysPower:
      return {unit_power(x, window_days), std::nullopt};
  }
  return {kPureNumber, std::nullopt};
}

UnitsOfGraph units_of_graph(const Value& graph, const Vocabulary& vocabulary) {
  Units units(vocabulary);
  const Unit unit = units.of(graph).unit;
  return units.take(unit);
}

}  // namespace varnholt::embedded
