#include "hosts/embedded/planner/repair_planner.hpp"

#include <array>
#include <optional>
#include <span>
#include <utility>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/copy.hpp"

namespace varnholt::embedded {

namespace reasons = genetic::reasons;
using genetic::Value;

namespace {

using Names = std::span<const std::string_view>;

constexpr std::array<std::string_view, 4> kForTurnover = {"smooth_long", "smooth_mean",
                                                          "smooth_decay", "slower_windows"};
constexpr std::array<std::string_view, 5> kForMaxWeight = {"blend_with_peer", "rank", "clip",
                                                           "scale_over_time", "equal_weights"};
constexpr std::array<std::string_view, 4> kForDeltaExposure = {"demean", "hedge_with_peer",
                                                               "standardise", "blend_with_peer"};
constexpr std::array<std::string_view, 5> kForWeightSum = {
    "grade_comparisons", "blend_with_peer", "smooth_long", "rank", "quicker_windows"};

// By the outlook, in the order of the enumeration.
constexpr std::array<std::string_view, 2> kForReversed = {"reverse", "reverse_slower"};
constexpr std::array<std::string_view, 3> kForReversedIfCheaper = {
    "reverse_slower", "reverse_smooth", "blend_with_peer"};
constexpr std::array<std::string_view, 4> kForEatenByCosts = {"smooth_long", "blend_with_peer",
                                                              "smooth_decay", "slower_windows"};
constexpr std::array<std::string_view, 4> kForNearMiss = {
    "blend_with_peer", "blend_with_second_peer", "slower_windows", "smooth_long"};
constexpr std::array<std::string_view, 3> kForWeak = {"smooth_long", "much_slower_windows",
                                                      "blend_with_peer"};

Names for_outlook(SharpeOutlook outlook) {
  switch (outlook) {
    case SharpeOutlook::Reversed:
      return kForReversed;
    case SharpeOutlook::ReversedIfCheaper:
      return kForReversedIfCheaper;
    case SharpeOutlook::EatenByCosts:
      return kForEatenByCosts;
    case SharpeOutlook::NearMiss:
      return kForNearMiss;
    case SharpeOutlook::Weak:
      break;
  }
  return kForWeak;
}

// How the book is held, in the order in which the gates judge it.
struct ConstraintRepairs {
  genetic::Key reason;
  Names plans;
};
constexpr auto kConstraintRepairs =
    std::to_array({ConstraintRepairs{reasons::kTurnoverExceeded, kForTurnover},
                   ConstraintRepairs{reasons::kMaxWeightExceeded, kForMaxWeight},
                   ConstraintRepairs{reasons::kDeltaExposureExceeded, kForDeltaExposure},
                   ConstraintRepairs{reasons::kAbsWeightSumMeanBelowMin, kForWeightSum},
                   ConstraintRepairs{reasons::kTurnoverMax, kForTurnover},
                   ConstraintRepairs{reasons::kMaxWeightMax, kForMaxWeight},
                   ConstraintRepairs{reasons::kDeltaExposureMax, kForDeltaExposure}});

class Planning {
 public:
  Planning(const RepairCase& failed, const RepairMaterial& material)
      : failed_(failed), material_(material) {
    seen_.insert(genetic::structural_key(failed.graph));
  }

  void add_for_sharpe(SharpeOutlook outlook) {
    const bool is_gross = failed_.missed(reasons::kSharpeMin.view()) == nullptr;
    add(is_gross ? reasons::kGrossReturnsSharpeBelowMin : reasons::kSharpeMin,
        for_outlook(outlook));
  }

  void add_for_constraints() {
    for (const ConstraintRepairs& repairs : kConstraintRepairs) {
      if (failed_.missed(repairs.reason.view()) != nullptr) add(repairs.reason, repairs.plans);
    }
  }

  [[nodiscard]] std::vector<PlannedRepair> take() { return std::move(repairs_); }

 private:
  void add(genetic::Key reason, Names plans) {
    for (const std::string_view name : plans) {
      const RepairPlan& plan = repair_plan(name);
      const std::optional<Value> planned = plan.graph(failed_, material_);
      if (!planned) continue;
      const Value graph = material_.making.finished(*planned);
      if (!material_.making.fits_units(graph, failed_.graph)) continue;
      if (!seen_.insert(genetic::structural_key(graph)).second) continue;
      repairs_.push_back({&plan, reason.view(), genetic::deep_copy(graph)});
    }
  }

  const RepairCase& failed_;
  const RepairMaterial& material_;
  genetic::StructuralKeySet seen_;
  std::vector<PlannedRepair> repairs_;
};

// A signal that is to be turned round earns nothing when it is only smoothed.
bool is_to_be_reversed(std::optional<SharpeOutlook> outlook) {
  return outlook == SharpeOutlook::Reversed || outlook == SharpeOutlook::ReversedIfCheaper;
}

}  // namespace

std::vector<PlannedRepair> plan_repairs(const RepairCase& failed, const RepairMaterial& material) {
  const std::optional<SharpeOutlook> outlook = sharpe_outlook(failed);
  Planning planning(failed, material);
  if (is_to_be_reversed(outlook)) planning.add_for_sharpe(*outlook);
  planning.add_for_constraints();
  if (outlook && !is_to_be_reversed(outlook)) planning.add_for_sharpe(*outlook);
  return planning.take();
}

}  // namespace varnholt::embedded
