#include "hosts/embedded/market/price_source.hpp"

#include <algorithm>
#include <map>
#include <string_view>
#include <system_error>

namespace varnholt::embedded {
namespace {

namespace fs = std::filesystem;

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool is_named_as_prices(const fs::path& path) {
  std::string name = path.filename().string();
  std::transform(name.begin(), name.end(), name.begin(), lower);
  if (name.starts_with(".")) return false;
  std::string_view plain = name;
  if (plain.ends_with(".gz")) plain.remove_suffix(3);
  return plain.ends_with(".csv") || plain.ends_with(".tsv") || plain.ends_with(".txt");
}

std::vector<fs::path> files_in(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  while (!error && entry != fs::directory_iterator()) {
    std::error_code ignored;  // What cannot be looked at is told when it is opened.
    if (is_named_as_prices(entry->path()) && !entry->is_directory(ignored)) {
      files.push_back(entry->path());
    }
    entry.increment(error);
  }
  if (error) {
    throw UnreadablePrices(folder, "is a folder that cannot be read: " + error.message(),
                           "check that you may read it, or name the files in it");
  }
  if (files.empty()) {
    throw UnreadablePrices(
        folder, "is a folder without price files",
        "put files into it whose names end in .csv, .tsv or .txt, with .gz behind "
        "or not, or name the files themselves");
  }
  return files;
}

// By which a file is known, whatever way leads to it.
std::string identity(const fs::path& path) {
  std::error_code error;
  const fs::path canonical = fs::weakly_canonical(path, error);
  return (error ? fs::absolute(path) : canonical).string();
}

}  // namespace

UnreadablePrices::UnreadablePrices(const fs::path& path, const std::string& trouble,
                                   const std::string& remedy)
    : PriceFileError({.file = path.string()}, trouble, remedy), trouble_(trouble) {}

std::string PriceSource::text() const {
  if (named_.empty()) return {};
  const std::string first = named_.front().string();
  const std::size_t others = named_.size() - 1;
  return others == 0 ? first : first + " and " + std::to_string(others) + " more";
}

std::vector<fs::path> price_files(const PriceSource& source) {
  std::map<std::string, fs::path> files;
  const auto add = [&files](const fs::path& path) {
    const auto [entry, is_new] = files.emplace(identity(path), path);
    // Of two ways to one file the same is told in messages, whichever was named first.
    if (!is_new && path < entry->second) entry->second = path;
  };
  if (source.empty()) {
    throw UnreadablePrices({}, "no price file is named", "name one, or a folder of them");
  }
  for (const fs::path& path : source.named()) {
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) {
      add(path);
      continue;
    }
    for (const fs::path& file : files_in(path))
      add(file);
  }
  std::vector<fs::path> sorted;
  sorted.reserve(files.size());
  for (const auto& [name, path] : files)
    sorted.push_back(path);
  return sorted;
}

}  // namespace varnholt::embedded
