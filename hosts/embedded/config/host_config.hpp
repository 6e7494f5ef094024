// The configuration of the embedded host: the requirements on a signal, and the days that are
// searched.
//
// A TOML file with the tables [gates], [limits], [pool], [eras], [market] and [vocabulary]. Every
// table and every
// key may be left out; what is left out has its default, so an empty file is a configuration. The
// keys, with meaning, unit, range and default, are documented in docs/configuration.md; the
// defaults are written out in examples/genetic-search.toml.
//
//   const HostConfig config = read_host_config("genetic-search.toml");
//   first_failed_gate(statistics, config.gates, config.limits);
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "hosts/embedded/config/host_config_error.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "hosts/embedded/signal_pool/pool_gates.hpp"
#include "hosts/embedded/signal_pool/signal_pool.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"

namespace varnholt::embedded {

// The signal pool that a new signal is compared with and submitted to.
struct PoolSettings {
  std::string name = "signals";
  // The largest correlation with a signal of the signal pool.
  double correlation_max = kDefaultMaxCorrelation;
  // The least novelty beside the members of the signal pool.
  double novelty_min = kDefaultMinNovelty;
  // The least deflated Sharpe ratio of a signal, a probability; 0 for none.
  double deflated_sharpe_min = 0.0;
  // Whether a better signal takes the place of the members that it is like.
  bool replaces_weaker = true;
  // The fewest days on which two signals can be compared.
  std::int64_t minimum_days = kDefaultCommonDays;

  [[nodiscard]] PoolThresholds thresholds() const {
    return {novelty_min, correlation_max, deflated_sharpe_min, replaces_weaker};
  }
};

struct HostConfig {
  GateThresholds gates;
  HardLimits limits;
  PoolSettings pool;
  EraSettings eras;
  std::int64_t market_id = 1;
  VocabularySettings vocabulary = {};
};

// A configuration is a page or two; a larger file is a mistake.
inline constexpr std::size_t kLargestConfigBytes = std::size_t{1} << 20U;

// The configuration in a file. HostConfigError for a file that cannot be read or is larger than
// kLargestConfigBytes, and for all that parse_host_config refuses.
[[nodiscard]] HostConfig read_host_config(const std::filesystem::path& path,
                                          const InterruptCheck& check = {});

// The configuration in a text; `name` stands for the file in errors. HostConfigError, which names
// the first mistake in the order of the text, for what is not TOML 1.0, for a table or key that is
// not known, for a value of another type or out of range, and for an era beyond the train eras.
// Characters beyond ASCII may stand in comments only.
[[nodiscard]] HostConfig parse_host_config(std::string_view text, const std::string& name);

}  // namespace varnholt::embedded
