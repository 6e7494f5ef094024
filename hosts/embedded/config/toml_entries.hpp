// Entries of a TOML table with their places, ready to be taken or refused.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/config/config_source.hpp"
#include "hosts/embedded/config/host_config_error.hpp"
#include "hosts/embedded/config/toml_parser.hpp"

namespace varnholt::embedded {

[[nodiscard]] TextPosition position_of(const toml::source_position& position);

// The name of a key as the file would have to write it, and short enough to be shown.
[[nodiscard]] std::string key_text(std::string_view name);

struct TomlEntry {
  const toml::key* key = nullptr;
  const toml::node* value = nullptr;
};

// The entries of a table in the order of the text rather than of the names.
[[nodiscard]] std::vector<TomlEntry> entries_in_order(const toml::table& table);

// A value with its key, ready to be refused.
class MetValue {
 public:
  // The source and the node must outlive it.
  MetValue(const ConfigSource& source, std::string key, const toml::node& node);

  [[nodiscard]] const toml::node& node() const { return node_; }

  // True or false; refuses another value.
  [[nodiscard]] bool as_switch() const;

  // Throws HostConfigError.
  [[noreturn]] void refuse(const std::string& problem, const std::string& remedy) const;

 private:
  const ConfigSource& source_;
  std::string key_;
  const toml::node& node_;
};

}  // namespace varnholt::embedded
