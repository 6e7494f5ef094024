#include "apps/genetic_search/terminal.hpp"

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace varnholt::app {

bool is_live_terminal(int descriptor) {
  if (isatty(descriptor) == 0) return false;
  const char* const terminal = std::getenv("TERM");
  return terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::size_t terminal_width(int descriptor) {
  winsize size = {};
  if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualWidth;
  return size.ws_col;
}

void fill_standard_descriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest free number is given, which is this one. It is opened for the direction in which
    // it is not used.
    const int flags = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (open("/dev/null", flags) != descriptor) {
      throw std::system_error(errno, std::generic_category(), "cannot open /dev/null");
    }
  }
}

}  // namespace varnholt::app
