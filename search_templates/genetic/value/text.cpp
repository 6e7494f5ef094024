#include "search_templates/genetic/value/text.hpp"

#include <array>
#include <cstdint>
#include <cstring>

#include "search_templates/genetic/value/unicode_tables.hpp"

namespace varnholt::genetic {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char kHexDigits[] = "0123456789abcdef";

struct Decoded {
  char32_t code_point;
  std::size_t length;
};

constexpr Decoded kMalformed{kReplacement, 1};

unsigned byte_at(std::string_view text, std::size_t position) noexcept {
  return static_cast<unsigned char>(text[position]);
}

// The character that starts at `position`; a byte that starts none counts as one character.
Decoded decode(std::string_view text, std::size_t position) noexcept {
  const unsigned lead = byte_at(text, position);
  if (lead < 0x80) return {static_cast<char32_t>(lead), 1};
  if (lead < 0xC2 || lead > 0xF4) return kMalformed;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() - position < length) return kMalformed;
  char32_t code_point = lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned next = byte_at(text, position + i);
    if ((next & 0xC0u) != 0x80u) return kMalformed;
    code_point = (code_point << 6) | (next & 0x3Fu);
  }
  const bool overlong =
      (length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000);
  const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  if (overlong || surrogate || code_point > 0x10FFFF) return kMalformed;
  return {code_point, length};
}

// The length of the ASCII run at the start of the text, to the next multiple of eight bytes below.
std::size_t ascii_words(std::string_view text) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080u;
  std::size_t position = 0;
  while (text.size() - position >= sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + position, sizeof word);
    if ((word & kHighBits) != 0) break;
    position += sizeof word;
  }
  return position;
}

// For each byte, whether a written form copies it as it is. The single quote is plain to repr as
// long as the text is written between double ones, so repr treats both quotes apart.
using PlainBytes = std::array<bool, 256>;

constexpr PlainBytes make_plain_bytes(std::string_view exceptions) {
  PlainBytes plain{};
  for (std::size_t byte = 0x20; byte < 0x7F; ++byte)
    plain[byte] = true;
  for (const char exception : exceptions)
    plain[static_cast<unsigned char>(exception)] = false;
  return plain;
}

constexpr PlainBytes kPlainInJson = make_plain_bytes("\"\\");
constexpr PlainBytes kPlainInRepr = make_plain_bytes("'\\");

// The first position at or after `position` whose byte is not plain.
std::size_t end_of_plain(const PlainBytes& plain, std::string_view text,
                         std::size_t position) noexcept {
  while (position < text.size() && plain[byte_at(text, position)])
    ++position;
  return position;
}

void append_hex(std::string& out, char32_t value, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    out.push_back(kHexDigits[(value >> shift) & 0xFu]);
  }
}

void append_repr_character(std::string& out, char32_t code_point, char quote) {
  switch (code_point) {
    case U'\n':
      out += "\\n";
      return;
    case U'\r':
      out += "\\r";
      return;
    case U'\t':
      out += "\\t";
      return;
    case U'\\':
      out += "\\\\";
      return;
    default:
      break;
  }
  if (code_point == static_cast<char32_t>(quote)) {
    out.push_back('\\');
    out.push_back(quote);
  } else if (is_unicode_printable(code_point)) {
    append_code_point(out, code_point);
  } else if (code_point <= 0xFF) {
    out += "\\x";
    append_hex(out, code_point, 2);
  } else if (code_point <= 0xFFFF) {
    out += "\\u";
    append_hex(out, code_point, 4);
  } else {
    out += "\\U";
    append_hex(out, code_point, 8);
  }
}

void append_json_unit(std::string& out, char32_t unit) {
  out += "\\u";
  append_hex(out, unit, 4);
}

void append_json_escape(std::string& out, char32_t code_point) {
  switch (code_point) {
    case U'"':
      out += "\\\"";
      return;
    case U'\\':
      out += "\\\\";
      return;
    case U'\b':
      out += "\\b";
      return;
    case U'\f':
      out += "\\f";
      return;
    case U'\n':
      out += "\\n";
      return;
    case U'\r':
      out += "\\r";
      return;
    case U'\t':
      out += "\\t";
      return;
    default:
      break;
  }
  if (code_point <= 0xFFFF) {
    append_json_unit(out, code_point);
    return;
  }
  const char32_t offset = code_point - 0x10000;
  append_json_unit(out, 0xD800 | (offset >> 10));
  append_json_unit(out, 0xDC00 | (offset & 0x3FF));
}

}  // namespace

bool is_ascii(std::string_view text) noexcept {
  for (std::size_t position = ascii_words(text); position < text.size(); ++position) {
    if (byte_at(text, position) >= 0x80) return false;
  }
  return true;
}

char32_t next_code_point(std::string_view text, std::size_t& position) noexcept {
  const Decoded decoded = decode(text, position);
  position += decoded.length;
  return decoded.code_point;
}

std::size_t code_point_count(std::string_view text) noexcept {
  std::size_t position = ascii_words(text);
  std::size_t count = position;
  for (; position < text.size(); ++count)
    position += decode(text, position).length;
  return count;
}

std::string_view first_code_points(std::string_view text, std::size_t count) noexcept {
  std::size_t position = 0;
  for (; count > 0 && position < text.size(); --count)
    position += decode(text, position).length;
  return text.substr(0, position);
}

void append_code_point(std::string& out, char32_t code_point) {
  const auto push = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (code_point < 0x80) {
    push(code_point);
  } else if (code_point < 0x800) {
    push(0xC0 | (code_point >> 6));
    push(0x80 | (code_point & 0x3F));
  } else if (code_point < 0x10000) {
    push(0xE0 | (code_point >> 12));
    push(0x80 | ((code_point >> 6) & 0x3F));
    push(0x80 | (code_point & 0x3F));
  } else {
    push(0xF0 | (code_point >> 18));
    push(0x80 | ((code_point >> 12) & 0x3F));
    push(0x80 | ((code_point >> 6) & 0x3F));
    push(0x80 | (code_point & 0x3F));
  }
}

void append_text_repr(std::string& out, std::string_view text) {
  const bool single = text.find('\'') != std::string_view::npos;
  const char quote = single && text.find('"') == std::string_view::npos ? '"' : '\'';
  out.push_back(quote);
  std::size_t position = 0;
  while (true) {
    const std::size_t plain_end = end_of_plain(kPlainInRepr, text, position);
    out.append(text, position, plain_end - position);
    position = plain_end;
    if (position == text.size()) break;
    append_repr_character(out, next_code_point(text, position), quote);
  }
  out.push_back(quote);
}

std::string text_repr(std::string_view text) {
  std::string out;
  append_text_repr(out, text);
  return out;
}

void append_json_string(std::string& out, std::string_view text) {
  out.push_back('"');
  std::size_t position = 0;
  while (true) {
    const std::size_t plain_end = end_of_plain(kPlainInJson, text, position);
    out.append(text, position, plain_end - position);
    position = plain_end;
    if (position == text.size()) break;
    append_json_escape(out, next_code_point(text, position));
  }
  out.push_back('"');
}

}  // namespace varnholt::genetic
