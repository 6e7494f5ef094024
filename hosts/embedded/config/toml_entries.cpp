#include "hosts/embedded/config/toml_entries.hpp"

#include <algorithm>
#include <utility>

namespace varnholt::embedded {

TextPosition position_of(const toml::source_position& position) {
  return {position.line, position.column};
}

std::string key_text(std::string_view name) {
  constexpr std::size_t kShownKey = 60;
  const bool bare = !name.empty() && std::all_of(name.begin(), name.end(), [](char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_' || character == '-';
  });
  const std::string text = on_one_line(name, kShownKey);
  return bare ? text : "\"" + text + "\"";
}

std::vector<TomlEntry> entries_in_order(const toml::table& table) {
  std::vector<TomlEntry> entries;
  entries.reserve(table.size());
  for (const auto& [key, value] : table)
    entries.push_back({&key, &value});
  std::stable_sort(entries.begin(), entries.end(),
                   [](const TomlEntry& left, const TomlEntry& right) {
                     return left.key->source().begin < right.key->source().begin;
                   });
  return entries;
}

MetValue::MetValue(const ConfigSource& source, std::string key, const toml::node& node)
    : source_(source), key_(std::move(key)), node_(node) {}

bool MetValue::as_switch() const {
  const auto* const is_on = node_.as_boolean();
  if (is_on == nullptr) refuse("is neither true nor false", "write true or false");
  return is_on->get();
}

void MetValue::refuse(const std::string& problem, const std::string& remedy) const {
  const TextPosition begin = position_of(node_.source().begin);
  throw HostConfigError(
      source_.place(begin, key_, source_.shown(begin, position_of(node_.source().end))), problem,
      remedy);
}

}  // namespace varnholt::embedded
