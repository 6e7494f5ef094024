#include "search_templates/genetic/graph/structural_key.hpp"

#include <bit>
#include <cmath>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "search_templates/genetic/graph/host_graph.hpp"
#include "search_templates/genetic/graph/plain_data.hpp"
#include "search_templates/genetic/value/byte_buffer.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// What an encoded item begins with. A byte of 0x80 or more begins a short text: its lower bits are
// the text's size, since nearly all of a graph is short texts.
enum class Tag : char {
  kAbsent = 'n',
  kInteger = 'i',  // Also a boolean, and a real without a fraction that 64 bits hold.
  kReal = 'r',
  kLongText = 't',
  kObject = 'o',
  kMapping = 'm',
  kList = 'l'
};
constexpr std::size_t kShortText = 0x80;

// Reals below this are integers of 64 bits when they have no fraction.
constexpr double kIntegerBound = 9223372036854775808.0;  // 2**63

std::uint64_t word_at(const char* bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

// A short, fast mix of four lanes of eight bytes a step; the finish is that of splitmix64 (Steele,
// Lea, Flood: "Fast splittable pseudorandom number generators", 2014). Keys are compared in full
// afterwards.
std::uint64_t hash_bytes(std::string_view bytes, std::uint64_t seed) {
  constexpr std::uint64_t kFactor = 0x9FB21C651E98DF25U;
  constexpr std::size_t kStep = 4 * sizeof(std::uint64_t);
  std::uint64_t a = seed ^ (bytes.size() * 0x9E3779B97F4A7C15U);
  std::uint64_t b = ~a;
  std::uint64_t c = a + kFactor;
  std::uint64_t d = b + kFactor;
  const auto mix_in = [&](const char* step) {
    a = (std::rotl(a, 23) ^ word_at(step)) * kFactor;
    b = (std::rotl(b, 25) ^ word_at(step + 8)) * kFactor;
    c = (std::rotl(c, 27) ^ word_at(step + 16)) * kFactor;
    d = (std::rotl(d, 29) ^ word_at(step + 24)) * kFactor;
  };
  const char* next = bytes.data();
  const char* const end = next + bytes.size();
  for (; static_cast<std::size_t>(end - next) >= kStep; next += kStep)
    mix_in(next);
  char rest[kStep] = {};
  std::memcpy(rest, next, static_cast<std::size_t>(end - next));
  mix_in(rest);
  std::uint64_t hash = a ^ std::rotl(b, 16) ^ std::rotl(c, 32) ^ std::rotl(d, 48);
  hash = (hash ^ (hash >> 30U)) * 0xBF58476D1CE4E5B9U;
  hash = (hash ^ (hash >> 27U)) * 0x94D049BB133111EBU;
  return hash ^ (hash >> 31U);
}

}  // namespace

class StructuralKeyEncoder : private PlainParts {
 public:
  StructuralKey encode(const Value& graph) {
    const HostGraph* const source = host_graph(graph);
    if (source == nullptr || !told_by(*source)) append(graph, 0);
    // Copied to its exact length: a run keeps the key of every graph that it has seen.
    key_.encoding_.assign(buffer_.view());
    key_.hash_ = hash_bytes(key_.encoding_, object_hash_);
    return std::move(key_);
  }

 private:
  bool told_by(const HostGraph& source) {
    if (source.tell(*this)) return true;
    buffer_.clear();
    return false;
  }

  void on_mapping(std::size_t count) override { append_start(Tag::kMapping, count); }
  void on_list(std::size_t count) override { append_start(Tag::kList, count); }
  void on_absent() override { append_tag(Tag::kAbsent); }
  void on_integer(std::int64_t integer) override { append_integer(integer); }
  bool on_real(double real) override { return append_number(real); }
  // Not a value's text: there is no room behind it.
  void on_text(std::string_view text) override {
    if (text.size() < kShortText) {
      buffer_.append(static_cast<char>(kShortText | text.size()));
    } else {
      append_start(Tag::kLongText, text.size());
    }
    buffer_.append(text);
  }

  // The walk over a graph takes turns between a node and the list of its children: the list is
  // walked in the place where it is met, so that the recursion takes one step a node.
  void append(const Value& value, int depth) {
    if (value.is_text()) {
      append_text(value);
    } else if (value.is_list()) {
      append_list(value, depth);
    } else {
      append_other(value, depth);
    }
  }

  [[gnu::noinline]] void append_other(const Value& value, int depth) {
    switch (plain_kind(value, depth)) {
      case PlainKind::kMapping:
        append_mapping(value, depth);
        return;
      case PlainKind::kList:
        append_list(value, depth);
        return;
      case PlainKind::kScalar:
        append_scalar(value);
    }
  }

