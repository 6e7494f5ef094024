// The options of one command, in the form that the parser of the command line takes.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/genetic_search/help_page.hpp"
#include "apps/genetic_search/option_values.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/market/calendar_date.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

// What an option's target holds when it holds something.
template <typename Target>
struct Held {
  using Type = Target;
};
template <typename Target>
struct Held<std::optional<Target>> {
  using Type = Target;
};

// The options of one command, each with its description wrapped for the help.
class Options {
 public:
  explicit Options(CLI::App& command) : command_(command) {}

  // Options from here on stand under this heading.
  void group(std::string heading) { group_ = std::move(heading); }

  void text(const std::string& name, const char* unit, const std::string& description,
            std::filesystem::path& target) {
    add(name, unit, description, [name, &target](const std::string& value) {
      if (value.empty()) throw UsageError(name + " wants the name of a file, not an empty text");
      target = value;
    });
  }

  void optional_text(const std::string& name, const char* unit, const std::string& description,
                     std::optional<std::filesystem::path>& target) {
    add(name, unit, description, [name, &target](const std::string& value) {
      if (value.empty()) throw UsageError(name + " wants the name of a file, not an empty text");
      target = value;
    });
  }

  // Anything else: `read` takes the text, and throws UsageError for one that it cannot read.
  void read(const std::string& name, const char* unit, const std::string& description,
            const std::function<void(const std::string&)>& read) {
    add(name, unit, description, read);
  }

  // "--prices FILE", which is given once for each file. Where the command has no arguments without
  // a name, one --prices takes all that follow it, as a shell's *.csv does.
  enum class Following : std::uint8_t { IsArgument, IsPrices };
  template <typename Target>
  void prices(const std::string& description, Following following, Target& target) {
    command_
        .add_option_function<std::vector<std::string>>(
            "--prices",
            [&target](const std::vector<std::string>& values) {
              embedded::PriceSource source;
              for (const std::string& value : values) {
                if (value.empty()) {
                  throw UsageError("--prices wants the name of a file, not an empty text");
                }
                source.add(value);
              }
              target = source;
            },
            wrapped(description))
        ->type_name("FILE")
        ->group(group_)
        ->allow_extra_args(following == Following::IsPrices);
  }

  // Where weights are written: "--output FILE", for which "-o" is short.
  template <typename Target>
  void output_file(const std::string& description, Target& target) {
    add("-o,--output", "FILE", description, [&target](const std::string& value) {
      if (value.empty()) throw UsageError("--output wants the name of a file, not an empty text");
      target = value;
    });
  }

  // A setting of the search template, which reads and judges the text itself.
  void setting(const std::string& name, const char* unit, const std::string& description,
               std::optional<genetic::Value>& target) {
    add(name, unit, description,
        [&target, name](const std::string& value) { target = plain_number(name, value); });
  }

  void text(const std::string& name, const char* unit, const std::string& description,
            std::optional<std::string>& target) {
    add(name, unit, description, [&target](const std::string& value) { target = value; });
  }

  void text(const std::string& name, const char* unit, const std::string& description,
            std::string& target) {
    add(name, unit, description, [&target](const std::string& value) { target = value; });
  }

  // A text that `refusal` finds nothing wrong with; its answer otherwise follows the name in the
  // error.
  void checked_text(const std::string& name, const char* unit, const std::string& description,
                    std::string (*refusal)(const std::string&),
                    std::optional<std::string>& target) {
    add(name, unit, description, [name, refusal, &target](const std::string& value) {
      const std::string trouble = refusal(value);
      if (!trouble.empty()) throw UsageError(name + " " + trouble);
      target = value;
    });
  }

  // A positional argument.
  template <typename Target>
  void positional(const char* name, Target& target) {
    command_.add_option(name, target)->group(group_);
  }

  // The same for a whole number.
  void whole_positional(const char* name, WholeRange range, std::int64_t& target) {
    command_
        .add_option_function<std::string>(name,
                                          [name, range, &target](const std::string& value) {
                                            target = whole_number(name, value, range);
                                          })
        ->group(group_);
  }

  void rates(const std::string& name, const char* unit, const std::string& description,
             std::optional<genetic::Value>& target) {
    add(name, unit, description,
        [name, &target](const std::string& value) { target = rate_list(name, value); });
  }

  template <typename Target>
  void whole(const std::string& name, const char* unit, WholeRange range,
             const std::string& description, Target& target) {
    add(name, unit, description, [name, range, &target](const std::string& value) {
      target = static_cast<typename Held<Target>::Type>(whole_number(name, value, range));
    });
  }

  template <typename Target>
  void real(const std::string& name, const char* unit, RealRange range,
            const std::string& description, Target& target) {
    add(name, unit, description, [name, range, &target](const std::string& value) {
      target = real_number(name, value, range);
    });
  }

  void date(const std::string& name, const std::string& description,
            std::optional<embedded::Date>& target) {
    add(name, "DATE", description, [name, &target](const std::string& value) {
      target = embedded::parse_date(value);
      if (!target) {
        throw UsageError(name + " wants a day written yyyy-mm-dd, such as 2026-01-31, not \"" +
                         on_one_line(value) + "\"");
      }
    });
  }

  void on_or_off(const std::string& name, const std::string& description,
                 std::optional<bool>& target) {
    either(name, {"on", "off"}, description, [&target](bool is_first) { target = is_first; });
  }

  // One of two words; `take` is told whether it is the first.
  void either(const std::string& name, const std::array<std::string, 2>& words,
              const std::string& description, const std::function<void(bool is_first)>& take) {
    const std::string unit = words[0] + "|" + words[1];
    add(name, unit.c_str(), description, [name, words, take](const std::string& value) {
      if (value != words[0] && value != words[1]) {
        throw UsageError(name + " wants " + words[0] + " or " + words[1] + ", not \"" +
                         on_one_line(value) + "\"");
      }
      take(value == words[0]);
    });
  }

  void flag(const std::string& name, const std::string& description, bool& target) {
    command_.add_flag(name, target, wrapped(description))->group(group_)->disable_flag_override();
  }

 private:
  static std::string wrapped(const std::string& description) {
    std::string text;
    for (const std::string& line : wrap_text(description, kHelpWidth - kDescriptionColumn)) {
      text.append(text.empty() ? "" : "\n").append(line);
    }
    return text;
  }

  void add(const std::string& name, const char* unit, const std::string& description,
           const std::function<void(const std::string&)>& read) {
    command_.add_option_function<std::string>(name, read, wrapped(description))
        ->type_name(unit)
        ->group(group_)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  }

  CLI::App& command_;
  std::string group_;
};

[[nodiscard]] constexpr WholeRange from(
    std::int64_t least, std::int64_t most = std::numeric_limits<std::int64_t>::max()) {
  return {least, most};
}

}  // namespace varnholt::app
