#include "search_templates/genetic/value/semantics.hpp"

#include <algorithm>
#include <limits>
#include <variant>
#include <vector>

#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/native_objects.hpp"
#include "search_templates/genetic/value/number_hash.hpp"
#include "search_templates/genetic/value/number_parse.hpp"
#include "search_templates/genetic/value/number_text.hpp"
#include "search_templates/genetic/value/storage.hpp"
#include "search_templates/genetic/value/text.hpp"

namespace varnholt::genetic {
namespace {

bool is_whole(Kind kind) {
  return kind == Kind::kBoolean || kind == Kind::kInteger;
}
bool is_number(Kind kind) {
  return is_whole(kind) || kind == Kind::kReal;
}

std::int64_t whole(const Value& value) {
  return value.is_boolean() ? static_cast<std::int64_t>(value.boolean()) : value.integer();
}

// The order of two numbers of our kinds. None of them is a NaN.
std::partial_ordering compare_numbers(const Value& left, const Value& right) {
  if (left.is_real() && right.is_real()) return left.real() <=> right.real();
  if (left.is_real()) {
    return 0 <=> compare_exactly(whole(right), left.real());
  }
  if (right.is_real()) return compare_exactly(whole(left), right.real());
  return whole(left) <=> whole(right);
}

bool equal(const Value& left, const Value& right, int depth);

bool same_or_equal(const Value& left, const Value& right, int depth) {
  return same_object(left, right) || equal(left, right, depth);
}

// The items of a list or tuple are read one at a time, since an object's equality may change them.
Value item_at(const Value& sequence, std::size_t index) {
  return sequence.is_list() ? sequence.list().at(index) : sequence.tuple().at(index);
}

bool equal_sequences(const Value& left, const Value& right, int depth) {
  if (length(left) != length(right)) return false;
  for (std::size_t i = 0; i < std::min(length(left), length(right)); ++i) {
    if (!same_or_equal(item_at(left, i), item_at(right, i), depth)) return false;
  }
  return true;
}

bool equal_mappings(const Mapping& left, const Mapping& right, int depth) {
  if (left.size() != right.size()) return false;
  MappingCursor cursor(left);
  while (const std::optional<MappingEntry> entry = cursor.next()) {
    const std::optional<Value> other = right.find(entry->key);
    if (!other || !same_or_equal(entry->value, *other, depth)) return false;
  }
  return true;
}

bool equal(const Value& left, const Value& right, int depth) {
  if (depth > kMaximumNesting) {
    throw RecursionError("maximum recursion depth exceeded in comparison");
  }
  if (left.is_object()) {
    if (left.object().equals(right)) return true;
    return right.is_object() && !left.object().equals_for_both() && right.object().equals(left);
  }
  if (right.is_object()) return right.object().equals(left);
  if (is_number(left.kind()) && is_number(right.kind())) {
    return compare_numbers(left, right) == std::partial_ordering::equivalent;
  }
  if (left.kind() != right.kind()) return false;
  switch (left.kind()) {
    case Kind::kAbsent:
      return true;
    case Kind::kText:
      return left.text_hash() == right.text_hash() && left.text() == right.text();
    case Kind::kList:
    case Kind::kTuple:
      return equal_sequences(left, right, depth + 1);
    default:
      return equal_mappings(left.mapping(), right.mapping(), depth + 1);
  }
}

std::optional<bool> less_or_nothing(const Value& left, const Value& right, int depth) {
  if (depth > kMaximumNesting) {
    throw RecursionError("maximum recursion depth exceeded in comparison");
  }
  if (left.is_object()) {
    if (const std::optional<bool> answer = left.object().less(right)) return answer;
  }
  if (right.is_object()) return right.object().greater(left);
  if (is_number(left.kind()) && is_number(right.kind())) return compare_numbers(left, right) < 0;
  if (left.kind() != right.kind()) return std::nullopt;
  if (left.is_text()) return left.text() < right.text();
  if (!left.is_list() && !left.is_tuple()) return std::nullopt;

  const std::size_t shared = std::min(length(left), length(right));
  for (std::size_t i = 0; i < shared; ++i) {
    const Value left_item = item_at(left, i);
    const Value right_item = item_at(right, i);
    if (same_or_equal(left_item, right_item, depth)) continue;
    if (const auto answer = less_or_nothing(left_item, right_item, depth + 1)) return answer;
    throw TypeError("'<' not supported between instances of '" + type_name(left_item) + "' and '" +
                    type_name(right_item) + "'");
  }
  return length(left) < length(right);
}

std::uint64_t hash_at(const Value& value, int depth) {
  if (depth > kMaximumNesting) throw RecursionError("maximum recursion depth exceeded");
  switch (value.kind()) {
    case Kind::kAbsent:
      return 0xFCA86420U;
    case Kind::kBoolean:
    case Kind::kInteger:
      return static_cast<std::uint64_t>(hash_integer(whole(value)));
    case Kind::kReal:
      return static_cast<std::uint64_t>(hash_real(value.real()));
    case Kind::kText:
      return value.text_hash();
    case Kind::kTuple: {
      std::uint64_t combined = 0x9E3779B97F4A7C15U;
      for (const Value& item : value.tuple().items()) {
        combined = (combined ^ hash_at(item, depth + 1)) * 0xFF51AFD7ED558CCDU;
        combined ^= combined >> 32U;
      }
      return combined;
    }
    case Kind::kObject:
      return value.object().hash();
    default:
      throw TypeError("unhashable type: '" + type_name(value) + "'");
  }
}

// Writes the text forms. Containers on the way down are remembered, since one may contain itself.
class ReprWriter {
 public:
  explicit ReprWriter(std::string& out) : out_(out) {}