  void append_mapping(const Value& mapping, int depth) {
    if (!is_native_mapping(mapping)) {
      append_host_container(Tag::kMapping, mapping, depth);
      return;
    }
    const std::span<const MappingEntry> entries = native_entries(mapping);
    append_start(Tag::kMapping, entries.size());
    for (const MappingEntry& entry : entries) {
      append_key(entry.key);
      append(entry.value, depth + 1);
    }
  }

  void append_list(const Value& list, int depth) {
    require_depth(depth);
    if (!is_native_list(list)) {
      append_host_container(Tag::kList, list, depth);
      return;
    }
    const std::span<const Value> items = native_items(list);
    append_start(Tag::kList, items.size());
    for (const Value& item : items) {
      if (item.is_text()) {
        append_text(item);
      } else {
        append_other(item, depth + 1);
      }
    }
  }

  [[gnu::noinline]] void append_host_container(Tag tag, const Value& value, int depth) {
    append_start(tag, length(value));
    if (tag == Tag::kList) {
      for_each_item(value, [this, depth](const Value& child) { append(child, depth + 1); });
      return;
    }
    for_each_entry(value, [this, depth](const Value& key, const Value& child) {
      append_key(key);
      append(child, depth + 1);
    });
  }

  void append_key(const Value& key) {
    if (key.is_text()) {
      append_text(key);
    } else {
      require_plain_key(key);
      append_object(key);
    }
  }

  // A scalar that is not a text.
  [[gnu::noinline]] void append_scalar(const Value& value) {
    switch (value.kind()) {
      case Kind::kAbsent:
        append_tag(Tag::kAbsent);
        return;
      case Kind::kBoolean:
        append_integer(value.boolean() ? 1 : 0);
        return;
      case Kind::kInteger:
        append_integer(value.integer());
        return;
      case Kind::kReal:
        append_real(value);
        return;
      default:
        append_object(value);
    }
  }

  void append_text(const Value& value) {
    const std::string_view text = value.text();
    if (text.size() >= kShortText) {
      append_start(Tag::kLongText, text.size());
      buffer_.append(text);
      return;
    }
    char* next = buffer_.room(1 + ByteBuffer::text_room(text.size()));
    *next++ = static_cast<char>(kShortText | text.size());
    buffer_.end_at(ByteBuffer::put_text(next, text));
  }

  void append_integer(std::int64_t integer) {
    append_tag(Tag::kInteger);
    append_word(static_cast<std::uint64_t>(integer));
  }

  // One that may equal an integer beyond 64 bits is compared as a value.
  void append_real(const Value& value) {
    if (!append_number(value.real())) append_object(value);
  }

  // A real is encoded as the integer that it equals, unless that is beyond 64 bits. -0.0 equals 0
  // and so becomes it.
  bool append_number(double real) {
    const bool whole = std::trunc(real) == real;
    if (!whole || !std::isfinite(real)) {
      append_tag(Tag::kReal);
      append_word(std::bit_cast<std::uint64_t>(real));
      return true;
    }
    if (real < -kIntegerBound || real >= kIntegerBound) return false;
    append_integer(static_cast<std::int64_t>(real));
    return true;
  }

  [[gnu::noinline]] void append_object(const Value& value) {
    append_tag(Tag::kObject);
    if (!key_.objects_) key_.objects_ = std::make_shared<std::vector<Value>>();
    key_.objects_->push_back(value);
    object_hash_ = std::rotl(object_hash_, 11) ^ hash(value);
  }

  void append_tag(Tag tag) { buffer_.append(static_cast<char>(tag)); }

  // A tag with a count or a size: seven bits a byte, the lowest first, and the eighth says that
  // more follow.
  void append_start(Tag tag, std::size_t count) {
    constexpr std::size_t kLongestCount = 10;
    char* next = buffer_.room(1 + kLongestCount);
    *next++ = static_cast<char>(tag);
    while (count >= 0x80) {
      *next++ = static_cast<char>(0x80 | (count & 0x7F));
      count >>= 7U;
    }
    *next++ = static_cast<char>(count);
    buffer_.end_at(next);
  }

  void append_word(std::uint64_t word) {
    char* const next = buffer_.room(sizeof(word));
    std::memcpy(next, &word, sizeof(word));
    buffer_.end_at(next + sizeof(word));
  }

  ByteBuffer buffer_;
  StructuralKey key_;
  std::uint64_t object_hash_ = 0;
};

bool operator==(const StructuralKey& left, const StructuralKey& right) {
  if (left.hash_ != right.hash_ || left.encoding_ != right.encoding_) return false;
  if (!left.objects_) return true;
  // The encodings agree, so both refer to as many objects.
  for (std::size_t i = 0; i < left.objects_->size(); ++i) {
    if (!is_same_or_equal((*left.objects_)[i], (*right.objects_)[i])) return false;
  }
  return true;
}

StructuralKey structural_key(const Value& graph) {
  // A variable: a temporary's buffer would be zeroed first.
  StructuralKeyEncoder encoder;
  return encoder.encode(graph);
}

}  // namespace varnholt::genetic
