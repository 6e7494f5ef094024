#include "hosts/embedded/config/ascii_text.hpp"

#include <algorithm>

namespace varnholt::embedded {
namespace {

bool is_ascii(char character) {
  return static_cast<unsigned char>(character) < 0x80;
}

bool continues_character(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

// The byte after a string on one line, which also ends with the line.
std::size_t end_of_string(std::string_view text, std::size_t byte, char quote) {
  for (; byte < text.size(); ++byte) {
    if (text[byte] == quote || text[byte] == '\n') return byte + 1;
    if (text[byte] == '\\' && quote == '"') ++byte;
  }
  return text.size();
}

// The byte after a string between three quotes each; up to two more quotes before the last three
// belong to it.
std::size_t end_of_long_string(std::string_view text, std::size_t byte, char quote) {
  const std::string_view quotes = quote == '"' ? "\"\"\"" : "'''";
  for (; byte < text.size(); ++byte) {
    if (text.substr(byte).starts_with(quotes)) {
      byte += quotes.size();
      for (int more = 0; more < 2 && byte < text.size() && text[byte] == quote; ++more)
        ++byte;
      return byte;
    }
    if (text[byte] == '\\' && quote == '"') ++byte;
  }
  return text.size();
}

std::size_t end_of_any_string(std::string_view text, std::size_t byte) {
  const char quote = text[byte];
  const bool is_long = byte + 2 < text.size() && text[byte + 1] == quote && text[byte + 2] == quote;
  return is_long ? end_of_long_string(text, byte + 3, quote) : end_of_string(text, byte + 1, quote);
}

std::optional<std::size_t> stray_character(std::string_view text) {
  std::size_t byte = 0;
  while (byte < text.size()) {
    std::size_t end = byte + 1;
    if (text[byte] == '#') {
      byte = std::min(text.find('\n', byte), text.size());
      continue;
    }
    if (text[byte] == '"' || text[byte] == '\'') end = end_of_any_string(text, byte);
    for (; byte < end; ++byte) {
      if (!is_ascii(text[byte])) return byte;
    }
  }
  return std::nullopt;
}

}  // namespace

AsciiText ascii_text(std::string_view text) {
  AsciiText result;
  result.text.reserve(text.size());
  for (const char byte : text) {
    if (is_ascii(byte)) {
      result.text += byte;
    } else if (!continues_character(byte)) {
      result.text += '?';
    }
  }
  result.stray = stray_character(text);
  return result;
}

}  // namespace varnholt::embedded
