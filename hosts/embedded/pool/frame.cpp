#include "hosts/embedded/pool/frame.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

constexpr std::string_view kMagic = "VGFRAME1";
constexpr std::size_t kKindOffset = 8;
constexpr std::size_t kAttemptOffset = 12;
constexpr std::size_t kIndexOffset = 16;
constexpr std::size_t kLengthOffset = 24;
constexpr std::size_t kChecksumOffset = 32;
constexpr std::size_t kTypeLengthBytes = 4;

constexpr std::uint64_t kFnvOffsetBasis = 14695981039346656037U;
constexpr std::uint64_t kFnvPrime = 1099511628211U;

std::uint64_t checksum(std::uint64_t state, std::string_view bytes) noexcept {
  for (const char byte : bytes) {
    state = (state ^ static_cast<unsigned char>(byte)) * kFnvPrime;
  }
  return state;
}

template <typename Number>
void put(char* place, Number number) noexcept {
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    place[i] = static_cast<char>(static_cast<unsigned char>(number >> (8 * i)));
  }
}

template <typename Number>
Number get(const char* place) noexcept {
  Number number = 0;
  for (std::size_t i = sizeof(Number); i-- > 0;) {
    number = static_cast<Number>(number << 8) | static_cast<unsigned char>(place[i]);
  }
  return number;
}

}  // namespace

FrameHeader frame_header(FrameKind kind, const FrameAddress& address,
                         std::string_view payload) noexcept {
  FrameHeader header{};
  std::copy(kMagic.begin(), kMagic.end(), header.begin());
  put(header.data() + kKindOffset, static_cast<std::uint32_t>(kind));
  put(header.data() + kAttemptOffset, address.attempt);
  put(header.data() + kIndexOffset, address.index);
  put(header.data() + kLengthOffset, static_cast<std::uint64_t>(payload.size()));
  const std::uint64_t of_header =
      checksum(kFnvOffsetBasis, std::string_view(header.data(), kChecksumOffset));
  put(header.data() + kChecksumOffset, checksum(of_header, payload));
  return header;
}

std::string encode_error(std::string_view type, std::string_view text) {
  std::string payload(kTypeLengthBytes, '\0');
  put(payload.data(), static_cast<std::uint32_t>(type.size()));
  payload += type;
  payload += text;
  return payload;
}

std::optional<FrameError> decode_error(std::string_view payload) {
  if (payload.size() < kTypeLengthBytes) return std::nullopt;
  const std::size_t length = get<std::uint32_t>(payload.data());
  payload.remove_prefix(kTypeLengthBytes);
  if (payload.size() < length) return std::nullopt;
  return FrameError{std::string(payload.substr(0, length)), std::string(payload.substr(length))};
}

std::string_view FrameDecoder::absorb(std::string_view bytes) {
  if (state_ != State::Incomplete) return bytes;
  if (header_size_ < kFrameHeaderBytes) {
    const std::size_t taken = std::min(bytes.size(), kFrameHeaderBytes - header_size_);
    std::copy_n(bytes.begin(), taken, header_.begin() + static_cast<std::ptrdiff_t>(header_size_));
    header_size_ += taken;
    bytes.remove_prefix(taken);
    if (header_size_ < kFrameHeaderBytes) return bytes;
    read_header();
    if (state_ != State::Incomplete) return bytes;
  }
  const std::uint64_t missing = length_ - payload_.size();
  const std::string_view own = bytes.substr(0, std::min<std::uint64_t>(bytes.size(), missing));
  payload_.append(own);
  checksum_ = checksum(checksum_, own);
  if (payload_.size() == length_) check_whole();
  return bytes.substr(own.size());
}

void FrameDecoder::read_header() {
  if (std::string_view(header_.data(), kMagic.size()) != kMagic) {
    return fail("it does not begin with a frame's mark");
  }
  const FrameAddress address{get<std::uint64_t>(header_.data() + kIndexOffset),
                             get<std::uint32_t>(header_.data() + kAttemptOffset)};
  if (address != expected_) {
    return fail(fmt::format("it is for item {} attempt {}, not for item {} attempt {}",
                            address.index, address.attempt, expected_.index, expected_.attempt));
  }
  const auto kind = get<std::uint32_t>(header_.data() + kKindOffset);
  if (kind < static_cast<std::uint32_t>(FrameKind::Result) ||
      kind > static_cast<std::uint32_t>(FrameKind::PriorityFailed)) {
    return fail(fmt::format("its kind {} is unknown", kind));
  }
  kind_ = static_cast<FrameKind>(kind);
  length_ = get<std::uint64_t>(header_.data() + kLengthOffset);
  if (length_ > payload_limit_bytes_) {
    return fail(fmt::format("its length of {} bytes is above the limit of {} bytes", length_,
                            payload_limit_bytes_));
  }
  checksum_ = checksum(kFnvOffsetBasis, std::string_view(header_.data(), kChecksumOffset));
}

void FrameDecoder::check_whole() {
  if (checksum_ != get<std::uint64_t>(header_.data() + kChecksumOffset)) {
    return fail("its checksum is wrong");
  }
  state_ = State::Whole;
}

void FrameDecoder::fail(std::string damage) {
  damage_ = std::move(damage);
  payload_.clear();
  state_ = State::Damaged;
}

std::string FrameDecoder::progress() const {
  if (header_size_ < kFrameHeaderBytes) {
    return fmt::format("{} of at least {} bytes", header_size_, kFrameHeaderBytes);
  }
  return fmt::format("{} of {} bytes", kFrameHeaderBytes + payload_.size(),
                     kFrameHeaderBytes + length_);
}

}  // namespace varnholt::embedded
