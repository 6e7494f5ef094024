#include "hosts/embedded/pool/machine_check.hpp"

#include <algorithm>

#include <fmt/format.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "hosts/embedded/pool/descriptor.hpp"
#include "hosts/embedded/pool/pool_types.hpp"
#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {
namespace {

// A worker takes three descriptors, the store and the batch a few more.
constexpr std::uint64_t kFewOpenFiles = 64;
constexpr std::uint64_t kFewProcesses = 64;
constexpr std::uint64_t kLittleMemoryBytes = std::uint64_t{512} * 1024 * 1024;
constexpr std::uint64_t kBytesInMebibyte = 1024 * 1024;
constexpr double kSlowForkSeconds = 2e-3;

std::optional<std::uint64_t> soft_limit(__rlimit_resource resource) {
  rlimit limit{};
  if (::getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return std::nullopt;
  return limit.rlim_cur;
}

bool ignores_ends_of_children() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) return false;
  return ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN) ||
         (action.sa_flags & SA_NOCLDWAIT) != 0;
}

std::string kernel_name() {
  utsname names{};
  if (::uname(&names) != 0) return "unknown";
  return fmt::format("{} {}", names.sysname, names.release);
}

class Findings {
 public:
  explicit Findings(const MachineFacts& facts) : facts_(facts) {}

  std::vector<MachineFinding> collect() {
    look_at_forks();
    look_at_limits();
    look_at_memory();
    look_at_processors();
    std::stable_partition(found_.begin(), found_.end(),
                          [](const MachineFinding& finding) { return finding.prevents_searching; });
    return std::move(found_);
  }

 private:
  void prevents(std::string text, std::string remedy) {
    found_.push_back({true, std::move(text), std::move(remedy)});
  }
  void hinders(std::string text, std::string remedy) {
    found_.push_back({false, std::move(text), std::move(remedy)});
  }

  void look_at_forks() {
    if (!facts_.fork_cost) {
      prevents("no process can be forked: " + facts_.fork_failure,
               "see that the user may have more processes, and the machine has memory left");
    }
    if (facts_.ends_of_children_are_ignored) {
      prevents("SIGCHLD is ignored, so the ends of workers would be lost",
               "start the program from a shell, or with the signal's default action");
    }
    if (!facts_.threads_can_be_counted) {
      prevents("the threads of a process cannot be counted in /proc/self/task", "mount /proc");
    }
    if (!facts_.ends_of_children_can_be_polled) {
      hinders(
          "the kernel gives no descriptors of processes, so a worker's end is seen up to 5 ms "
          "late",
          "use Linux 5.3 or later, and let the sandbox allow pidfd_open");
    }
    if (facts_.fork_cost && facts_.fork_cost->lean_seconds > kSlowForkSeconds) {
      hinders(fmt::format("a fork takes {:.1f} ms even from a small process",
                          facts_.fork_cost->lean_seconds * 1e3),
              "look for a loaded machine, a virtual one without nested page tables, or a tracer");
    }
  }

  void look_at_limits() {
    if (facts_.open_files && *facts_.open_files < kFewOpenFiles) {
      hinders(fmt::format("this process may open {} files only", *facts_.open_files),
              "raise the limit: ulimit -n 1024");
    }
    if (facts_.processes && *facts_.processes < kFewProcesses) {
      hinders(fmt::format("this user may have {} processes only, those of other programs among "
                          "them",
                          *facts_.processes),
              "raise the limit: ulimit -u 1024");
    }
    if (facts_.address_space_bytes) {
      hinders(fmt::format("the address space of this process is limited to {} MiB",
                          *facts_.address_space_bytes / kBytesInMebibyte),
              "take the limit away: ulimit -v unlimited; to limit workers use --worker-memory");
    }
  }

  void look_at_memory() {
    if (!facts_.pages.are_given()) {
      const std::string cost =
          facts_.fork_cost
              ? fmt::format(
                    "; a fork takes {:.1f} ms more for every 64 MiB of prices",
                    (facts_.fork_cost->small_pages_seconds - facts_.fork_cost->lean_seconds) * 1e3)
              : std::string();
      hinders("large pages are not given" + cost,
              "as root: echo madvise > /sys/kernel/mm/transparent_hugepage/enabled");
    }
    if (facts_.memory_is_never_overcommitted) {
      hinders("memory is never overcommitted, so the fork of a large process may be refused",
              "as root: sysctl vm.overcommit_memory=0");
    }
    const auto available = facts_.limits.memory_available_bytes;
    if (available && *available < kLittleMemoryBytes) {
      hinders(fmt::format("only {} MiB of memory are available", *available / kBytesInMebibyte),
              "end other programs, raise the limit of the control group, or use fewer --jobs");
    }
  }

  void look_at_processors() {
    if (facts_.limits.processor_quota && *facts_.limits.processor_quota < 1.0) {
      hinders(fmt::format("the control group gives this process {} of one processor",
                          *facts_.limits.processor_quota),
              "raise its quota");
    }
  }

  const MachineFacts& facts_;
  std::vector<MachineFinding> found_;
};

}  // namespace

MachineFacts read_machine_facts(SystemCalls& system, const std::string& proc) {
  MachineFacts facts;
  facts.kernel = kernel_name();
  facts.limits = read_machine_limits(proc);
  facts.pages = read_large_pages(proc);
  facts.open_files = soft_limit(RLIMIT_NOFILE);
  facts.processes = soft_limit(RLIMIT_NPROC);
  facts.address_space_bytes = soft_limit(RLIMIT_AS);
  facts.memory_is_never_overcommitted =
      read_file(proc + "/sys/vm/overcommit_memory").bytes.substr(0, 1) == "2";
  facts.ends_of_children_are_ignored = ignores_ends_of_children();
  facts.threads_can_be_counted = system.thread_count() > 0;
  facts.ends_of_children_can_be_polled = Descriptor(system.pidfd_open(::getpid())).is_open();
  try {
    facts.fork_cost = measure_fork_cost(system);
  } catch (const PoolError& error) {
    facts.fork_failure = error.what();
  }
  return facts;
}

std::vector<MachineFinding> machine_findings(const MachineFacts& facts) {
  return Findings(facts).collect();
}

}  // namespace varnholt::embedded