  void write(const Value& value) {
    switch (value.kind()) {
      case Kind::kAbsent:
        out_ += "None";
        return;
      case Kind::kBoolean:
        out_ += value.boolean() ? "True" : "False";
        return;
      case Kind::kInteger:
        append_integer(out_, value.integer());
        return;
      case Kind::kReal:
        append_float_repr(out_, value.real());
        return;
      case Kind::kText:
        append_text_repr(out_, value.text());
        return;
      case Kind::kObject:
        out_ += value.object().repr();
        return;
      default:
        write_container(value);
    }
  }

 private:
  void write_container(const Value& value) {
    for (const Value& outer : open_) {
      if (outer.kind() == value.kind() && same_object(outer, value)) {
        out_ += value.is_list() ? "[...]" : value.is_tuple() ? "(...)" : "{...}";
        return;
      }
    }
    if (open_.size() >= kMaximumNesting) {
      throw RecursionError("maximum recursion depth exceeded while getting the repr of an object");
    }
    open_.push_back(value);
    if (value.is_mapping()) {
      write_mapping(value.mapping());
    } else {
      write_sequence(value);
    }
    open_.pop_back();
  }

  void write_sequence(const Value& value) {
    out_ += value.is_list() ? '[' : '(';
    std::size_t count = 0;
    for (; count < length(value); ++count) {
      if (count > 0) out_ += ", ";
      write(item_at(value, count));
    }
    if (value.is_tuple() && count == 1) out_ += ',';
    out_ += value.is_list() ? ']' : ')';
  }

  void write_mapping(const Mapping& mapping) {
    out_ += '{';
    bool first = true;
    MappingCursor cursor(mapping);
    while (const std::optional<MappingEntry> entry = cursor.next()) {
      if (!first) out_ += ", ";
      first = false;
      write(entry->key);
      out_ += ": ";
      write(entry->value);
    }
    out_ += '}';
  }

  std::string& out_;
  std::vector<Value> open_;
};

class ListIterator : public ValueIterator {
 public:
  explicit ListIterator(List list) : cursor_(std::move(list)) {}
  std::optional<Value> next() override { return cursor_.next(); }

 private:
  ListCursor cursor_;
};

class TupleIterator : public ValueIterator {
 public:
  explicit TupleIterator(Tuple tuple) : tuple_(std::move(tuple)) {}
  std::optional<Value> next() override {
    if (index_ == tuple_.size()) return std::nullopt;
    return tuple_.at(index_++);
  }

 private:
  Tuple tuple_;
  std::size_t index_ = 0;
};

class KeyIterator : public ValueIterator {
 public:
  explicit KeyIterator(Mapping mapping) : cursor_(std::move(mapping)) {}
  std::optional<Value> next() override {
    std::optional<MappingEntry> entry = cursor_.next();
    return entry ? std::optional(std::move(entry->key)) : std::nullopt;
  }

 private:
  MappingCursor cursor_;
};

class CharacterIterator : public ValueIterator {
 public:
  explicit CharacterIterator(Value text) : text_(std::move(text)) {}
  std::optional<Value> next() override {
    if (position_ == text_.text().size()) return std::nullopt;
    const std::size_t start = position_;
    static_cast<void>(next_code_point(text_.text(), position_));
    return Value(text_.text().substr(start, position_ - start));
  }

