// A growing buffer of bytes for texts and keys that are assembled from many small parts. It begins
// on the stack, where nearly all of them fit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class ByteBuffer {
 public:
  // The room is left as it is found: clearing it would cost more than most keys do.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
  ByteBuffer() noexcept : end_(first_room_), limit_(first_room_ + sizeof(first_room_)) {}
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;
  ~ByteBuffer() = default;

  [[nodiscard]] std::string_view view() const noexcept {
    return {begin(), static_cast<std::size_t>(end_ - begin())};
  }

  void append(char byte) {
    char* const next = room(1);
    *next = byte;
    end_at(next + 1);
  }
  void append(std::string_view bytes) {
    char* const next = room(bytes.size());
    std::memcpy(next, bytes.data(), bytes.size());
    end_at(next + bytes.size());
  }

  // Room for `count` more bytes behind the end. What is written there counts up to where end_at()
  // then sets the end, so that parts that belong together need one check of the capacity.
  [[nodiscard]] char* room(std::size_t count) {
    if (static_cast<std::size_t>(limit_ - end_) < count) grow(count);
    return end_;
  }
  void end_at(char* end) noexcept { end_ = end; }
  void clear() noexcept { end_ -= view().size(); }

  // The room that put_text takes for a text of this size.
  [[nodiscard]] static constexpr std::size_t text_room(std::size_t size) noexcept {
    return size + detail::kShortTextRoom;
  }
  // Writes the characters of a text value, a short text with the room behind it at a fixed size,
  // and returns where they end. `text` must be what Value::text gives.
  static char* put_text(char* to, std::string_view text) noexcept {
    std::memcpy(to, text.data(), detail::kShortTextRoom);
    if (text.size() > detail::kShortTextRoom) std::memcpy(to, text.data(), text.size());
    return to + text.size();
  }

 private:
  void grow(std::size_t count);
  [[nodiscard]] const char* begin() const noexcept {
    return larger_room_.empty() ? first_room_ : larger_room_.data();
  }

  char* end_;
  char* limit_;
  std::vector<char> larger_room_;
  char first_room_[4096];  // Not initialised: only what is written is read.
};

}  // namespace varnholt::genetic
