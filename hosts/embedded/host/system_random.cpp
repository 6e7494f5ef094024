#include "hosts/embedded/host/system_random.hpp"

#include <cerrno>
#include <system_error>

#include <sys/random.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded {
namespace {

std::uint64_t system_random_bits() {
  std::uint64_t bits = 0;
  while (getrandom(&bits, sizeof(bits), 0) != static_cast<ssize_t>(sizeof(bits))) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(),
                              "the operating system gives no random bits");
    }
  }
  return bits;
}

}  // namespace

std::uint64_t SystemRandom::randbits(int count) {
  if (count < 0 || count > 64) throw genetic::ValueError("random bits are drawn 0 to 64 at a time");
  if (count == 0) return 0;
  return (fixed_ ? *fixed_ : system_random_bits()) & (~std::uint64_t{0} >> (64 - count));
}

}  // namespace varnholt::embedded
