#include "search_templates/genetic/value/digest.hpp"

#include <array>

#include <openssl/evp.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {

std::string sha256_hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw RuntimeError("SHA-256 is not to be had from libcrypto");
  }
  std::string text;
  text.reserve(2 * std::size_t{size});
  for (unsigned int i = 0; i < size; ++i) {
    text += kDigits[digest[i] >> 4U];
    text += kDigits[digest[i] & 0xFU];
  }
  return text;
}

}  // namespace varnholt::genetic
