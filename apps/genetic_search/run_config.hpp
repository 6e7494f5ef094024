// The configuration of a run: the file's, overridden by the command line.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "hosts/embedded/config/host_config.hpp"

namespace varnholt::app {

// Settings of the configuration that have an option of their own. What is absent stays as it is.
struct ConfigOverrides {
  std::optional<double> min_abs_weight_sum_mean;
  std::optional<double> max_turnover;
  std::optional<double> max_max_weight;
  std::optional<double> max_delta_exposure;
  std::optional<double> min_gross_returns_sharpe;
  std::optional<double> min_sharpe;
  std::optional<int> era;
  std::optional<std::string> pool_name;
};

// The defaults without a file. Throws HostConfigError for a file that cannot be used, and
// UsageError for an era that the configuration does not have.
[[nodiscard]] embedded::HostConfig resolved_config(const std::optional<std::filesystem::path>& file,
                                                   const ConfigOverrides& overrides);

}  // namespace varnholt::app
