#include "hosts/embedded/config/host_config.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/config/ascii_text.hpp"
#include "hosts/embedded/config/config_source.hpp"
#include "hosts/embedded/config/toml_entries.hpp"
#include "hosts/embedded/config/toml_parser.hpp"
#include "hosts/embedded/config/vocabulary_config.hpp"
#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::int64_t kLargestInteger = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t kLongestPoolName = 100;
constexpr std::size_t kShownProblem = 160;

// --- the keys ---

// A number from `low` to `high`, or between them where `open`.
struct RealKey {
  std::function<double&(HostConfig&)> field;
  double low;
  double high;
  bool open = false;
};
struct IntegerKey {
  void (*assign)(HostConfig&, std::int64_t);
  std::int64_t low;
  std::int64_t high;
};
// One line in ASCII, not empty, of at most kLongestPoolName characters.
struct TextKey {
  std::string& (*field)(HostConfig&);
};

// A date of TOML, or the same as a text.
struct DateKey {
  std::optional<Date>& (*field)(HostConfig&);
};

struct SwitchKey {
  bool& (*field)(HostConfig&);
};

struct ConfigKey {
  std::string_view table;
  std::string_view name;
  std::variant<RealKey, IntegerKey, TextKey, DateKey, SwitchKey> kind;
};

template <auto Table, auto Member>
RealKey real_key(double low, double high, bool open = false) {
  return {[](HostConfig& config) -> double& { return config.*Table.*Member; }, low, high, open};
}

// The keys that are no gates and no limits.
std::vector<ConfigKey> other_keys() {
  return {
      ConfigKey{"pool", "name",
                TextKey{[](HostConfig& config) -> std::string& { return config.pool.name; }}},
      ConfigKey{"pool", "correlation_max",
                real_key<&HostConfig::pool, &PoolSettings::correlation_max>(0.0, 1.0)},
      ConfigKey{"pool", "novelty_min",
                real_key<&HostConfig::pool, &PoolSettings::novelty_min>(0.0, 1.0)},
      ConfigKey{"pool", "deflated_sharpe_min",
                real_key<&HostConfig::pool, &PoolSettings::deflated_sharpe_min>(0.0, 1.0)},
      ConfigKey{"pool", "replaces_weaker",
                SwitchKey{[](HostConfig& config) -> bool& { return config.pool.replaces_weaker; }}},
      ConfigKey{
          "pool", "minimum_days",
          IntegerKey{[](HostConfig& config, std::int64_t days) { config.pool.minimum_days = days; },
                     10, 1'000'000}},
      ConfigKey{"eras", "train",
                IntegerKey{[](HostConfig& config, std::int64_t count) {
                             config.eras.train = static_cast<int>(count);
                           },
                           1, kLargestEraCount}},
      ConfigKey{"eras", "holdout",
                real_key<&HostConfig::eras, &EraSettings::holdout>(0.0, 1.0, true)},
      ConfigKey{"eras", "holdout_from", DateKey{[](HostConfig& config) -> std::optional<Date>& {
                  return config.eras.holdout_from;
                }}},
      ConfigKey{"eras", "era",
                IntegerKey{[](HostConfig& config, std::int64_t number) {
                             config.eras.era = static_cast<int>(number);
                           },
                           1, kLargestEraCount}},
      ConfigKey{"market", "id",
                IntegerKey{[](HostConfig& config, std::int64_t id) { config.market_id = id; }, 1,
                           kLargestInteger}}};
}

// Every key, table by table, in the order in which people are told of them.
std::vector<ConfigKey> made_keys() {
  std::vector<ConfigKey> keys;
  for (const bool limits : {false, true}) {
    for (const Gate* const gate : gates_as_told(limits)) {
      const auto field = [gate](HostConfig& config) -> double& {
        return gate->setting(config.gates, config.limits);
      };
      keys.push_back({gate->config_table(), gate->key, RealKey{field, gate->low, gate->high}});
    }
  }
  for (ConfigKey& key : other_keys())
    keys.push_back(std::move(key));
  return keys;
}

const std::vector<ConfigKey>& all_keys() {
  static const std::vector<ConfigKey> kKeys = made_keys();
  return kKeys;
}

constexpr std::string_view kTablesRemedy =
    "the tables are [gates], [limits], [pool], [eras], [market] and [vocabulary]";

bool is_table(std::string_view name) {
  return std::any_of(all_keys().begin(), all_keys().end(),
                     [name](const ConfigKey& key) { return key.table == name; });
}