 private:
  Value text_;
  std::size_t position_ = 0;
};

Value from_integer(Integer integer) {
  if (const auto* const small = std::get_if<std::int64_t>(&integer)) return *small;
  return make_object<BigIntegerObject>(std::get<BigInteger>(std::move(integer)));
}

// An index counts from the end when it is negative.
std::size_t sequence_index(const Value& sequence, const Value& key) {
  const std::string name = sequence.is_text() ? "string" : type_name(sequence);
  if (key.is_object() && exact_kind(key) == Kind::kInteger) {
    throw IndexError("cannot fit 'int' into an index-sized integer");
  }
  if (!is_whole(key.kind())) {
    throw TypeError(sequence.is_text()
                        ? "string indices must be integers, not '" + type_name(key) + "'"
                        : name + " indices must be integers or slices, not " + type_name(key));
  }
  const auto size = static_cast<std::int64_t>(length(sequence));
  const std::int64_t index = whole(key) < 0 ? whole(key) + size : whole(key);
  if (index < 0 || index >= size) throw IndexError(name + " index out of range");
  return static_cast<std::size_t>(index);
}

Value character_at(std::string_view text, std::size_t index) {
  const std::string_view rest = text.substr(first_code_points(text, index).size());
  return first_code_points(rest, 1);
}

}  // namespace

std::string type_name(const Value& value) {
  switch (value.kind()) {
    case Kind::kAbsent:
      return "NoneType";
    case Kind::kBoolean:
      return "bool";
    case Kind::kInteger:
      return "int";
    case Kind::kReal:
      return "float";
    case Kind::kText:
      return "str";
    case Kind::kList:
      return "list";
    case Kind::kTuple:
      return "tuple";
    case Kind::kMapping:
      return "dict";
    case Kind::kObject:
      break;
  }
  return value.object().type_name();
}

bool truth(const Value& value) {
  switch (value.kind()) {
    case Kind::kAbsent:
      return false;
    case Kind::kBoolean:
      return value.boolean();
    case Kind::kInteger:
      return value.integer() != 0;
    case Kind::kReal:
      return value.real() != 0.0;
    case Kind::kText:
      return !value.text().empty();
    case Kind::kList:
      return !value.list().empty();
    case Kind::kTuple:
      return value.tuple().size() != 0;
    case Kind::kMapping:
      return !value.mapping().empty();
    case Kind::kObject:
      break;
  }
  return value.object().truth();
}

bool same_object(const Value& left, const Value& right) {
  if (left.kind() != right.kind()) return false;
  switch (left.kind()) {
    case Kind::kAbsent:
      return true;
    case Kind::kBoolean:
      return left.boolean() == right.boolean();
    case Kind::kInteger:
      return left.integer() == right.integer();
    case Kind::kReal:
      return left.real() == right.real();
    case Kind::kText:
      return left.text_hash() == right.text_hash() && left.text() == right.text();
    case Kind::kTuple:
      return left.counted() == right.counted();
    case Kind::kObject:
      return left.object().identity() == right.object().identity();
    case Kind::kList: {
      if (left.counted() == right.counted()) return true;
      const ListStorage* const storage = left.list().storage();
      const ListStorage* const other = right.list().storage();
      return storage != nullptr && other != nullptr && storage->identity() == other->identity();
    }
    case Kind::kMapping: {
      if (left.counted() == right.counted()) return true;
      const MappingStorage* const storage = left.mapping().storage();
      const MappingStorage* const other = right.mapping().storage();
      return storage != nullptr && other != nullptr && storage->identity() == other->identity();
    }
  }
  return false;
}

bool operator==(const Value& left, const Value& right) {
  return equal(left, right, 0);
}

bool is_same_or_equal(const Value& left, const Value& right) {
  return same_or_equal(left, right, 0);
}

std::uint64_t hash_slow(const Value& value) {
  return hash_at(value, 0);
}

bool less(const Value& left, const Value& right) {
  if (const std::optional<bool> answer = less_or_nothing(left, right, 0)) return *answer;
  throw TypeError("'<' not supported between instances of '" + type_name(left) + "' and '" +
                  type_name(right) + "'");
}

double to_float(const Value& value) {
  switch (value.kind()) {
    case Kind::kBoolean:
      return value.boolean() ? 1.0 : 0.0;
    case Kind::kInteger:
      return static_cast<double>(value.integer());
    case Kind::kReal:
      return value.real();
    case Kind::kText:
      return float_from_text(value.text());
    case Kind::kObject:
      return value.object().to_float();
    default:
      throw TypeError("float() argument must be a string or a real number, not '" +
                      type_name(value) + "'");
  }
}

Value float_of(const Value& value) {
  if (value.is_real()) return value;
  return value.is_object() ? value.object().float_value() : Value(to_float(value));
}

Value to_integer(const Value& value) {
  switch (value.kind()) {
    case Kind::kInteger:
      return value;
    case Kind::kBoolean:
      return whole(value);
    case Kind::kReal:
      return from_integer(integer_from_double(value.real()));
    case Kind::kText:
      return from_integer(integer_from_text(value.text()));
    case Kind::kObject:
      return value.object().to_integer();
    default:
      throw TypeError(
          "int() argument must be a string, a bytes-like object or a real number, not '" +
          type_name(value) + "'");
  }
}

std::int64_t saturated_integer(const Value& value) {
  if (is_whole(value.kind())) return whole(value);
  if (!value.is_object()) {
    throw TypeError("'" + type_name(value) + "' object cannot be interpreted as an integer");
  }
  if (exact_kind(value) != Kind::kInteger) return saturated_integer(value.object().to_index());
  return less(value, 0) ? std::numeric_limits<std::int64_t>::min()
                        : std::numeric_limits<std::int64_t>::max();
}

std::int64_t saturated_sum(std::int64_t left, std::int64_t right) noexcept {
  using Limits = std::numeric_limits<std::int64_t>;
  if (right > 0 && left > Limits::max() - right) return Limits::max();
  if (right < 0 && left < Limits::min() - right) return Limits::min();
  return left + right;
}

std::string str(const Value& value) {
  if (value.is_text()) return std::string(value.text());
  if (value.is_object()) return value.object().str();
  return repr(value);
}

Value text_form(const Value& value) {
  if (value.is_text()) return value;
  return value.is_object() ? value.object().text_form() : Value(repr(value));
}

std::string repr(const Value& value) {
  std::string out;
  append_repr(out, value);
  return out;
}

void append_repr(std::string& out, const Value& value) {
  ReprWriter(out).write(value);
}

std::optional<Mapping> as_mapping(const Value& value) {
  if (value.is_mapping()) return value.mapping();
  if (value.is_object()) return value.object().as_mapping();
  return std::nullopt;
}

std::optional<Mapping> as_record(const Value& value) {
  return value.is_object() ? value.object().as_record() : as_mapping(value);
}

Mapping record_of(const Value& value) {
  std::optional<Mapping> record = as_record(value);
  if (!record) throw AttributeError("'" + type_name(value) + "' object has no attribute 'get'");
  return *std::move(record);
}

bool is_instance_of(const Value& value, Kind kind) {
  return value.kind() == kind || (value.is_object() && value.object().is_instance_of(kind));
}

Kind exact_kind(const Value& value) {
  return value.is_object() ? value.object().exact_kind() : value.kind();
}

std::size_t length(const Value& value) {
  switch (value.kind()) {
    case Kind::kText:
      return code_point_count(value.text());
    case Kind::kList:
      return value.list().size();
    case Kind::kTuple:
      return value.tuple().size();
    case Kind::kMapping:
      return value.mapping().size();
    case Kind::kObject:
      return value.object().length();
    default:
      throw TypeError("object of type '" + type_name(value) + "' has no len()");
  }
}

std::unique_ptr<ValueIterator> iterate(const Value& value) {
  switch (value.kind()) {
    case Kind::kText:
      return std::make_unique<CharacterIterator>(value);
    case Kind::kList:
      return std::make_unique<ListIterator>(value.list());
    case Kind::kTuple:
      return std::make_unique<TupleIterator>(value.tuple());
    case Kind::kMapping:
      return std::make_unique<KeyIterator>(value.mapping());
    case Kind::kObject:
      return value.object().iterate();
    default:
      throw TypeError("'" + type_name(value) + "' object is not iterable");
  }
}

Value item(const Value& value, const Value& key) {
  switch (value.kind()) {
    case Kind::kText:
      return character_at(value.text(), sequence_index(value, key));
    case Kind::kList:
    case Kind::kTuple:
      return item_at(value, sequence_index(value, key));
    case Kind::kMapping:
      return value.mapping().at(key);
    case Kind::kObject:
      return value.object().item(key);
    default:
      throw TypeError("'" + type_name(value) + "' object is not subscriptable");
  }
}

std::optional<Value> attribute(const Value& value, std::string_view name) {
  return value.is_object() ? value.object().attribute(name) : std::nullopt;
}

Value field_value(const Value& value, Key key, const Value& fallback) {
  if (const std::optional<Mapping> mapping = as_mapping(value)) {
    return mapping->get(key, fallback);
  }
  return attribute(value, key.view()).value_or(fallback);
}

}  // namespace varnholt::genetic
