#include "search_templates/genetic/value/json_text.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "search_templates/genetic/value/byte_buffer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/native_view.hpp"
#include "search_templates/genetic/value/number_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/stable_sort.hpp"
#include "search_templates/genetic/value/text.hpp"

namespace varnholt::genetic {
namespace {

// Most texts differ in their first character.
bool text_less(std::string_view left, std::string_view right) noexcept {
  if (left.empty() || right.empty() || left.front() == right.front()) return left < right;
  return static_cast<unsigned char>(left.front()) < static_cast<unsigned char>(right.front());
}

bool key_less(const Value& left, const Value& right) {
  if (left.is_text() && right.is_text()) return text_less(left.text(), right.text());
  return less(left, right);
}

class JsonWriter {
 public:
  JsonWriter() { places_.reserve(kUsualPlaces); }

  [[nodiscard]] std::string_view text() const noexcept { return out_.view(); }

  void write(const Value& value) {
    if (value.is_text()) {
      write_text(value);
    } else {
      write_other(value);
    }
  }

 private:
  [[gnu::noinline]] void write_other(const Value& value) {
    switch (value.kind()) {
      case Kind::kText:
        break;  // Written by write.
      case Kind::kMapping:
      case Kind::kList:
      case Kind::kTuple:
        write_nested(value);
        return;
      case Kind::kAbsent:
        out_.append("null");
        return;
      case Kind::kBoolean:
        out_.append(value.boolean() ? "true" : "false");
        return;
      case Kind::kInteger:
        append_integer(scratch_, value.integer());
        write_scratch();
        return;
      case Kind::kReal:
        append_float_json(scratch_, value.real());
        write_scratch();
        return;
      case Kind::kObject:
        write_object(value);
    }
  }

  // The containers that are being written, from the innermost outwards.
  struct Open {
    const Value& value;
    const Open* outer;
    int depth;
  };

  // One level down. A tree is never deeper than its nesting limit, so a value that contains itself
  // is looked for only when the limit is reached: plain graphs pay nothing for it.
  void write_nested(const Value& container) {
    // Kept alive: an object within it may write itself by code that drops it.
    const Value value = container;
    const Open open{value, open_, open_ == nullptr ? 1 : open_->depth + 1};
    if (open.depth > kMaximumNesting) refuse(value);
    open_ = &open;
    if (!value.is_mapping()) {
      write_sequence(value);
    } else if (is_native_mapping(value)) {
      write_native_mapping(value);
    } else {
      write_host_mapping(value.mapping());
    }
    open_ = open.outer;
  }

  [[noreturn]] void refuse(const Value& value) const {
    for (const Open* outer = open_; outer != nullptr; outer = outer->outer) {
      if (same_object(outer->value, value)) throw ValueError("Circular reference detected");
    }
    throw RecursionError("maximum recursion depth exceeded while encoding a JSON object");
  }

  void write_sequence(const Value& value) {
    out_.append('[');
    if (value.is_list() && is_native_list(value)) {
      // Read anew at each step, since an object among the items may change the list.
      for (std::size_t i = 0; i < native_items(value).size(); ++i) {
        if (i > 0) out_.append(',');
        write(native_items(value)[i]);
      }
    } else {
      const auto items = iterate(value);
      bool first = true;
      while (const std::optional<Value> item = items->next()) {
        if (!first) out_.append(',');
        first = false;
        write(*item);
      }
    }
    out_.append(']');
  }

  // Sorts the places of the entries rather than the entries, which thus are neither moved nor
  // counted. The places of all mappings on the way down stand in one buffer, one behind the other.
  void write_native_mapping(const Value& mapping) {
    const std::size_t count = native_entries(mapping).size();
    const std::size_t start = places_.size();
    sort_places(native_entries(mapping));
    out_.append('{');
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0) out_.append(',');
      write_key(entry_at(mapping, places_[start + i], count).key);
      out_.append(':');
      write(entry_at(mapping, places_[start + i], count).value);
    }
    out_.append('}');
    places_.resize(start);
  }