const ConfigKey* find_key(std::string_view table, std::string_view name) {
  const auto found = std::find_if(all_keys().begin(), all_keys().end(), [&](const ConfigKey& key) {
    return key.table == table && key.name == name;
  });
  return found == all_keys().end() ? nullptr : &*found;
}

std::string keys_mend(std::string_view table) {
  std::string names;
  for (const ConfigKey& key : all_keys()) {
    if (key.table != table) continue;
    names.append(names.empty() ? "" : ", ").append(key.name);
  }
  return fmt::format("the keys of [{}] are: {}", table, names);
}

// --- values ---

std::string real_mend(const RealKey& key) {
  if (key.open) return fmt::format("write a number above {} and below {}", key.low, key.high);
  if (std::isfinite(key.high))
    return fmt::format("write a number from {} to {}", key.low, key.high);
  if (std::isfinite(key.low)) return fmt::format("write a finite number of {} or more", key.low);
  return "write a finite number such as 0.3";
}

bool is_within(double number, const RealKey& key) {
  return key.open ? number > key.low && number < key.high : number >= key.low && number <= key.high;
}

void take(HostConfig& config, const RealKey& key, const MetValue& met) {
  double number = 0.0;
  if (const auto* const whole = met.node().as_integer()) {
    number = static_cast<double>(whole->get());
  } else if (const auto* const real = met.node().as_floating_point()) {
    number = real->get();
  } else {
    met.refuse("is not a number", real_mend(key));
  }
  if (!std::isfinite(number)) met.refuse("is not a finite number", real_mend(key));
  if (!is_within(number, key)) met.refuse("is out of range", real_mend(key));
  key.field(config) = number;
}

std::string integer_mend(const IntegerKey& key) {
  if (key.high == kLargestInteger) return fmt::format("write an integer of {} or more", key.low);
  return fmt::format("write an integer from {} to {}", key.low, key.high);
}

void take(HostConfig& config, const IntegerKey& key, const MetValue& met) {
  const auto* const number = met.node().as_integer();
  if (number == nullptr) met.refuse("is not an integer", integer_mend(key));
  if (number->get() < key.low || number->get() > key.high) {
    met.refuse("is out of range", integer_mend(key));
  }
  key.assign(config, number->get());
}

void take(HostConfig& config, const TextKey& key, const MetValue& met) {
  const std::string remedy = fmt::format(
      "write 1 to {} printable ASCII characters, such as \"signals\"", kLongestPoolName);
  const auto* const text = met.node().as_string();
  if (text == nullptr) met.refuse("is not a text", remedy);
  const std::string& bytes = text->get();
  if (bytes.empty()) met.refuse("is empty", remedy);
  if (bytes.size() > kLongestPoolName) met.refuse("is too long", remedy);
  // An escape sequence can write any character.
  const auto is_printable = [](char character) { return character >= 0x20 && character < 0x7f; };
  if (!std::all_of(bytes.begin(), bytes.end(), is_printable)) {
    met.refuse("holds another character", remedy);
  }
  key.field(config) = bytes;
}

void take(HostConfig& config, const DateKey& key, const MetValue& met) {
  const std::string remedy = "write a day as 2026-01-31";
  std::optional<Date> day;
  if (const auto* const date = met.node().as_date()) {
    const toml::date& named = date->get();
    day = parse_date(fmt::format("{:04}-{:02}-{:02}", named.year, named.month, named.day));
  } else if (const auto* const text = met.node().as_string()) {
    day = parse_date(text->get());
  } else {
    met.refuse("is not a day", remedy);
  }
  if (!day) met.refuse("is no day of the calendar", remedy);
  key.field(config) = day;
}

void take(HostConfig& config, const SwitchKey& key, const MetValue& met) {
  key.field(config) = met.as_switch();
}

// --- tables ---

void take_table(HostConfig& config, const ConfigSource& source, std::string_view table_name,
                const toml::table& table) {
  for (const TomlEntry& entry : entries_in_order(table)) {
    const std::string path = fmt::format("{}.{}", table_name, key_text(entry.key->str()));
    const ConfigKey* const key = find_key(table_name, entry.key->str());
    if (key == nullptr) {
      throw HostConfigError(source.place(position_of(entry.key->source().begin), path),
                            fmt::format("[{}] has no such key", table_name), keys_mend(table_name));
    }
    const MetValue met(source, path, *entry.value);
    std::visit([&](const auto& kind) { take(config, kind, met); }, key->kind);
  }
}

// What no single key can tell.
void check_era(const HostConfig& config, const ConfigSource& source, const toml::table& root) {
  if (!config.eras.era || *config.eras.era <= config.eras.train) return;
  const toml::node* const era = root.at_path("eras.era").node();
  MetValue(source, "eras.era", *era)
      .refuse(fmt::format("is beyond the {} train eras", config.eras.train),
              fmt::format("write an integer from 1 to {}, raise eras.train, or leave the key out "
                          "for the last train era",
                          config.eras.train));
}

