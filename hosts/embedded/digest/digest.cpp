#include "hosts/embedded/digest/digest.hpp"

#include <array>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fmt/format.h>
#include <openssl/evp.h>

namespace varnholt::embedded {

std::string sha256_hex(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not to be had from libcrypto");
  }
  std::string text;
  for (unsigned int i = 0; i < size; ++i)
    text += fmt::format("{:02x}", digest[i]);
  return text;
}

std::string file_sha256_hex(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.eof() && file.fail()) {
    throw std::runtime_error("cannot read " + path.string() + " to its end");
  }
  return sha256_hex(bytes);
}

}  // namespace varnholt::embedded
