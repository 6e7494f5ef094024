#include "search_templates/genetic/value/representation.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/host_origin.hpp"
#include "search_templates/genetic/value/native_objects.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

namespace detail {
namespace {

// `head` bytes lie between the representation and the characters.
TextRep* make_text(std::string_view text, std::size_t head = 0) {
  if (text.size() > TextRep::kLargestSize) {
    throw OverflowError("text is longer than 2147483647 bytes");
  }
  const std::size_t room = std::max(text.size(), kShortTextRoom);
  auto* const block = static_cast<char*>(::operator new(sizeof(TextRep) + head + room));
  char* const characters = block + sizeof(TextRep) + head;
  std::memset(characters, 0, kShortTextRoom);
  std::memcpy(characters, text.data(), text.size());
  return new (block) TextRep(1, {characters, text.size()}, hash_text(text), is_plain_in_json(text));
}

// The origin of a text that has one stands between the representation and the characters.
HostOrigin* origin_of_text(TextRep* text) noexcept {
  auto* const behind = reinterpret_cast<char*>(text + 1);
  const bool is_hosted = text->references != kImmortal && text->characters != behind;
  return is_hosted ? reinterpret_cast<HostOrigin*>(behind) : nullptr;
}

void release(const HostOrigin& origin) noexcept {
  if (origin.release != nullptr) origin.release(origin.object);
}

// Ends a container whose children have been taken out of it.
template <typename Rep>
void give_back(Rep* rep) noexcept {
  TreeBlock* const block = rep->block;
  rep->~Rep();
  if (block == nullptr) {
    ::operator delete(rep);
  } else if (--block->containers == 0) {
    ::operator delete(block);
  }
}

}  // namespace

void destroy(Kind kind, Counted* counted) noexcept {
  if (kind == Kind::kText) {
    auto* const text = static_cast<TextRep*>(counted);
    if (const HostOrigin* const origin = origin_of_text(text)) release(*origin);
    ::operator delete(text);
    return;
  }
  if (kind == Kind::kInteger || kind == Kind::kReal) {
    auto* const number = static_cast<HostedNumberRep*>(counted);
    release(number->origin);
    delete number;
    return;
  }
  if (kind == Kind::kObject) {
    delete static_cast<HostObject*>(counted);
    return;
  }

  // A container's own children join the waiting line instead of being given back within it, and the
  // container forgets them.
  auto* waiting = static_cast<ContainerRep*>(counted);
  waiting->next = nullptr;
  const auto release_child = [&waiting](const Value& child) {
    const Kind child_kind = child.kind_;
    if (!child.is_counted_) return;
    Counted* const child_counted = child.payload_.counted;
    if (child_counted->references == kImmortal || --child_counted->references != 0) return;
    if (child_kind <= Kind::kText || child_kind == Kind::kObject) {
      destroy(child_kind, child_counted);
      return;
    }
    auto* const container = static_cast<ContainerRep*>(child_counted);
    container->next = waiting;
    waiting = container;
  };
  const auto release_items = [&release_child](auto* rep) {
    for (const Value& item : rep->items.items())
      release_child(item);
    rep->items.forget();
    give_back(rep);
  };
  do {
    ContainerRep* const rep = waiting;
    waiting = rep->next;
    switch (rep->kind) {
      case Kind::kMapping: {
        auto* const mapping = static_cast<MappingRep*>(rep);
        for (const MappingEntry& entry : mapping->entries.items()) {
          release_child(entry.key);
          release_child(entry.value);
        }
        mapping->entries.forget();
        give_back(mapping);
        break;
      }
      case Kind::kList:
        release_items(static_cast<ListRep*>(rep));
        break;
      default: {
        auto* const tuple = static_cast<TupleRep*>(rep);
        const HostOrigin origin = tuple->origin;
        release_items(tuple);
        release(origin);
      }
    }
  } while (waiting != nullptr);
}

std::size_t MappingRep::position(const Value& key) {
  const std::uint64_t key_hash = hash(key);  // Throws for what cannot be a key.
  if (entries.size() <= kLargestScanned) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (is_same_key(entries[i].key, key)) return i;
    }
    return entries.size();
  }
  if (slots.empty()) rebuild_slots();
  const std::size_t mask = slots.size() - 1;
  for (std::size_t slot = key_hash & mask; slots[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t index = slots[slot] - 1;
    if (is_same_key(entries[index].key, key)) return index;
  }
  return entries.size();
}

