// The rows of a CSV text, one after the other, each with the line that it begins in.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

struct CsvRow {
  std::size_t line = 0;                 // Counted from 1; a quoted row may go on over more lines.
  std::vector<std::string_view> cells;  // Without quotes, and without blanks at either end.
};

// Cells are separated by one character and may stand in double quotes, in which "" is one quote
// (RFC 4180). A line ends with LF, CR LF or CR. Blank lines are no rows, and a byte order mark at
// the start is dropped.
//
// One row is held at a time: a table of millions of rows takes no more memory than its text.
class CsvReader {
 public:
  // The text has to outlive the reader. `file` is the name to show in messages. `check` is called
  // every few lines; what it throws ends the reading.
  CsvReader(std::string_view text, std::string file, InterruptCheck check = {},
            char separator = ',');
  ~CsvReader();
  CsvReader(const CsvReader&) = delete;
  CsvReader& operator=(const CsvReader&) = delete;

  // Has `passed` called now and then with how many bytes of the text lie behind the reader: they
  // are not looked at again.
  void tell_passed(std::function<void(std::size_t)> passed) { passed_ = std::move(passed); }

  // Goes on to the next row; false at the end. Throws PriceFileError where a quote is misplaced or
  // not closed.
  [[nodiscard]] bool next();

  // The row that `next` has found. Its cells are valid until `next` is called again.
  [[nodiscard]] const CsvRow& row() const { return row_; }

 private:
  class QuotedRow;

  [[nodiscard]] std::string_view take_line();
  void split_plain(std::string_view line);
  void read_quoted(std::string_view line);

  std::string_view rest_;
  std::size_t size_;            // Of the whole text.
  std::size_t told_bytes_ = 0;  // What `passed_` was called with.
  std::function<void(std::size_t)> passed_;
  std::string file_;
  InterruptCheck check_;
  char separator_;
  std::size_t line_ = 0;
  std::size_t line_feed_ = 0;  // Where the next line feed of `rest_` is, or its size.
  CsvRow row_;
  std::unique_ptr<QuotedRow> quoted_;  // Made for the first row that has a quote.
};

}  // namespace varnholt::embedded
