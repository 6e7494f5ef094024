#include "hosts/embedded/market/csv_rows.hpp"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include <csv.h>

#include "hosts/embedded/market/price_file_error.hpp"

namespace varnholt::embedded {
namespace {

// A look at the clock costs about as much as a short line.
constexpr std::size_t kLinesBetweenChecks = 64;

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

bool is_space(char character) {
  return character == ' ' || character == '\t';
}

std::string_view without_blanks(std::string_view text) {
  while (!text.empty() && is_space(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && is_space(text.back()))
    text.remove_suffix(1);
  return text;
}

// Of a line that only separates cells, tabs say that there are some.
bool is_blank(std::string_view line, char separator) {
  return line.find_first_not_of(separator == '\t' ? " \r\n" : " \t\r\n") == std::string_view::npos;
}

std::string_view without_line_end(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
    line.remove_suffix(1);
  return line;
}

}  // namespace

// A row with quotes. The tokeniser is a C library that knows neither lines nor exceptions: it is
// fed line by line until the row is whole, and its callbacks keep an exception for later.
class CsvReader::QuotedRow {
 public:
  QuotedRow(const std::string& file, char separator) : file_(file) {
    if (csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
    csv_set_delim(&parser_, static_cast<unsigned char>(separator));
  }
  ~QuotedRow() { csv_free(&parser_); }
  QuotedRow(const QuotedRow&) = delete;
  QuotedRow& operator=(const QuotedRow&) = delete;

  void begin() {
    cells_.clear();
    is_whole_ = false;
  }

  // Whether the row ends with this line.
  bool feed(std::string_view line, std::size_t number) {
    const std::size_t used = csv_parse(&parser_, line.data(), line.size(), &QuotedRow::on_cell,
                                       &QuotedRow::on_row, this);
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    if (used == line.size()) return is_whole_;
    if (csv_error(&parser_) == CSV_ENOMEM) throw std::bad_alloc();
    throw PriceFileError({.file = file_, .line = number},
                         "a double quote stands inside a cell (character " +
                             std::to_string(used + 1) + " of the line)",
                         "put the whole cell in double quotes and write each quote in it twice");
  }

  // For the last row of a text, which needs no line end.
  void finish(std::size_t first_line) {
    const int result = csv_fini(&parser_, &QuotedRow::on_cell, &QuotedRow::on_row, this);
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    if (result == 0) return;
    throw PriceFileError({.file = file_, .line = first_line},
                         "a double quote that opens in this row is never closed",
                         "close it, or remove it");
  }

  [[nodiscard]] const std::vector<std::string>& cells() const { return cells_; }

 private:
  static void on_cell(void* data, std::size_t length, void* self) {
    auto& row = *static_cast<QuotedRow*>(self);
    try {
      const auto* text = static_cast<const char*>(data);
      row.cells_.emplace_back(without_blanks({text == nullptr ? "" : text, length}));
    } catch (...) {
      row.failure_ = std::current_exception();
    }
  }

  static void on_row(int /*terminator*/, void* self) {
    static_cast<QuotedRow*>(self)->is_whole_ = true;
  }

  const std::string& file_;
  csv_parser parser_{};
  std::vector<std::string> cells_;
  bool is_whole_ = false;
  std::exception_ptr failure_;
};

CsvReader::CsvReader(std::string_view text, std::string file, InterruptCheck check, char separator)
    : rest_(text.starts_with(kByteOrderMark) ? text.substr(kByteOrderMark.size()) : text),
      size_(rest_.size()),
      file_(std::move(file)),
      check_(std::move(check)),
      separator_(separator),
      line_feed_(std::min(rest_.find('\n'), rest_.size())) {}

CsvReader::~CsvReader() = default;

bool CsvReader::next() {
  while (!rest_.empty()) {
    const std::string_view line = take_line();
    if (is_blank(line, separator_)) continue;
    row_.line = line_;
    row_.cells.clear();
    if (line.find('"') == std::string_view::npos) {
      split_plain(without_line_end(line));
    } else {
      read_quoted(line);
    }
    return true;
  }
  return false;
}

// The next line with its ending. The place of the line feed is kept, because a text whose lines end
// with CR alone would be searched to its end for each of them.
std::string_view CsvReader::take_line() {
  constexpr std::size_t kBytesBetweenTellings = std::size_t{1} << 20U;
  const std::size_t passed = size_ - rest_.size();
  if (passed_ && passed >= told_bytes_ + kBytesBetweenTellings) {
    told_bytes_ = passed;
    passed_(passed);
  }
  const std::size_t carriage_return = rest_.substr(0, line_feed_).find('\r');
  std::size_t size = std::min(line_feed_ + 1, rest_.size());
  if (carriage_return != std::string_view::npos && carriage_return + 1 != line_feed_) {
    size = carriage_return + 1;
  }
  const std::string_view line = rest_.substr(0, size);
  rest_.remove_prefix(size);
  line_feed_ = size <= line_feed_ ? line_feed_ - size : std::min(rest_.find('\n'), rest_.size());
  if (++line_ % kLinesBetweenChecks == 0 && check_) check_();
  return line;
}

void CsvReader::split_plain(std::string_view line) {
  while (true) {
    const std::size_t end = line.find(separator_);
    row_.cells.push_back(without_blanks(line.substr(0, end)));
    if (end == std::string_view::npos) return;
    line.remove_prefix(end + 1);
  }
}

void CsvReader::read_quoted(std::string_view line) {
  if (!quoted_) quoted_ = std::make_unique<QuotedRow>(file_, separator_);
  quoted_->begin();
  while (!quoted_->feed(line, line_)) {
    if (rest_.empty()) {
      quoted_->finish(row_.line);
      break;
    }
    line = take_line();
  }
  row_.cells.assign(quoted_->cells().begin(), quoted_->cells().end());
}

}  // namespace varnholt::embedded
