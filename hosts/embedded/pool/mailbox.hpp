// Messages from the parent to one child at a time, through memory that both share.
//
// A pipe for each candidate of a large batch would take two descriptors each, and every fork would
// copy them all. A mailbox takes none, and the kernel copies no page of shared memory in a fork.
//
// There is one writer, the parent, and at any time at most one reader. A message stays until it is
// taken whole: one whose reader was killed before that is met by the next reader, as in a pipe. No
// lock is involved that could die with its holder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/pool/system_calls.hpp"

namespace varnholt::embedded {

inline constexpr std::size_t kMailboxBytes = 4096;

class Mailbox {
 public:
  // `page` is kMailboxBytes of shared memory, zero at first, which outlives the mailbox.
  Mailbox(SystemCalls& system, void* page) noexcept;

  // Never waits. False when the messages that have not been taken leave no room for this one.
  [[nodiscard]] bool put(std::string_view message);
  // Waits for a message, without a limit: whoever forked the reader ends it when its time is over.
  [[nodiscard]] std::string take();

 private:
  struct Page;

  // Both return the place behind the bytes.
  std::uint32_t copy_in(std::uint32_t place, std::string_view bytes);
  std::uint32_t copy_out(std::uint32_t place, char* bytes, std::size_t size) const;

  SystemCalls& system_;
  Page* page_;
};

// Makes mailboxes in blocks of shared memory, which are given back with the object. Processes that
// were forked meanwhile keep their view of them.
class MailboxArena {
 public:
  explicit MailboxArena(SystemCalls& system) : system_(system) {}
  MailboxArena(const MailboxArena&) = delete;
  MailboxArena& operator=(const MailboxArena&) = delete;
  ~MailboxArena();

  // PoolError when the system has no memory for it.
  [[nodiscard]] Mailbox make();

 private:
  SystemCalls& system_;
  std::vector<void*> blocks_;
  std::size_t used_in_last_ = 0;
};

}  // namespace varnholt::embedded
