#include "hosts/embedded/store/lock_holders.hpp"

#include <optional>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <unistd.h>

#include "hosts/embedded/store/store_files.hpp"
#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {
namespace {

struct Lock {
  std::string kind;
  long process = 0;
  ino_t inode = 0;
};

// A line of the kernel's table: "2: POSIX  ADVISORY  WRITE 4711 fe:01:1234 120 120". One of
// somebody who waits has an arrow behind its number, and is none of these.
std::optional<Lock> lock_in(const std::string& line) {
  std::istringstream words(line);
  std::string number;
  std::string family;
  std::string strictness;
  std::string file;
  Lock lock;
  if (!(words >> number >> family >> strictness >> lock.kind >> lock.process >> file)) {
    return std::nullopt;
  }
  const std::size_t colon = file.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  std::istringstream inode(file.substr(colon + 1));
  return inode >> lock.inode ? std::optional(lock) : std::nullopt;
}

std::string described(long process, const std::string& proc) {
  std::string name = read_file(fmt::format("{}/{}/comm", proc, process)).bytes;
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name.empty() ? fmt::format("process {}", process)
                      : fmt::format("process {} ({})", process, name);
}

}  // namespace

std::string lock_holders(const std::filesystem::path& store, const std::string& proc) {
  std::set<ino_t> inodes;
  for (const std::filesystem::path& file : files_of_store(store)) {
    if (const auto identity = identity_of(file.string())) inodes.insert(identity->inode);
  }
  std::set<long> processes;
  std::istringstream lines(read_file(proc + "/locks").bytes);
  for (std::string line; std::getline(lines, line);) {
    const std::optional<Lock> lock = lock_in(line);
    if (!lock || lock->kind != "WRITE" || lock->process <= 0) continue;
    if (lock->process != ::getpid() && inodes.contains(lock->inode)) {
      processes.insert(lock->process);
    }
  }
  std::string text;
  for (const long process : processes)
    text += (text.empty() ? "" : ", ") + described(process, proc);
  return text;
}

}  // namespace varnholt::embedded
