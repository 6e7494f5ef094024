#include "hosts/embedded/system/digest.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace varnholt::embedded {

std::string file_sha256_hex(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.eof() && file.fail()) {
    throw std::runtime_error("cannot read " + path.string() + " to its end");
  }
  return sha256_hex(bytes);
}

}  // namespace varnholt::embedded
