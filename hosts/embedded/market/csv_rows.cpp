#include "hosts/embedded/market/csv_rows.hpp"

#include <exception>
#include <new>

#include <csv.h>

#include "hosts/embedded/market/price_file_error.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

std::string_view without_blanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool is_blank(std::string_view line) {
  return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// The next line of `text` with its ending. CR LF is one ending.
std::string_view next_line(std::string_view text) {
  const std::size_t end = text.find_first_of("\r\n");
  if (end == std::string_view::npos) return text;
  const bool two = text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n';
  return text.substr(0, end + (two ? 2 : 1));
}

// The tokeniser is a C library that knows neither lines nor exceptions. It is fed line by line, so
// that the line of each row is known, and its callbacks keep an exception for later.
class RowCollector {
 public:
  explicit RowCollector(const std::string& file) : file_(file) {
    if (csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~RowCollector() { csv_free(&parser_); }
  RowCollector(const RowCollector&) = delete;
  RowCollector& operator=(const RowCollector&) = delete;

  void feed(std::string_view line, std::size_t number) {
    line_ = number;
    if (!row_open_) {
      if (is_blank(line)) return;
      row_line_ = number;
      row_open_ = true;  // The callback for a complete row closes it, unless a quote is open.
    }
    const std::size_t used = csv_parse(&parser_, line.data(), line.size(), &RowCollector::field,
                                       &RowCollector::row, this);
    if (failure_) std::rethrow_exception(failure_);
    if (used == line.size()) return;
    if (csv_error(&parser_) == CSV_ENOMEM) throw std::bad_alloc();
    throw PriceFileError({.file = file_, .line = line_},
                         "a double quote stands inside a cell (character " +
                             std::to_string(used + 1) + " of the line)",
                         "put the whole cell in double quotes and write each quote in it twice");
  }

  std::vector<CsvRow> finish() {
    const int result = csv_fini(&parser_, &RowCollector::field, &RowCollector::row, this);
    if (failure_) std::rethrow_exception(failure_);
    if (result != 0) {
      throw PriceFileError({.file = file_, .line = row_line_},
                           "a double quote that opens in this row is never closed",
                           "close it, or remove it");
    }
    return std::move(rows_);
  }

 private:
  static void field(void* data, std::size_t length, void* self) {
    auto& collector = *static_cast<RowCollector*>(self);
    try {
      const auto* text = static_cast<const char*>(data);
      collector.fields_.emplace_back(without_blanks({text == nullptr ? "" : text, length}));
    } catch (...) {
      collector.failure_ = std::current_exception();
    }
  }

  static void row(int /*terminator*/, void* self) {
    auto& collector = *static_cast<RowCollector*>(self);
    try {
      collector.rows_.push_back({collector.row_line_, std::move(collector.fields_)});
      collector.fields_.clear();
      collector.row_open_ = false;
    } catch (...) {
      collector.failure_ = std::current_exception();
    }
  }

  const std::string& file_;
  csv_parser parser_{};
  std::size_t line_ = 0;
  std::size_t row_line_ = 0;
  bool row_open_ = false;
  std::vector<std::string> fields_;
  std::vector<CsvRow> rows_;
  std::exception_ptr failure_;
};

}  // namespace

std::vector<CsvRow> read_csv_rows(std::string_view text, const std::string& file) {
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  RowCollector collector(file);
  std::size_t number = 0;
  while (!text.empty()) {
    const std::string_view line = next_line(text);
    collector.feed(line, ++number);
    text.remove_prefix(line.size());
  }
  return collector.finish();
}

}  // namespace varnholt::embedded
