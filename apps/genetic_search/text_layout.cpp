#include "apps/genetic_search/text_layout.hpp"

#include <algorithm>
#include <array>

namespace varnholt::app {
namespace {

constexpr std::string_view kEllipsis = "...";
// However narrow a terminal is.
constexpr std::size_t kNarrowestColumn = 10;

bool continues_code_point(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

// The bytes that the first `width` columns of the text take.
std::size_t bytes_of_columns(std::string_view text, std::size_t width) {
  std::size_t columns = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (continues_code_point(text[i])) continue;
    if (columns == width) return i;
    ++columns;
  }
  return text.size();
}

bool breaks_after(char byte) {
  return byte == ' ' || byte == ',' || byte == '(';
}

// Where a line that may take `limit` bytes ends: after the last place to break, or at the limit.
std::size_t break_before(std::string_view text, std::size_t limit) {
  // A blank right behind the limit ends the line as well as one inside it.
  if (text[limit] == ' ') return limit;
  for (std::size_t i = limit; i > 0; --i) {
    if (breaks_after(text[i - 1])) return i;
  }
  return limit;
}

std::string_view without_blanks(std::string_view text) {
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  return text;
}

struct CodePoint {
  char32_t value;
  std::size_t bytes;
};

constexpr char32_t kInvalid = 0xffffffff;

// A byte that begins no whole code point of UTF-8 stands for itself, and is invalid.
CodePoint first_code_point(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80U) return {lead, 1};
  const std::size_t bytes = lead >= 0xf0U ? 4 : lead >= 0xe0U ? 3 : 2;
  if (lead < 0xc2U || lead > 0xf4U || text.size() < bytes) return {kInvalid, 1};
  char32_t value = lead & (0x7fU >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if (!continues_code_point(text[i])) return {kInvalid, 1};
    value = (value << 6U) | (static_cast<unsigned char>(text[i]) & 0x3fU);
  }
  return {value, bytes};
}

struct Range {
  char32_t first;
  char32_t last;
};

constexpr auto kActing = std::to_array({
    Range{0x00, 0x1f},          // C0.
    Range{0x7f, 0x9f},          // DEL and C1.
    Range{0x61c, 0x61c},        // The Arabic letter mark.
    Range{0x200e, 0x200f},      // Marks of left and right.
    Range{0x2028, 0x202e},      // Separators; embeddings and overrides of the direction.
    Range{0x2066, 0x2069},      // Isolates of the direction.
    Range{kInvalid, kInvalid},  // No text at all.
});

bool acts_on_terminal(char32_t value) {
  return std::any_of(kActing.begin(), kActing.end(), [value](const Range& range) {
    return range.first <= value && value <= range.last;
  });
}

}  // namespace

std::size_t column_count(std::string_view text) {
  std::size_t columns = 0;
  for (const char byte : text)
    columns += continues_code_point(byte) ? 0 : 1;
  return columns;
}

std::string on_one_line(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  while (!text.empty()) {
    const CodePoint first = first_code_point(text);
    if (acts_on_terminal(first.value)) {
      line += '?';
    } else {
      line += text.substr(0, first.bytes);
    }
    text.remove_prefix(first.bytes);
  }
  return line;
}

std::string cut_to_width(std::string_view text, std::size_t width) {
  if (column_count(text) <= width) return std::string(text);
  if (width <= kEllipsis.size()) return std::string(text.substr(0, bytes_of_columns(text, width)));
  const std::size_t kept = bytes_of_columns(text, width - kEllipsis.size());
  return std::string(text.substr(0, kept)).append(kEllipsis);
}

std::vector<std::string> wrap_text(std::string_view text, std::size_t width) {
  std::vector<std::string> lines;
  std::string_view rest = without_blanks(text);
  while (width > 0 && column_count(rest) > width) {
    const std::size_t end = break_before(rest, bytes_of_columns(rest, width));
    lines.emplace_back(without_blanks(rest.substr(0, end)));
    rest = without_blanks(rest.substr(end));
  }
  lines.emplace_back(rest);
  return lines;
}

std::vector<std::string> wrapped_beside(std::string_view text, Width width, std::size_t indent) {
  if (!width) return {std::string(text)};
  return wrap_text(text, std::max(*width, indent + kNarrowestColumn) - indent);
}

std::string entry_text(std::string_view name, std::string_view text, Width width) {
  const std::size_t indent = column_count(name);
  std::string entry(name);
  for (const std::string& line : wrapped_beside(text, width, indent)) {
    if (entry.size() > name.size()) entry += std::string(indent, ' ');
    entry += line + "\n";
  }
  return entry;
}

std::string counted(std::int64_t count, std::string_view noun) {
  return std::to_string(count).append(" ").append(noun).append(count == 1 ? "" : "s");
}

std::string padded(std::string_view text, std::size_t width, Align align) {
  const std::size_t columns = column_count(text);
  const std::string blanks(width > columns ? width - columns : 0, ' ');
  return align == Align::Left ? std::string(text) + blanks : blanks + std::string(text);
}

}  // namespace varnholt::app
