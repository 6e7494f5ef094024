#include "apps/genetic_search/run_config.hpp"

#include <fmt/format.h>

#include "apps/genetic_search/usage_error.hpp"

namespace varnholt::app {
namespace {

template <typename Target, typename Value>
void override_with(Target& target, const std::optional<Value>& value) {
  if (value) target = *value;
}

}  // namespace

embedded::HostConfig resolved_config(const std::optional<std::filesystem::path>& file,
                                     const ConfigOverrides& overrides,
                                     const embedded::InterruptCheck& check) {
  embedded::HostConfig config =
      file ? embedded::read_host_config(*file, check) : embedded::HostConfig();
  for (const embedded::Gate& gate : embedded::gate_table()) {
    const auto found = overrides.thresholds.find(gate.option);
    const bool is_given = found != overrides.thresholds.end() && found->second.has_value();
    // To ask for a threshold sets it, so one that is left to the days must not be asked for.
    if (is_given) gate.setting(config.gates, config.limits) = *found->second;
  }
  override_with(config.eras.era, overrides.era);
  override_with(config.pool.name, overrides.pool_name);
  override_with(config.vocabulary.units, overrides.units);
  if (overrides.holdout_from) config.eras.holdout_from = overrides.holdout_from;
  if (overrides.era && *overrides.era > config.eras.train) {
    throw UsageError(fmt::format(
        "--era {} is beyond the {} train era{}; give one of those, or more of them with eras.train "
        "in the file of --config",
        *overrides.era, config.eras.train, config.eras.train == 1 ? "" : "s"));
  }
  return config;
}

}  // namespace varnholt::app
