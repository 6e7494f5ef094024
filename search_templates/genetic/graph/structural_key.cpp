#include "search_templates/genetic/graph/structural_key.hpp"

#include <bit>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

#include "search_templates/genetic/graph/plain_data.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// What an encoded item begins with.
enum class Tag : char {
  kAbsent = 'n',
  kInteger = 'i',  // Also a boolean, and a real without a fraction that 64 bits hold.
  kReal = 'r',
  kText = 't',
  kObject = 'o',
  kMapping = 'm',
  kList = 'l'
};

// Reals below this are integers of 64 bits when they have no fraction.
constexpr double kIntegerBound = 9223372036854775808.0;  // 2**63

// A short, fast mix of eight bytes a step; the finish is that of splitmix64 (Steele, Lea, Flood:
// "Fast splittable pseudorandom number generators", 2014). Keys are compared in full afterwards.
std::uint64_t hash_bytes(std::string_view bytes, std::uint64_t seed) {
  std::uint64_t hash = seed ^ (bytes.size() * 0x9E3779B97F4A7C15U);
  const char* next = bytes.data();
  std::size_t left = bytes.size();
  while (left >= sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, next, sizeof(word));
    hash = (std::rotl(hash, 23) ^ word) * 0x9FB21C651E98DF25U;
    next += sizeof(word);
    left -= sizeof(word);
  }
  std::uint64_t tail = 0;
  std::memcpy(&tail, next, left);
  hash = (std::rotl(hash, 23) ^ tail) * 0x9FB21C651E98DF25U;
  hash = (hash ^ (hash >> 30U)) * 0xBF58476D1CE4E5B9U;
  hash = (hash ^ (hash >> 27U)) * 0x94D049BB133111EBU;
  return hash ^ (hash >> 31U);
}

}  // namespace

class StructuralKeyEncoder {
 public:
  StructuralKey encode(const Value& graph) {
    buffer_.reserve(kUsualLength);
    append(graph, 0);
    // Copied to its exact length: a run keeps the key of every graph that it has seen.
    key_.encoding_.assign(buffer_);
    key_.hash_ = hash_bytes(key_.encoding_, object_hash_);
    return std::move(key_);
  }

 private:
  static constexpr std::size_t kUsualLength = 2048;

  void append(const Value& value, int depth) {
    switch (plain_kind(value, depth)) {
      case PlainKind::kMapping: {
        const Mapping mapping = value.mapping();
        append_tag(Tag::kMapping);
        append_count(mapping.size());
        for_each_entry(mapping, [&](const Value& key, const Value& child) {
          append_scalar(key);
          append(child, depth + 1);
        });
        return;
      }
      case PlainKind::kList: {
        const List list = value.list();
        append_tag(Tag::kList);
        append_count(list.size());
        for_each_item(list, [&](const Value& child) { append(child, depth + 1); });
        return;
      }
      case PlainKind::kScalar:
        append_scalar(value);
    }
  }

  void append_scalar(const Value& value) {
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
      case Kind::kText:
        append_tag(Tag::kText);
        append_count(value.text().size());
        buffer_.append(value.text());
        return;
      default:
        append_object(value);
    }
  }

  void append_integer(std::int64_t integer) {
    append_tag(Tag::kInteger);
    append_word(static_cast<std::uint64_t>(integer));
  }

  // A real is encoded as the integer that it equals, and one that may equal an integer beyond 64
  // bits is compared as a value. -0.0 equals 0 and so becomes it.
  void append_real(const Value& value) {
    const double real = value.real();
    const bool whole = std::trunc(real) == real;
    if (whole && std::isfinite(real)) {
      if (real >= -kIntegerBound && real < kIntegerBound) {
        append_integer(static_cast<std::int64_t>(real));
      } else {
        append_object(value);
      }
      return;
    }
    append_tag(Tag::kReal);
    append_word(std::bit_cast<std::uint64_t>(real));
  }

  void append_object(const Value& value) {
    append_tag(Tag::kObject);
    if (!key_.objects_) key_.objects_ = std::make_shared<std::vector<Value>>();
    key_.objects_->push_back(value);
    object_hash_ = std::rotl(object_hash_, 11) ^ hash(value);
  }

  void append_tag(Tag tag) { buffer_.push_back(static_cast<char>(tag)); }

  // Seven bits a byte, the lowest first, and the eighth says that more follow.
  void append_count(std::size_t count) {
    while (count >= 0x80) {
      buffer_.push_back(static_cast<char>(0x80 | (count & 0x7F)));
      count >>= 7U;
    }
    buffer_.push_back(static_cast<char>(count));
  }

  void append_word(std::uint64_t word) {
    char bytes[sizeof(word)];
    std::memcpy(bytes, &word, sizeof(word));
    buffer_.append(bytes, sizeof(bytes));
  }

  std::string buffer_;
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
  return StructuralKeyEncoder().encode(graph);
}

}  // namespace varnholt::genetic
