// What is wrong with a configuration, where, and how to fix it.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace varnholt::embedded {

// The place of a mistake in a configuration. Lines and columns count from 1, columns in characters;
// 0 means that the mistake belongs to no line.
struct ConfigPlace {
  std::string file;
  std::size_t line = 0;
  std::size_t column = 0;
  std::string key = {};    // With its table, "gates.sharpe_min"; empty without a key.
  std::string value = {};  // As it stands in the file, on one line, long ones cut.
};

// Thrown by everything that reads a configuration. The text reads
//   FILE: line L, column C, KEY: VALUE PROBLEM; REMEDY
// and leaves out the parts that the place does not have.
class HostConfigError : public std::runtime_error {
 public:
  HostConfigError(ConfigPlace place, const std::string& problem, const std::string& remedy);

  [[nodiscard]] const ConfigPlace& place() const noexcept { return place_; }

 private:
  ConfigPlace place_;
};

}  // namespace varnholt::embedded
