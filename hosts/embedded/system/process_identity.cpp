#include "hosts/embedded/system/process_identity.hpp"

#include <filesystem>
#include <optional>
#include <sstream>
#include <system_error>

#include <unistd.h>

#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {
namespace {

// Empty where the file cannot be read.
std::string read_line(const std::string& path) {
  const std::string text = read_file(path).bytes;
  return text.substr(0, text.find('\n'));
}

std::string read_link(const std::string& path) {
  std::error_code error;
  const std::filesystem::path target = std::filesystem::read_symlink(path, error);
  return error ? std::string() : target.string();
}

struct ProcessState {
  char state = '?';
  std::int64_t started_ticks = 0;
};

// proc(5): "pid (name) state ...", where the name may hold blanks and brackets itself, and the
// start is field 22.
std::optional<ProcessState> read_state(const std::string& path) {
  const std::string text = read_file(path).bytes;
  const std::size_t name_end = text.rfind(')');
  if (name_end == std::string::npos) return std::nullopt;
  std::istringstream fields(text.substr(name_end + 1));
  ProcessState found;
  fields >> found.state;
  std::string skipped;
  for (int field = 4; field < 22; ++field) {
    fields >> skipped;
  }
  fields >> found.started_ticks;
  if (!fields) return std::nullopt;
  return found;
}

}  // namespace

ProcessIdentity own_identity(const std::string& proc) {
  ProcessIdentity own;
  own.pid = ::getpid();
  own.boot_id = read_line(proc + "/sys/kernel/random/boot_id");
  own.pid_namespace = read_link(proc + "/self/ns/pid");
  if (const auto state = read_state(proc + "/self/stat")) own.started_ticks = state->started_ticks;
  return own;
}

ProcessIdentity forked_identity(const ProcessIdentity& parent, const std::string& proc) {
  ProcessIdentity own = parent;
  own.pid = ::getpid();
  const auto state = read_state(proc + "/self/stat");
  own.started_ticks = state ? state->started_ticks : 0;
  return own;
}

Liveness liveness(const ProcessIdentity& process, const std::string& proc) {
  const ProcessIdentity own = own_identity(proc);
  if (own.boot_id.empty() || process.boot_id.empty()) return Liveness::Unknown;
  if (process.boot_id != own.boot_id) return Liveness::Dead;
  if (process.pid_namespace != own.pid_namespace) return Liveness::Unknown;
  const auto state = read_state(proc + "/" + std::to_string(process.pid) + "/stat");
  if (!state || state->started_ticks != process.started_ticks) return Liveness::Dead;
  return state->state == 'Z' || state->state == 'X' ? Liveness::Dead : Liveness::Alive;
}

}  // namespace varnholt::embedded
