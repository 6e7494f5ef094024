// A configuration's text beside its parsed form, so that an error can quote it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/config/host_config_error.hpp"

namespace varnholt::embedded {

// A position in a text; line and column count from 1, columns in Unicode code points.
struct TextPosition {
  std::size_t line = 0;
  std::size_t column = 0;
};

class ConfigSource {
 public:
  // The text must outlive the source.
  ConfigSource(std::string_view text, std::string name);

  [[nodiscard]] const std::string& name() const noexcept { return name_; }

  // What stands from `begin` up to `end`, as a message can show it: on one line, characters that
  // would spoil it as \xNN, cut after some 40 characters or at the end of the first line.
  [[nodiscard]] std::string shown(TextPosition begin, TextPosition end) const;
  // The same for the whole line that the position is in.
  [[nodiscard]] std::string shown_line(TextPosition position) const;

  [[nodiscard]] ConfigPlace place(TextPosition position, std::string key = {},
                                  std::string value = {}) const;

 private:
  std::vector<std::string_view> lines_;
  std::string name_;
};

// The position of the character that this byte (from 0) of the text belongs to.
[[nodiscard]] TextPosition position_of_byte(std::string_view text, std::size_t byte);

// A text as a message can show it: see ConfigSource::shown.
[[nodiscard]] std::string on_one_line(std::string_view text, std::size_t limit_characters);

}  // namespace varnholt::embedded
