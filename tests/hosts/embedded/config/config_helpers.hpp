// Configurations for tests, and their refusals as texts.
#pragma once

#include <string>
#include <string_view>

#include "hosts/embedded/config/host_config.hpp"

namespace varnholt::embedded::test {

inline std::string refusal(std::string_view text) {
  try {
    static_cast<void>(parse_host_config(text, "c.toml"));
  } catch (const HostConfigError& error) {
    return error.what();
  }
  return "accepted";
}

}  // namespace varnholt::embedded::test
