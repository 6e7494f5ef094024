#include "hosts/embedded/store/store_files.hpp"

#include <array>
#include <fstream>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnholt::embedded {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
constexpr std::array<std::string_view, 3> kSuffixes = {"-wal", "-shm", "-journal"};
// With which every database begins.
constexpr std::string_view kDatabaseMark = "SQLite format 3";

bool is_database(const fs::path& path) {
  std::error_code ignored;  // What cannot be looked at is none.
  if (!fs::is_regular_file(path, ignored)) return false;
  std::string begin(kDatabaseMark.size(), '\0');
  std::ifstream(path, std::ios::binary)
      .read(begin.data(), static_cast<std::streamsize>(begin.size()));
  return begin == kDatabaseMark;
}

}  // namespace

std::optional<FileIdentity> identity_of(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino, status.st_nlink};
}

bool make_private_file(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly);
  if (descriptor < 0) return false;
  ::close(descriptor);
  return true;
}

bool is_used_by_others(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor < 0) return false;
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  // Where it cannot be told, somebody may.
  const bool is_free = ::fcntl(descriptor, F_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
  ::close(descriptor);
  return !is_free;
}

std::vector<fs::path> files_of_store(const fs::path& path) {
  std::error_code error;
  const fs::path target = fs::weakly_canonical(path, error);
  std::vector<fs::path> files;
  for (const fs::path& name : {path, error ? path : target}) {
    files.push_back(name);
    for (const std::string_view suffix : kSuffixes) {
      files.push_back(name);
      files.back() += suffix;
    }
  }
  return files;
}

std::optional<fs::path> database_beside(const fs::path& path) {
  const std::string name = path.string();
  for (const std::string_view suffix : kSuffixes) {
    if (!name.ends_with(suffix)) continue;
    const fs::path database = name.substr(0, name.size() - suffix.size());
    if (is_database(database)) return database;
  }
  return std::nullopt;
}

}  // namespace varnholt::embedded