void MappingRep::append(Value key, Value value) {
  entries.append({std::move(key), std::move(value)});
  if (slots.empty()) return;
  if (entries.size() * 2 > slots.size()) {
    rebuild_slots();
  } else {
    place(entries.size() - 1);
  }
}

void MappingRep::erase(std::size_t index) {
  entries.erase(index);
  slots.clear();
}

void MappingRep::place(std::size_t index) {
  const std::size_t mask = slots.size() - 1;
  std::size_t slot = hash(entries[index].key) & mask;
  while (slots[slot] != 0)
    slot = (slot + 1) & mask;
  slots[slot] = static_cast<std::uint32_t>(index + 1);
}

void MappingRep::rebuild_slots() {
  std::size_t capacity = 64;
  while (capacity < entries.size() * 4)
    capacity *= 2;
  slots.assign(capacity, 0);
  for (std::size_t i = 0; i < entries.size(); ++i)
    place(i);
}

}  // namespace detail

Value::Value(double real) : kind_(Kind::kReal), is_counted_(false), payload_{.real = real} {
  if (std::isnan(real)) *this = make_object<NotANumber>();
}

Value::Value(std::string_view text)
    : kind_(Kind::kText), is_counted_(true), payload_{.counted = detail::make_text(text)} {}

std::int64_t Value::hosted_integer() const noexcept {
  return static_cast<const detail::HostedNumberRep*>(payload_.counted)->number.integer;
}

double Value::hosted_real() const noexcept {
  return static_cast<const detail::HostedNumberRep*>(payload_.counted)->number.real;
}

HostObject& Value::object() const noexcept {
  return *static_cast<HostObject*>(payload_.counted);
}

ObjectRef::ObjectRef(HostObject* object) noexcept : value_(Kind::kObject, object) {}

// What is an object of the host.

Value hosted_integer(std::int64_t integer, const HostOrigin& origin) {
  return detail::adopt(Kind::kInteger, new detail::HostedNumberRep(integer, origin));
}

Value hosted_real(double real, const HostOrigin& origin) {
  return detail::adopt(Kind::kReal, new detail::HostedNumberRep(real, origin));
}

Value hosted_text(std::string_view text, const HostOrigin& origin) {
  detail::TextRep* const rep = detail::make_text(text, sizeof(HostOrigin));
  new (rep + 1) HostOrigin(origin);
  return detail::adopt(Kind::kText, rep);
}

Value hosted_tuple(std::span<const Value> items, const HostOrigin& origin) {
  Value tuple = Tuple(items);
  static_cast<detail::TupleRep&>(tuple.representation()).origin = origin;
  return tuple;
}

const HostOrigin* host_origin(const Value& value) noexcept {
  if (!value.is_counted_) return nullptr;
  detail::Counted* const counted = value.payload_.counted;
  switch (value.kind_) {
    case Kind::kInteger:
    case Kind::kReal:
      return &static_cast<detail::HostedNumberRep*>(counted)->origin;
    case Kind::kText:
      return detail::origin_of_text(static_cast<detail::TextRep*>(counted));
    case Kind::kTuple: {
      const HostOrigin& origin = static_cast<detail::TupleRep*>(counted)->origin;
      return origin.object == nullptr ? nullptr : &origin;
    }
    default:
      return nullptr;
  }
}

// Lists.

List::List(std::size_t capacity)
    : value_(Kind::kList, detail::make_container<detail::ListRep, Value>(capacity)) {}

