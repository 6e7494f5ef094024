// Who keeps others from a store.
#pragma once

#include <filesystem>
#include <string>

namespace varnholt::embedded {

// The processes that hold a lock against others on one of the store's files, but for this one:
// "process 4711 (sqlite3)". Empty where the kernel does not tell, as of those in other containers.
[[nodiscard]] std::string lock_holders(const std::filesystem::path& store,
                                       const std::string& proc = "/proc");

}  // namespace varnholt::embedded