HostConfig config_of(const toml::table& root, const ConfigSource& source) {
  HostConfig config;
  for (const TomlEntry& entry : entries_in_order(root)) {
    const std::string_view name = entry.key->str();
    const std::string shown_name = key_text(name);
    const toml::table* const table = entry.value->as_table();
    if (!is_table(name) && name != kVocabularyTable) {
      throw HostConfigError(
          source.place(position_of(entry.key->source().begin), shown_name),
          table != nullptr ? "there is no such table" : "the key stands in no table",
          std::string(kTablesRemedy));
    }
    if (table == nullptr) {
      MetValue(source, shown_name, *entry.value)
          .refuse("is not a table",
                  fmt::format("write one table [{}] with its keys below it", name));
    }
    if (name == kVocabularyTable) {
      config.vocabulary = read_vocabulary_table(source, *table);
      continue;
    }
    take_table(config, source, name, *table);
  }
  check_era(config, source, root);
  return config;
}

[[noreturn]] void refuse_text(const ConfigSource& source, TextPosition position,
                              std::string_view problem) {
  throw HostConfigError(source.place(position, {}, "\"" + source.shown_line(position) + "\""),
                        "is not TOML: " + on_one_line(problem, kShownProblem),
                        "write tables and keys as examples/genetic-search.toml has them");
}

bool breaks_an_assertion(std::string_view text) {
  try {
    static_cast<void>(toml::parse(text));
  } catch (const toml::parse_error&) {
  } catch (const TomlAssertion&) {
    return true;
  }
  return false;
}

// Where the text breaks an assertion of the parser: the last character of the shortest beginning
// that does. The parser goes through a text once, so a longer beginning breaks it too.
TextPosition broken_assertion(std::string_view text) {
  std::size_t good = 0;
  std::size_t bad = text.size();
  while (bad - good > 1) {
    const std::size_t middle = good + (bad - good) / 2;
    (breaks_an_assertion(text.substr(0, middle)) ? bad : good) = middle;
  }
  return position_of_byte(text, good);
}

[[noreturn]] void refuse_file(const std::filesystem::path& path, const std::string& problem,
                              const std::string& remedy) {
  throw HostConfigError(ConfigPlace{path.string()}, problem, remedy);
}

}  // namespace

// The parser calls itself once for each part of a dotted key, and so has no limit but the stack.
// Our keys have two parts; a text in quotes may have more dots than any key.
void refuse_deep_keys(std::string_view text, const ConfigSource& source) {
  constexpr std::size_t kMostDots = 1000;
  std::size_t dots = 0;
  for (std::size_t byte = 0; byte < text.size(); ++byte) {
    if (text[byte] == '\n') dots = 0;
    if (text[byte] != '.' || ++dots <= kMostDots) continue;
    const TextPosition position = position_of_byte(text, byte);
    throw HostConfigError(source.place({position.line, 1}, {}, {}),
                          fmt::format("has more than {} dots in one line", kMostDots),
                          "write keys as the documents show them");
  }
}

HostConfig parse_host_config(std::string_view text, const std::string& name) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  const ConfigSource source(text, name);
  const AsciiText ascii = ascii_text(text);
  if (ascii.stray) {
    const TextPosition position = position_of_byte(text, *ascii.stray);
    throw HostConfigError(source.place(position, {}, "\"" + source.shown_line(position) + "\""),
                          "has a character beyond ASCII outside of a comment", "write it in ASCII");
  }
  refuse_deep_keys(ascii.text, source);
  try {
    return config_of(toml::parse(ascii.text), source);
  } catch (const toml::parse_error& error) {
    refuse_text(source, position_of(error.source().begin), error.description());
  } catch (const TomlAssertion&) {
    refuse_text(source, broken_assertion(ascii.text), "unexpected character");
  }
}

HostConfig read_host_config(const std::filesystem::path& path, const InterruptCheck& check) {
  const FileBytes file = read_file(path, kLargestConfigBytes, kWaitForWriter, check);
  if (file.trouble == ReadTrouble::IsTooLarge) {
    refuse_file(path, fmt::format("is larger than {} bytes", kLargestConfigBytes),
                "name a configuration; one is a page or two");
  }
  if (file.trouble != ReadTrouble::None) {
    refuse_file(path, file.trouble_text(), "name a TOML file that may be read");
  }
  return parse_host_config(file.bytes, path.string());
}

}  // namespace varnholt::embedded
