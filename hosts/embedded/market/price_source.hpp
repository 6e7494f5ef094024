// Where prices come from: what was named for them, and the files that this stands for.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "hosts/embedded/market/price_file_error.hpp"

namespace varnholt::embedded {

// A price file, several, or folders of them, in the order in which they were named. That order
// never matters: what is read is the same in any.
class PriceSource {
 public:
  PriceSource() = default;
  // One file or folder is a source as it stands.
  PriceSource(std::filesystem::path path) { add(std::move(path)); }
  PriceSource(const std::string& path) { add(path); }
  PriceSource(const char* path) { add(path); }
  explicit PriceSource(std::vector<std::filesystem::path> named) : named_(std::move(named)) {}

  void add(std::filesystem::path path) { named_.push_back(std::move(path)); }

  [[nodiscard]] bool empty() const noexcept { return named_.empty(); }
  [[nodiscard]] const std::vector<std::filesystem::path>& named() const noexcept { return named_; }

  // For messages: the name of one, and of several the first with the number of the others.
  [[nodiscard]] std::string text() const;

  friend bool operator==(const PriceSource&, const PriceSource&) = default;

 private:
  std::vector<std::filesystem::path> named_;
};

// A file or folder that cannot be opened or read, or a folder without prices: nothing is wrong with
// what stands in a file.
class UnreadablePrices : public PriceFileError {
 public:
  UnreadablePrices(const std::filesystem::path& path, const std::string& trouble,
                   const std::string& remedy);

  // A clause whose subject is the file or folder.
  [[nodiscard]] const std::string& trouble() const noexcept { return trouble_; }

 private:
  std::string trouble_;
};

// The files that hold the prices, in the order of their absolute paths, each once. A folder stands
// for the files in it that are named as price files are: *.csv, *.tsv and *.txt, each also with .gz
// behind it, in any case and not beginning with a dot. Its folders are not looked into. Throws
// UnreadablePrices for a folder that cannot be read or that has no such file. What is no folder is
// taken for a file, whether it is there or not.
[[nodiscard]] std::vector<std::filesystem::path> price_files(const PriceSource& source);

}  // namespace varnholt::embedded
