// The frame in which a worker hands over its result through a pipe.
//
// Only a whole frame is a result. All numbers are little-endian:
//
//   offset  bytes
//        0      8  magic "VGFRAME1"
//        8      4  kind: 1 result, 2 error raised by the work, 3 worker could not be prepared,
//                  4 worker could not be given its priority
//       12      4  attempt
//       16      8  index of the work item
//       24      8  length of the payload in bytes
//       32      8  checksum: FNV-1a, 64 bits, over the 32 bytes before it and then the payload
//       40         payload
//
// FNV-1a is by Fowler, Noll and Vo (public domain); offset basis 14695981039346656037, prime
// 1099511628211. It finds damage, not malice: worker and parent are the same program.
//
// The payload of kinds 2, 3 and 4 is the type name's length (4 bytes), the type name, and the text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varnholt::embedded {

inline constexpr std::size_t kFrameHeaderBytes = 40;

enum class FrameKind : std::uint32_t { Result = 1, Error = 2, NotPrepared = 3, PriorityFailed = 4 };

// Which piece of work a frame belongs to.
struct FrameAddress {
  std::uint64_t index = 0;
  std::uint32_t attempt = 0;

  friend bool operator==(const FrameAddress&, const FrameAddress&) = default;
};

using FrameHeader = std::array<char, kFrameHeaderBytes>;

// The header that goes before `payload`. Allocates nothing and cannot fail.
[[nodiscard]] FrameHeader frame_header(FrameKind kind, const FrameAddress& address,
                                       std::string_view payload) noexcept;

// An error as it travels: the name of the exception's type, and its text.
struct FrameError {
  std::string type;
  std::string text;
};

[[nodiscard]] std::string encode_error(std::string_view type, std::string_view text);
// Absent where the payload is no error payload.
[[nodiscard]] std::optional<FrameError> decode_error(std::string_view payload);

// Takes the bytes of one pipe as they come and puts one frame together. Memory grows with the bytes
// that really came, not with the length that a header claims.
class FrameDecoder {
 public:
  enum class State { Incomplete, Whole, Damaged };

  // Frames for another address, and payloads above the limit, are damage.
  FrameDecoder(const FrameAddress& expected, std::uint64_t payload_limit_bytes) noexcept
      : expected_(expected), payload_limit_bytes_(payload_limit_bytes) {}

  // Returns the bytes behind the frame's end, which are not looked at.
  std::string_view absorb(std::string_view bytes);
  // The same where one frame is all that comes.
  State feed(std::string_view bytes) {
    absorb(bytes);
    return state_;
  }

  [[nodiscard]] State state() const noexcept { return state_; }
  // What is wrong, for people. Only while Damaged.
  [[nodiscard]] const std::string& damage() const noexcept { return damage_; }
  [[nodiscard]] bool received_nothing() const noexcept {
    return header_size_ == 0 && state_ == State::Incomplete;
  }
  // How far an incomplete frame came, for people: "12 of 400 bytes".
  [[nodiscard]] std::string progress() const;

  // Only while Whole.
  [[nodiscard]] FrameKind kind() const noexcept { return kind_; }
  [[nodiscard]] std::string take_payload() noexcept { return std::move(payload_); }

 private:
  void read_header();
  void check_whole();
  void fail(std::string damage);

  FrameAddress expected_;
  std::uint64_t payload_limit_bytes_;
  State state_ = State::Incomplete;
  FrameHeader header_{};
  std::size_t header_size_ = 0;
  FrameKind kind_ = FrameKind::Result;
  std::uint64_t length_ = 0;
  std::uint64_t checksum_ = 0;
  std::string payload_;
  std::string damage_;
};

}  // namespace varnholt::embedded
