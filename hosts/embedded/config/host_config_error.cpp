#include "hosts/embedded/config/host_config_error.hpp"

#include <utility>

namespace varnholt::embedded {
namespace {

std::string message(const ConfigPlace& place, const std::string& problem,
                    const std::string& remedy) {
  std::string text = place.file;
  if (place.line != 0) text.append(": line ").append(std::to_string(place.line));
  if (place.column != 0) text.append(", column ").append(std::to_string(place.column));
  if (!place.key.empty()) text.append(", ").append(place.key);
  text += ": ";
  if (!place.value.empty()) text.append(place.value).append(" ");
  return text + problem + "; " + remedy;
}

}  // namespace

HostConfigError::HostConfigError(ConfigPlace place, const std::string& problem,
                                 const std::string& remedy)
    : std::runtime_error(message(place, problem, remedy)), place_(std::move(place)) {}

}  // namespace varnholt::embedded
