// Digests of texts.
#pragma once

#include <string>
#include <string_view>

namespace varnholt::genetic {

// SHA-256 (FIPS 180-4) of the bytes in lower-case hexadecimal digits, 64 of them.
// RuntimeError when the cryptographic library refuses to compute it.
[[nodiscard]] std::string sha256_hex(std::string_view bytes);

}  // namespace varnholt::genetic
