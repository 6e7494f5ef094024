// The files of a store: the one that its name leads to, those that the database keeps beside it,
// and what no change of names can hide about them.
//
// A store that is moved, deleted or replaced while it is open goes on to be written, in a file that
// nobody will look for. And a file with two names has two logs, one beside each name: two users of
// different names damage it. Both are noticed before something is written.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace varnholt::embedded {

struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  // How many names it has.
  nlink_t names = 0;

  [[nodiscard]] bool is_same_file(const FileIdentity& other) const {
    return device == other.device && inode == other.inode;
  }
};

// Of the file that the name leads to; nothing where there is none.
[[nodiscard]] std::optional<FileIdentity> identity_of(const std::string& path);

// Makes an empty file that only its owner may read and write. False where the name is taken, or
// where it cannot be made: whoever opens it then says why.
[[nodiscard]] bool make_private_file(const std::string& path);

// Whether another process holds a lock on the file, as every user of a store does.
[[nodiscard]] bool is_used_by_others(const std::string& path);

// The file of a store and those that the database keeps beside it, whether they are there or not:
// beside the name that is given, and beside the one that it is a link to. What is not in the file
// yet lies in them, so no output may replace one.
[[nodiscard]] std::vector<std::filesystem::path> files_of_store(const std::filesystem::path& path);

// The database that keeps, or would keep, a file of this name beside itself.
[[nodiscard]] std::optional<std::filesystem::path> database_beside(
    const std::filesystem::path& path);

}  // namespace varnholt::embedded