List::List(std::initializer_list<Value> items) : List(items.size()) {
  for (const Value& item : items)
    rep().items.append(item);
}

List::List(std::unique_ptr<ListStorage> storage) : List(std::size_t{0}) {
  rep().storage = std::move(storage);
}

detail::ListRep& List::rep() const noexcept {
  return *static_cast<detail::ListRep*>(value_.payload_.counted);
}

std::size_t List::size() const {
  return rep().storage ? rep().storage->size() : rep().items.size();
}

Value List::at(std::size_t index) const {
  if (index >= size()) throw IndexError("list index out of range");
  return rep().storage ? rep().storage->at(index) : rep().items[index];
}

void List::set(std::size_t index, Value item) {
  if (index >= size()) throw IndexError("list assignment index out of range");
  if (rep().storage) {
    rep().storage->set(index, item);
  } else {
    rep().items[index] = std::move(item);
  }
}

void List::append(Value item) {
  if (rep().storage) {
    rep().storage->append(item);
  } else {
    rep().items.append(std::move(item));
  }
}

void List::extend(const List& other) {
  // The size is read once: a list extended by itself doubles.
  const std::size_t count = other.size();
  for (std::size_t i = 0; i < count; ++i)
    append(other.at(i));
}

std::span<const Value> List::native_items() const noexcept {
  return rep().items.items();
}
bool List::is_native() const noexcept {
  return rep().storage == nullptr;
}
ListStorage* List::storage() const noexcept {
  return rep().storage.get();
}

List List::adopt(std::unique_ptr<ListStorage> storage) {
  List held(rep().items.size());
  for (Value& item : rep().items.items())
    held.append(std::move(item));
  rep().items.clear();
  rep().storage = std::move(storage);
  return held;
}

std::optional<Value> ListCursor::next() {
  if (index_ >= list_.size()) return std::nullopt;
  return list_.at(index_++);
}

// Tuples.

Tuple::Tuple(std::span<const Value> items)
    : value_(Kind::kTuple, detail::make_container<detail::TupleRep, Value>(items.size())) {
  auto& rep = *static_cast<detail::TupleRep*>(value_.payload_.counted);
  for (const Value& item : items)
    rep.items.append(item);
}

const Value& Tuple::at(std::size_t index) const {
  if (index >= size()) throw IndexError("tuple index out of range");
  return items()[index];
}

std::span<const Value> Tuple::items() const noexcept {
  return static_cast<detail::TupleRep*>(value_.payload_.counted)->items.items();
}

// Mappings.

namespace {

Value unless_missing(std::optional<Value> found, const Value& key) {
  if (!found) throw KeyError(repr(key));
  return *std::move(found);
}

}  // namespace

Value MappingStorage::at(const Value& key) const {
  return unless_missing(find(key), key);
}

Mapping::Mapping(std::size_t capacity)
    : value_(Kind::kMapping, detail::make_container<detail::MappingRep, MappingEntry>(capacity)) {}

Mapping::Mapping(std::initializer_list<MappingEntry> entries) : Mapping(entries.size()) {
  for (const MappingEntry& entry : entries)
    set(entry.key, entry.value);
}

Mapping::Mapping(std::unique_ptr<MappingStorage> storage) : Mapping(std::size_t{0}) {
  rep().storage = std::move(storage);
}

detail::MappingRep& Mapping::rep() const noexcept {
  return *static_cast<detail::MappingRep*>(value_.payload_.counted);
}

std::size_t Mapping::size() const {
  return rep().storage ? rep().storage->size() : rep().entries.size();
}

std::optional<Value> Mapping::find(const Value& key) const {
  detail::MappingRep& own = rep();
  if (own.storage) return own.storage->find(key);
  const std::size_t index = own.position(key);
  if (index == own.entries.size()) return std::nullopt;
  return own.entries[index].value;
}

