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
// and leaves out the parts that the place does not have. An error may be several mistakes, of one
// file or more: its text has a line for each, and its place is that of the first.
class PriceFileError : public std::runtime_error {
 public:
  PriceFileError(PricePlace place, const std::string& problem, const std::string& remedy);
  // All of them, of which there is at least one; `more` says what comes after the last, if anything
  // does.
  PriceFileError(PricePlace first, std::vector<std::string> mistakes, const std::string& more);

  [[nodiscard]] const PricePlace& place() const noexcept { return place_; }
  // A line each.
  [[nodiscard]] const std::vector<std::string>& mistakes() const noexcept { return mistakes_; }
  // Whether there may be more of them.
  [[nodiscard]] bool is_cut() const noexcept { return is_cut_; }

 private:
  PricePlace place_;
  std::vector<std::string> mistakes_;
  bool is_cut_ = false;
};

// Mistakes that are told together, so that whoever corrects the prices sees them all.
class MistakeList {
 public:
  static constexpr std::size_t kMost = 20;

  // Throws PriceFileError with all of them when there are kMost, or may be more.
  void add(const PriceFileError& error);
  void throw_if_any() const;
  [[nodiscard]] bool empty() const noexcept { return mistakes_.empty(); }

 private:
  PricePlace first_;
  std::vector<std::string> mistakes_;
};

}  // namespace varnholt::embedded
