// Which process a run belongs to, in a form that stays valid after the process is gone.
//
// A process id alone names whichever process has it now. With the moment of the process's start and
// the boot of the machine it names one process for ever; the id holds within one namespace only, so
// that is kept too (two containers may share a store).
#pragma once

#include <cstdint>
#include <string>

namespace varnholt::embedded {

struct ProcessIdentity {
  std::int64_t pid = 0;
  // Clock ticks between the boot and the start of the process: field 22 of /proc/PID/stat.
  std::int64_t started_ticks = 0;
  // /proc/sys/kernel/random/boot_id. Empty where it cannot be read.
  std::string boot_id;
  // What /proc/self/ns/pid links to.
  std::string pid_namespace;
};

enum class Liveness {
  Alive,
  Dead,
  // It may be alive where this process cannot look: in another container, or /proc is missing.
  Unknown,
};

// This process. `proc` is where the proc file system is mounted.
[[nodiscard]] ProcessIdentity own_identity(const std::string& proc = "/proc");

// The same in a process that was forked from `parent`: machine and namespace are the parent's, so
// only what is its own is read.
[[nodiscard]] ProcessIdentity forked_identity(const ProcessIdentity& parent,
                                              const std::string& proc = "/proc");

// Whether the process is still there. A zombie is dead: it cannot go on.
[[nodiscard]] Liveness liveness(const ProcessIdentity& process, const std::string& proc = "/proc");

}  // namespace varnholt::embedded
