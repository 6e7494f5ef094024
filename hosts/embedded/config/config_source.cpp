#include "hosts/embedded/config/config_source.hpp"

#include <utility>

namespace varnholt::embedded {
namespace {

constexpr std::size_t kShownCharacters = 40;

bool continues_character(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

// The byte where the code point of this number (from 0) begins, or the end of the text.
std::size_t byte_of(std::string_view text, std::size_t character) {
  std::size_t byte = 0;
  for (; byte < text.size(); ++byte) {
    if (continues_character(text[byte])) continue;
    if (character == 0) return byte;
    --character;
  }
  return byte;
}

}  // namespace

TextPosition position_of_byte(std::string_view text, std::size_t byte) {
  TextPosition position{1, 0};
  for (std::size_t i = 0; i <= byte && i < text.size(); ++i) {
    if (!continues_character(text[i])) ++position.column;
    if (text[i] == '\n' && i < byte) position = {position.line + 1, 0};
  }
  return position;
}

std::string on_one_line(std::string_view text, std::size_t limit_characters) {
  constexpr char kDigits[] = "0123456789abcdef";
  const std::string_view head = text.substr(0, byte_of(text, limit_characters));
  std::string shown;
  for (const char character : head) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7f) {
      shown += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 15U]};
    } else {
      shown += character;
    }
  }
  return head.size() < text.size() ? shown + "..." : shown;
}

ConfigSource::ConfigSource(std::string_view text, std::string name) : name_(std::move(name)) {
  while (true) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines_.push_back(line);
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

std::string ConfigSource::shown(TextPosition begin, TextPosition end) const {
  if (begin.line == 0 || begin.line > lines_.size() || begin.column == 0) return {};
  std::string_view line = lines_[begin.line - 1];
  const bool goes_on = end.line > begin.line;
  if (!goes_on && end.column > 0) line = line.substr(0, byte_of(line, end.column - 1));
  line.remove_prefix(byte_of(line, begin.column - 1));
  const std::string text = on_one_line(line, kShownCharacters);
  return goes_on && !text.ends_with("...") ? text + "..." : text;
}

std::string ConfigSource::shown_line(TextPosition position) const {
  if (position.line == 0 || position.line > lines_.size()) return {};
  return on_one_line(lines_[position.line - 1], kShownCharacters);
}

ConfigPlace ConfigSource::place(TextPosition position, std::string key, std::string value) const {
  return {name_, position.line, position.column, std::move(key), std::move(value)};
}

}  // namespace varnholt::embedded
