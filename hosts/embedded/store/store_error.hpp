// The errors of the store.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace varnholt::embedded {

// Names the file, what was being done and why it failed, and the remedy:
// "store /data/runs.db: recording evaluations failed: database is locked; another process is ...".
class StoreError : public std::runtime_error {
 public:
  StoreError(const std::string& path, std::string_view trouble, std::string_view remedy)
      : std::runtime_error(
            std::string("store ").append(path).append(": ").append(trouble).append("; ").append(
                remedy)) {}
};

// Another process holds the lock, and the time to wait for it is over. Nothing of the call is in
// the file; the same call may succeed later.
class StoreBusyError : public StoreError {
 public:
  using StoreError::StoreError;
};

// The machine refused: the disk is full or damaged, a limit is reached, memory is short. The file
// is not to blame, and the same call may succeed later.
class StoreDiskError : public StoreError {
 public:
  using StoreError::StoreError;
};

}  // namespace varnholt::embedded
