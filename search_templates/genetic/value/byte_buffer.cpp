#include "search_templates/genetic/value/byte_buffer.hpp"

#include <utility>

namespace varnholt::genetic {

void ByteBuffer::grow(std::size_t count) {
  const std::string_view written = view();
  std::vector<char> room((written.size() + count) * 2);
  std::memcpy(room.data(), written.data(), written.size());
  end_ = room.data() + written.size();
  limit_ = room.data() + room.size();
  larger_room_ = std::move(room);
}

}  // namespace varnholt::genetic
