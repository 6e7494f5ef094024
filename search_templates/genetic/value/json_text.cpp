#include "search_templates/genetic/value/json_text.hpp"

#include <algorithm>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/number_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/storage.hpp"
#include "search_templates/genetic/value/text.hpp"

namespace varnholt::genetic {
namespace {

class JsonWriter {
 public:
  explicit JsonWriter(std::string& out) : out_(out) {}

  void write(const Value& value) {
    switch (value.kind()) {
      case Kind::kAbsent:
        out_ += "null";
        return;
      case Kind::kBoolean:
        out_ += value.boolean() ? "true" : "false";
        return;
      case Kind::kInteger:
        append_integer(out_, value.integer());
        return;
      case Kind::kReal:
        append_float_json(out_, value.real());
        return;
      case Kind::kText:
        append_json_string(out_, value.text());
        return;
      case Kind::kList:
      case Kind::kTuple:
        write_nested(value, [&] { write_sequence(value); });
        return;
      case Kind::kMapping:
        write_nested(value, [&] { write_mapping(value.mapping()); });
        return;
      case Kind::kObject:
        write_object(value);
    }
  }

 private:
  // One level down. A tree is never deeper than its nesting limit, so a value that contains itself
  // is looked for only when the limit is reached: plain graphs pay nothing for it.
  template <typename Write>
  void write_nested(const Value& value, const Write& write_items) {
    if (open_.size() >= static_cast<std::size_t>(kMaximumNesting)) {
      for (const Value* outer : open_) {
        if (same_object(*outer, value)) throw ValueError("Circular reference detected");
      }
      throw RecursionError("maximum recursion depth exceeded while encoding a JSON object");
    }
    open_.push_back(&value);
    write_items();
    open_.pop_back();
  }

  void write_sequence(const Value& value) {
    out_ += '[';
    const auto items = iterate(value);
    bool first = true;
    while (const std::optional<Value> item = items->next()) {
      if (!first) out_ += ',';
      first = false;
      write(*item);
    }
    out_ += ']';
  }

  void write_mapping(const Mapping& mapping) {
    const std::size_t start = entries_.size();
    MappingCursor cursor(mapping);
    while (std::optional<MappingEntry> entry = cursor.next()) {
      entries_.push_back(*std::move(entry));
    }
    sort_entries(start);
    const std::size_t end = entries_.size();
    out_ += '{';
    for (std::size_t i = start; i < end; ++i) {
      if (i > start) out_ += ',';
      write_key(entries_[i].key);
      out_ += ':';
      // Taken out: the buffer may move while the value's own mappings are written.
      const Value value = std::move(entries_[i].value);
      write(value);
    }
    out_ += '}';
    entries_.resize(start);
  }

  void sort_entries(std::size_t start) {
    const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(start);
    std::stable_sort(first, entries_.end(),
                     [](const MappingEntry& left, const MappingEntry& right) {
                       if (left.key.is_text() && right.key.is_text())
                         return left.key.text() < right.key.text();
                       return less(left.key, right.key);
                     });
  }

  // A key that is no text is written as the text of its JSON form.
  void write_key(const Value& key) {
    if (key.is_text()) {
      append_json_string(out_, key.text());
      return;
    }
    const Kind kind = exact_kind(key);
    if (kind == Kind::kText) {
      write_object(key);
      return;
    }
    if (kind != Kind::kAbsent && kind != Kind::kBoolean && kind != Kind::kInteger &&
        kind != Kind::kReal) {
      throw TypeError("keys must be str, int, float, bool or None, not " + type_name(key));
    }
    out_ += '"';
    write(key);
    out_ += '"';
  }

  void write_object(const Value& value) {
    if (!value.object().append_json(out_)) {
      throw TypeError("Object of type " + type_name(value) + " is not JSON serializable");
    }
  }

  std::string& out_;
  std::vector<const Value*> open_;
  // The entries of all mappings on the way down, one behind the other, in one buffer.
  std::vector<MappingEntry> entries_;
};

}  // namespace

void append_json_text(std::string& out, const Value& value) {
  JsonWriter(out).write(value);
}

std::string json_text(const Value& value) {
  std::string out;
  append_json_text(out, value);
  return out;
}

}  // namespace varnholt::genetic
