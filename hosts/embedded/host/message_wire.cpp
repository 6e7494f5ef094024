#include "hosts/embedded/host/message_wire.hpp"

#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Kind;
using genetic::Tuple;
using genetic::Value;

namespace {

// One byte tells what an item is; its bytes follow, a text's after their number.
constexpr char kAbsent = 'n';
constexpr char kTrue = 't';
constexpr char kFalse = 'f';
constexpr char kInteger = 'i';
constexpr char kReal = 'r';
constexpr char kText = 's';

template <typename Number>
void append_bytes(std::string& bytes, Number number) {
  bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

std::string_view cut(std::string_view text) {
  if (text.size() <= kLongestMessageText) return text;
  std::size_t end = kLongestMessageText;
  // Bytes 10xxxxxx go on with a character of UTF-8.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U)
    --end;
  return text.substr(0, end);
}

void append_item(std::string& bytes, const Value& item) {
  switch (item.kind()) {
    case Kind::kAbsent:
      bytes += kAbsent;
      return;
    case Kind::kBoolean:
      bytes += item.boolean() ? kTrue : kFalse;
      return;
    case Kind::kInteger:
      bytes += kInteger;
      return append_bytes(bytes, item.integer());
    case Kind::kReal:
      bytes += kReal;
      return append_bytes(bytes, item.real());
    case Kind::kText: {
      const std::string_view text = cut(item.text());
      bytes += kText;
      append_bytes(bytes, static_cast<std::uint32_t>(text.size()));
      bytes += text;
      return;
    }
    default:
      throw genetic::TypeError("a message between processes holds no value of type '" +
                               genetic::type_name(item) + "'");
  }
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  [[nodiscard]] bool is_at_end() const { return rest_.empty(); }

  Value item() {
    switch (take(1).front()) {
      case kAbsent:
        return {};
      case kTrue:
        return true;
      case kFalse:
        return false;
      case kInteger:
        return number<std::int64_t>();
      case kReal:
        return number<double>();
      case kText:
        return take(number<std::uint32_t>());
      default:
        throw genetic::ValueError("a message of bytes that are none");
    }
  }

 private:
  std::string_view take(std::size_t size) {
    if (size > rest_.size()) throw genetic::ValueError("a message that ends too soon");
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
  }
  template <typename Number>
  Number number() {
    Number number{};
    std::memcpy(&number, take(sizeof(number)).data(), sizeof(number));
    return number;
  }

  std::string_view rest_;
};

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
  Reader reader(bytes);
  std::vector<Value> items;
  while (!reader.is_at_end())
    items.push_back(reader.item());
  return Tuple(std::span<const Value>(items));
}

}  // namespace varnholt::embedded
