#include "benchmarks/search_quality/results_file.hpp"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace varnholt::embedded::search_quality {

namespace fs = std::filesystem;

namespace {

constexpr int kKeyColumns = 3;

std::set<std::string> keys_in(const fs::path& results) {
  std::set<std::string> keys;
  std::ifstream file(results);
  for (std::string line; std::getline(file, line);) {
    std::size_t end = 0;
    for (int column = 0; column < kKeyColumns && end != std::string::npos; ++column)
      end = line.find(',', end + 1);
    if (end != std::string::npos) keys.insert(line.substr(0, end + 1));
  }
  return keys;
}

}  // namespace

std::string key_of(const std::string& arm, std::string_view market, std::uint64_t seed) {
  return fmt::format("{},{},{},", arm, market, seed);
}

ResultsFile::ResultsFile(fs::path path, std::string header)
    : path_(std::move(path)), header_(std::move(header)), keys_(keys_in(path_)) {}

void ResultsFile::add(const std::string& line) const {
  const bool is_new = !fs::exists(path_);
  std::ofstream file(path_, std::ios::app);
  if (is_new) file << header_ << '\n';
  file << line << '\n';
  file.flush();
  if (!file) throw std::runtime_error("cannot write " + path_.string());
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

TemporaryFolder::TemporaryFolder()
    : path_(fs::temp_directory_path() / ("bench-search-quality-" + std::to_string(::getpid()))) {
  fs::create_directories(path_);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace varnholt::embedded::search_quality
