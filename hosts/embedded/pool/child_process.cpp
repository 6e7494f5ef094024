#include "hosts/embedded/pool/child_process.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>
#include <typeinfo>

#include <cxxabi.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "hosts/embedded/pool/descriptor.hpp"
#include "search_templates/genetic/value/errors.hpp"

#ifdef VARNHOLT_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace varnholt::embedded {
namespace {

constexpr int kExitDone = 0;
// EX_IOERR and EX_OSERR of sysexits.h.
constexpr int kExitUnwritten = 74;
constexpr int kExitNotPrepared = 71;

constexpr std::size_t kAtomicWriteBytes = 4096;
constexpr std::size_t kErrorTextLimit = 64 * 1024;
constexpr std::string_view kOutOfMemory = "std::bad_alloc";
constexpr std::string_view kSetPriority = "setpriority";

[[noreturn]] void leave(int status) noexcept {
#ifdef VARNHOLT_COVERAGE
  __gcov_dump();
#endif
  ::_exit(status);
}

// Where the answer to one item goes.
struct Reply {
  SystemCalls& system;
  int pipe = -1;
  FrameAddress address;
};

Reply reply_to(SystemCalls& system, const ChildPlan& plan, const WorkItem& item) noexcept {
  return {system, plan.result_pipe, frame_address(item)};
}

int send_frame(const Reply& reply, FrameKind kind, std::string_view payload) noexcept {
  const FrameHeader header = frame_header(kind, reply.address, payload);
  const std::size_t size = header.size() + payload.size();
  if (size > kAtomicWriteBytes) {
    const std::string_view head(header.data(), header.size());
    if (const int error = write_all(reply.system, reply.pipe, head); error != 0) return error;
    return write_all(reply.system, reply.pipe, payload);
  }
  // A small frame goes in one write, which a pipe takes whole or not at all.
  std::array<char, kAtomicWriteBytes> buffer{};
  char* const end = std::copy(header.begin(), header.end(), buffer.data());
  std::copy(payload.begin(), payload.end(), end);
  return write_all(reply.system, reply.pipe, std::string_view(buffer.data(), size));
}

int send_error(const Reply& reply, FrameKind kind, std::string_view type,
               std::string_view text) noexcept {
  try {
    const std::string payload = encode_error(type, text.substr(0, kErrorTextLimit));
    return send_frame(reply, kind, payload);
  } catch (...) {
    // There is no memory left even for the text; the kind of the error still gets through.
    std::array<char, sizeof(std::uint32_t) + kOutOfMemory.size()> payload{};
    payload[0] = static_cast<char>(kOutOfMemory.size());
    std::copy(kOutOfMemory.begin(), kOutOfMemory.end(), payload.begin() + sizeof(std::uint32_t));
    return send_frame(reply, kind, std::string_view(payload.data(), payload.size()));
  }
}

std::string readable_type_name(const std::type_info* type) {
  if (type == nullptr) return "unknown";
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(type->name(), nullptr, nullptr, &status), &std::free);
  return status == 0 && name ? std::string(name.get()) : std::string(type->name());
}

// Inside a catch block: sends the exception that is being handled.
int send_current_exception(const Reply& reply) noexcept {
  try {
    try {
      throw;
    } catch (const genetic::Error& error) {
      return send_error(reply, FrameKind::Error, error.type_name(), error.text());
    } catch (const std::exception& error) {
      const std::string type = readable_type_name(abi::__cxa_current_exception_type());
      return send_error(reply, FrameKind::Error, type, error.what());
    } catch (...) {
      const std::string type = readable_type_name(abi::__cxa_current_exception_type());
      return send_error(reply, FrameKind::Error, type, "");
    }
  } catch (...) {
    return send_error(reply, FrameKind::Error, kOutOfMemory, "");
  }
}

enum class Answer { Result, Error, Unwritten };

Answer answer_of(Answer written, int error) noexcept {
  return error == 0 ? written : Answer::Unwritten;
}

// Works on one item and sends what comes of it.
Answer answer(SystemCalls& system, const ChildPlan& plan, const WorkItem& item,
              const Work& work) noexcept {
  const Reply reply = reply_to(system, plan, item);
  try {
    const std::string payload = work(item);
    if (payload.size() <= plan.result_limit_bytes) {
      return answer_of(Answer::Result, send_frame(reply, FrameKind::Result, payload));
    }
    const std::string text = fmt::format("a result of {} bytes is above the limit of {} bytes",
                                         payload.size(), plan.result_limit_bytes);
    return answer_of(Answer::Error, send_error(reply, FrameKind::Error, "ResultTooLarge", text));
  } catch (...) {
    return answer_of(Answer::Error, send_current_exception(reply));
  }
}

std::string_view reset_signals(const ChildPlan& plan) noexcept {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (const int signal : plan.changed_signals) {
    if (::sigaction(signal, &action, nullptr) != 0) return "sigaction";
  }
  if (::sigaction(SIGTERM, &action, nullptr) != 0) return "sigaction";
  action.sa_handler = SIG_IGN;
  if (::sigaction(SIGINT, &action, nullptr) != 0) return "sigaction";
  // Only now: a Ctrl-C that came since the fork is dropped here, and no handler of the parent ran.
  sigset_t none;
  ::sigemptyset(&none);
  if (::sigprocmask(SIG_SETMASK, &none, nullptr) != 0) return "sigprocmask";
  return {};
}

