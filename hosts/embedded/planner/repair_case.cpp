#include "hosts/embedded/planner/repair_case.hpp"

#include <algorithm>

#include "search_templates/genetic/settings/reason_tables.hpp"

namespace varnholt::embedded {

namespace reasons = genetic::reasons;

namespace {

// The first of the two that is known.
std::optional<double> first_known(std::optional<double> first, std::optional<double> second) {
  return first ? first : second;
}

}  // namespace

const MissedGate* RepairCase::missed(std::string_view reason) const {
  const auto found =
      std::find_if(failures.begin(), failures.end(),
                   [reason](const MissedGate& failure) { return failure.reason == reason; });
  return found == failures.end() ? nullptr : &*found;
}

std::optional<SharpeOutlook> sharpe_outlook(const RepairCase& failed) {
  const MissedGate* const net = failed.missed(reasons::kSharpeMin.view());
  const MissedGate* const gross = failed.missed(reasons::kGrossReturnsSharpeBelowMin.view());
  if (net == nullptr && gross == nullptr) return std::nullopt;

  const std::optional<double> own_n = net ? first_known(failed.sharpe, net->value) : failed.sharpe;
  const std::optional<double> own_g =
      gross ? first_known(failed.gross_sharpe, gross->value) : failed.gross_sharpe;
  if (!own_n && !own_g) return SharpeOutlook::Weak;
  const double n = first_known(own_n, own_g).value();
  const double g = first_known(own_g, own_n).value();

  const std::optional<double> own_net_min = net ? net->threshold : std::nullopt;
  const std::optional<double> own_gross_min = gross ? gross->threshold : std::nullopt;
  const double net_min = first_known(own_net_min, own_gross_min).value_or(0.0);
  const double gross_min = first_known(own_gross_min, own_net_min).value_or(0.0);

  const double reversed_net = n - 2.0 * g;
  if (g < 0.0 && -g >= gross_min) {
    return reversed_net >= net_min ? SharpeOutlook::Reversed : SharpeOutlook::ReversedIfCheaper;
  }
  if (g < 0.0 && reversed_net > 0.0) return SharpeOutlook::ReversedIfCheaper;
  if (g >= gross_min && n < net_min) return SharpeOutlook::EatenByCosts;
  return n > 0.0 ? SharpeOutlook::NearMiss : SharpeOutlook::Weak;
}

}  // namespace varnholt::embedded
