// Digests that name what was read and what was found.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace varnholt::embedded {

// SHA-256 (FIPS 180-4) in lower-case hexadecimal digits. std::runtime_error when it cannot be had.
[[nodiscard]] std::string sha256_hex(std::string_view bytes);

// The digest of a file's bytes. std::runtime_error when it cannot be read.
[[nodiscard]] std::string file_sha256_hex(const std::filesystem::path& path);

}  // namespace varnholt::embedded
