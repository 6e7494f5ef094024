// Digests that name what was read and what was found.
#pragma once

#include <filesystem>
#include <string>

#include "search_templates/genetic/value/digest.hpp"

namespace varnholt::embedded {

using genetic::sha256_hex;

// The same digest of a file's bytes. std::runtime_error when it cannot be read.
[[nodiscard]] std::string file_sha256_hex(const std::filesystem::path& path);

}  // namespace varnholt::embedded
