// The configuration of a run: the file's, overridden by the command line.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/config/host_config.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// Settings of the configuration that have an option of their own. What is absent stays as it is.
struct ConfigOverrides {
  // By the option of the gate.
  std::map<std::string_view, std::optional<double>> thresholds;
  std::optional<int> era;
  std::optional<std::string> pool_name;
  std::optional<embedded::Date> holdout_from;
  std::optional<bool> units;
};

// The defaults without a file. Throws HostConfigError for a file that cannot be used, and
// UsageError for an era that the configuration does not have.
[[nodiscard]] embedded::HostConfig resolved_config(const std::optional<std::filesystem::path>& file,
                                                   const ConfigOverrides& overrides,
                                                   const embedded::InterruptCheck& check = {});

}  // namespace varnholt::app