  // Read anew for each part, since an object among the values may change the mapping.
  [[nodiscard]] static const MappingEntry& entry_at(const Value& mapping, std::size_t place,
                                                    std::size_t count) {
    const std::span<const MappingEntry> entries = native_entries(mapping);
    if (entries.size() != count) {
      throw RuntimeError("dictionary changed size during iteration");
    }
    return entries[place];
  }

  // By insertion as long as a mapping is small, as a node of a graph is.
  void sort_places(std::span<const MappingEntry> entries) {
    constexpr std::size_t kSmall = 16;
    const std::size_t start = places_.size();
    const auto place_less = [entries](std::uint32_t left, std::uint32_t right) {
      return key_less(entries[left].key, entries[right].key);
    };
    for (std::size_t i = 0; i < entries.size(); ++i)
      places_.push_back(static_cast<std::uint32_t>(i));
    if (entries.size() > kSmall) {
      stable_sort(std::span(places_).subspan(start), place_less);
      return;
    }
    std::uint32_t* const places = places_.data() + start;
    for (std::size_t i = 1; i < entries.size(); ++i) {
      const std::uint32_t place = places[i];
      std::size_t to = i;
      for (; to > 0 && place_less(place, places[to - 1]); --to)
        places[to] = places[to - 1];
      places[to] = place;
    }
  }

  void write_host_mapping(const Mapping& mapping) {
    std::vector<MappingEntry> entries;
    MappingCursor cursor(mapping);
    while (std::optional<MappingEntry> entry = cursor.next())
      entries.push_back(*std::move(entry));
    stable_sort(entries, [](const MappingEntry& left, const MappingEntry& right) {
      return key_less(left.key, right.key);
    });
    out_.append('{');
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (i > 0) out_.append(',');
      write_key(entries[i].key);
      out_.append(':');
      write(entries[i].value);
    }
    out_.append('}');
  }

  void write_key(const Value& key) {
    if (key.is_text()) {
      write_text(key);
    } else {
      write_other_key(key);
    }
  }

  // A key that is not a text is written as the text of its JSON form.
  [[gnu::noinline]] void write_other_key(const Value& key) {
    const Kind kind = exact_kind(key);
    if (kind == Kind::kText) {
      write_object(key);
      return;
    }
    if (kind != Kind::kAbsent && kind != Kind::kBoolean && kind != Kind::kInteger &&
        kind != Kind::kReal) {
      throw TypeError("keys must be str, int, float, bool or None, not " + type_name(key));
    }
    out_.append('"');
    write(key);
    out_.append('"');
  }

  void write_text(const Value& value) {
    const std::string_view text = value.text();
    if (value.text_is_plain()) {
      char* next = out_.room(2 + ByteBuffer::text_room(text.size()));
      *next++ = '"';
      next = ByteBuffer::put_text(next, text);
      *next++ = '"';
      out_.end_at(next);
      return;
    }
    append_json_string(scratch_, text);
    write_scratch();
  }

  // An object may keep its own text only as long as it lives.
  void write_object(Value value) {
    if (!value.object().append_json(scratch_)) {
      throw TypeError("Object of type " + type_name(value) + " is not JSON serializable");
    }
    write_scratch();
  }

  void write_scratch() {
    out_.append(scratch_);
    scratch_.clear();
  }

  // A graph of six levels with three keys a node needs 18 of them.
  static constexpr std::size_t kUsualPlaces = 64;

  ByteBuffer out_;
  std::string scratch_;  // For what the other writers of texts append to.
  const Open* open_ = nullptr;
  std::vector<std::uint32_t> places_;
};

}  // namespace

std::string json_text(const Value& value) {
  JsonWriter writer;
  writer.write(value);
  return std::string(writer.text());
}

}  // namespace varnholt::genetic
