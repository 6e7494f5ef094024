#include "hosts/embedded/host/message_wire.hpp"

#include <span>
#include <vector>

#include "hosts/embedded/host/value_wire.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Tuple;
using genetic::Value;

namespace {

std::string_view cut(std::string_view text) {
  if (text.size() <= kLongestMessageText) return text;
  std::size_t end = kLongestMessageText;
  // Bytes 10xxxxxx go on with a character of UTF-8.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U)
    --end;
  return text.substr(0, end);
}

void append_item(std::string& bytes, const Value& item) {
  if (append_scalar(bytes, item.is_text() ? Value(cut(item.text())) : item)) return;
  throw genetic::TypeError("a message between processes holds no value of type '" +
                           genetic::type_name(item) + "'");
}

}  // namespace

std::string encode_message(const Value& message) {
  if (!message.is_tuple()) {
    throw genetic::TypeError("a message between processes is a tuple, not a value of type '" +
                             genetic::type_name(message) + "'");
  }
  std::string bytes;
  for (const Value& item : message.tuple().items())
    append_item(bytes, item);
  return bytes;
}

Value decode_message(std::string_view bytes) {
  ValueReader reader(bytes);
  std::vector<Value> items;
  while (!reader.is_at_end())
    items.push_back(reader.next());
  return Tuple(std::span<const Value>(items));
}

}  // namespace varnholt::embedded
