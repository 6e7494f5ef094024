// What is wrong with a price file, where, and how to fix it.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace varnholt::embedded {

// The place of a mistake in a price file. Lines and columns count from 1; 0 means that the mistake
// belongs to no line or to no column.
struct PricePlace {
  std::string file;
  std::size_t line = 0;
  std::size_t column = 0;
  std::string column_name = {};  // As the header gives it; empty where the header gives none.
  std::string value = {};        // The cell as it stands in the file; only with a column.
};

// Thrown by everything that reads prices. The text of a mistake reads
//   FILE: line L, column C "NAME": "VALUE" PROBLEM; REMEDY
// and leaves out the parts that the place does not have. An error may be several mistakes of one
// file: its text has a line for each, and its place is that of the first.
class PriceFileError : public std::runtime_error {
 public:
  PriceFileError(PricePlace place, const std::string& problem, const std::string& remedy);
  // All of them, of which there is at least one; `more` says what comes after the last.
  PriceFileError(const std::vector<PriceFileError>& mistakes, const std::string& more);

  [[nodiscard]] const PricePlace& place() const noexcept { return place_; }

 private:
  PricePlace place_;
};

}  // namespace varnholt::embedded