Value Mapping::get(const Value& key, const Value& fallback) const {
  detail::MappingRep& own = rep();
  if (own.storage) return own.storage->get(key, fallback);
  const std::size_t index = own.position(key);
  return index == own.entries.size() ? fallback : own.entries[index].value;
}

Value Mapping::at(const Value& key) const {
  if (const MappingStorage* const host = storage()) return host->at(key);
  return unless_missing(find(key), key);
}

bool Mapping::contains(const Value& key) const {
  detail::MappingRep& own = rep();
  if (own.storage) return own.storage->contains(key);
  return own.position(key) != own.entries.size();
}

void Mapping::set(const Value& key, Value value) {
  detail::MappingRep& own = rep();
  if (own.storage) {
    own.storage->set(key, value);
    return;
  }
  const std::size_t index = own.position(key);
  if (index == own.entries.size()) {
    own.append(key, std::move(value));
  } else {
    own.entries[index].value = std::move(value);
  }
}

Value Mapping::set_default(const Value& key, const Value& value) {
  if (MappingStorage* const host = storage()) return host->set_default(key, value);
  if (std::optional<Value> held = find(key)) return *std::move(held);
  set(key, value);
  return value;
}

bool Mapping::erase(const Value& key) {
  detail::MappingRep& own = rep();
  if (own.storage) return own.storage->erase(key);
  const std::size_t index = own.position(key);
  if (index == own.entries.size()) return false;
  own.erase(index);
  return true;
}

void Mapping::update(const Mapping& other) {
  const std::optional<Mapping> plain =
      other.is_native() ? std::nullopt : other.storage()->new_mapping();
  MappingCursor cursor(plain.value_or(other));
  while (std::optional<MappingEntry> entry = cursor.next()) {
    set(entry->key, std::move(entry->value));
  }
}

std::span<const MappingEntry> Mapping::native_entries() const noexcept {
  return rep().entries.items();
}
bool Mapping::is_native() const noexcept {
  return rep().storage == nullptr;
}
MappingStorage* Mapping::storage() const noexcept {
  return rep().storage.get();
}

Mapping Mapping::adopt(std::unique_ptr<MappingStorage> storage) {
  Mapping held(rep().entries.size());
  for (MappingEntry& entry : rep().entries.items()) {
    held.rep().append(std::move(entry.key), std::move(entry.value));
  }
  rep().entries.clear();
  rep().slots.clear();
  rep().storage = std::move(storage);
  return held;
}

void Mapping::append_new(Value key, Value value) {
  rep().append(std::move(key), std::move(value));
}

// The host's own walk. It ends before the mapping, whose storage it walks.
struct MappingCursor::Host {
  std::unique_ptr<MappingStorage::Cursor> cursor;
};

MappingCursor::MappingCursor(Mapping mapping) : mapping_(std::move(mapping)) {
  if (mapping_.is_native()) {
    size_at_start_ = mapping_.size();
  } else {
    host_ = std::make_unique<Host>(Host{mapping_.storage()->entries()});
  }
}
MappingCursor::MappingCursor(MappingCursor&&) noexcept = default;
MappingCursor& MappingCursor::operator=(MappingCursor&&) noexcept = default;
MappingCursor::~MappingCursor() = default;

std::optional<MappingEntry> MappingCursor::next() {
  if (host_) return host_->cursor->next();
  if (mapping_.size() != size_at_start_) {
    throw RuntimeError("dictionary changed size during iteration");
  }
  if (!mapping_.is_native()) {
    // The mapping was handed to the host meanwhile, which is no change: the walk goes on there.
    host_ = std::make_unique<Host>(Host{mapping_.storage()->entries()});
    for (std::size_t i = 0; i < index_; ++i)
      static_cast<void>(host_->cursor->next());
    return host_->cursor->next();
  }
  const auto entries = mapping_.native_entries();
  if (index_ == entries.size()) return std::nullopt;
  return entries[index_++];
}

}  // namespace varnholt::genetic
