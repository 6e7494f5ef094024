// The CSV to which a benchmark of searches adds a line as each of them ends, so that the same
// command goes on where it was stopped.
#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

namespace varnholt::embedded::search_quality {

// The first three columns, which name a search: arm, market and seed.
[[nodiscard]] std::string key_of(const std::string& arm, std::string_view market,
                                 std::uint64_t seed);

class ResultsFile {
 public:
  // `header` is the first line of a new file.
  ResultsFile(std::filesystem::path path, std::string header);

  [[nodiscard]] bool has(const std::string& key) const { return keys_.contains(key); }
  // Adds the line and prints it. Throws std::runtime_error where it cannot be written.
  void add(const std::string& line) const;

 private:
  std::filesystem::path path_;
  std::string header_;
  std::set<std::string> keys_;  // Of the lines that it had at the beginning.
};

// Gone with the program, whatever ends it in order.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace varnholt::embedded::search_quality