bool limit(SystemCalls& system, int resource, rlim_t soft, rlim_t hard) noexcept {
  rlimit present{};
  if (::getrlimit(static_cast<__rlimit_resource>(resource), &present) != 0) return false;
  // A limit is only ever lowered: raising the hard one is a privilege.
  rlimit wanted{};
  wanted.rlim_max = std::min<rlim_t>(hard, present.rlim_max);
  wanted.rlim_cur = std::min<rlim_t>(soft, wanted.rlim_max);
  return system.setrlimit(resource, wanted) == 0;
}

std::string_view set_limits(SystemCalls& system, const ChildLimits& limits) noexcept {
  if (limits.memory_bytes &&
      !limit(system, RLIMIT_AS, *limits.memory_bytes, *limits.memory_bytes)) {
    return "setrlimit for memory";
  }
  if (limits.cpu_seconds &&
      !limit(system, RLIMIT_CPU, *limits.cpu_seconds, *limits.cpu_seconds + 1)) {
    return "setrlimit for processor time";
  }
  if (limits.file_bytes && !limit(system, RLIMIT_FSIZE, *limits.file_bytes, *limits.file_bytes)) {
    return "setrlimit for file size";
  }
  return {};
}

bool take_input_from_nothing() noexcept {
  Descriptor nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (!nothing.is_open()) return false;
  if (nothing.number() != STDIN_FILENO) return ::dup2(nothing.number(), STDIN_FILENO) >= 0;
  // Standard input was closed in the parent, and /dev/null has got its number already.
  static_cast<void>(nothing.release());
  return ::fcntl(STDIN_FILENO, F_SETFD, 0) == 0;
}

// Returns the name of the call that failed, with errno as it left it; empty when all is well.
std::string_view prepare(SystemCalls& system, const ChildPlan& plan) noexcept {
  if (system.setpgid(0, 0) != 0) return "setpgid";
  if (system.set_parent_death_signal(SIGKILL) != 0) return "prctl(PR_SET_PDEATHSIG)";
  // The parent may have died before the call above, and then no signal will ever come.
  if (::getppid() != plan.parent) leave(kExitNotPrepared);
  for (const int descriptor : plan.foreign_descriptors) {
    ::close(descriptor);
  }
  if (const std::string_view failed = reset_signals(plan); !failed.empty()) return failed;
  if (plan.nice && system.setpriority(*plan.nice) != 0) return kSetPriority;
  if (const std::string_view failed = set_limits(system, plan.limits); !failed.empty()) {
    return failed;
  }
  if (!take_input_from_nothing()) return "opening /dev/null";
  return {};
}

}  // namespace

FrameAddress frame_address(const WorkItem& item) noexcept {
  return {static_cast<std::uint64_t>(item.index), static_cast<std::uint32_t>(item.attempt)};
}

void run_child(SystemCalls& system, const ChildPlan& plan, const Work& work) noexcept {
  if (const std::string_view failed = prepare(system, plan); !failed.empty()) {
    const int number = errno;
    const std::string text =
        fmt::format("{} failed with errno {} ({})", failed, number, std::strerror(number));
    const FrameKind kind =
        failed == kSetPriority ? FrameKind::PriorityFailed : FrameKind::NotPrepared;
    static_cast<void>(send_error(reply_to(system, plan, plan.items.front()), kind, "", text));
    leave(kExitNotPrepared);
  }
  for (const WorkItem& item : plan.items) {
    const Answer sent = answer(system, plan, item, work);
    if (sent == Answer::Unwritten) leave(kExitUnwritten);
    // In which state an exception has left this process nobody knows.
    if (sent == Answer::Error) break;
  }
  leave(kExitDone);
}

std::vector<int> changed_signals() {
  std::vector<int> changed;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    struct sigaction action {};
    // The C library keeps some numbers for itself; those fail here, and nobody can have set them.
    if (signal == SIGKILL || signal == SIGSTOP || ::sigaction(signal, nullptr, &action) != 0) {
      continue;
    }
    if ((action.sa_flags & SA_SIGINFO) != 0 || action.sa_handler != SIG_DFL) {
      changed.push_back(signal);
    }
  }
  return changed;
}

std::string describe_exit(const siginfo_t& info) {
  if (info.si_code != CLD_EXITED) {
    const char* const name = ::sigabbrev_np(info.si_status);
    return fmt::format("worker killed by signal {}{}", info.si_status,
                       name != nullptr ? fmt::format(" (SIG{})", name) : std::string());
  }
  if (info.si_status == kExitDone) return "worker exited without a result";
  if (info.si_status == kExitUnwritten) {
    return fmt::format("worker exited with status {} (its result could not be written)",
                       info.si_status);
  }
  return fmt::format("worker exited with status {}", info.si_status);
}

}  // namespace varnholt::embedded
