#include "hosts/embedded/host/value_wire.hpp"

#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

#include "hosts/embedded/host/json_value.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Kind;
using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr char kAbsent = 'n';
constexpr char kTrue = 't';
constexpr char kFalse = 'f';
constexpr char kInteger = 'i';
constexpr char kReal = 'r';
constexpr char kText = 's';
constexpr char kList = 'l';
constexpr char kMapping = 'm';
// What has bytes of its own nowhere, such as an integer beyond 64 bits, is written as JSON text.
constexpr char kJson = 'j';

template <typename Number>
void append_number(std::string& bytes, char tag, Number number) {
  bytes += tag;
  bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

void append_sized(std::string& bytes, char tag, std::string_view text) {
  append_number(bytes, tag, static_cast<std::uint32_t>(text.size()));
  bytes += text;
}

void append_list(std::string& bytes, const Value& value) {
  List items;
  const auto walk = genetic::iterate(value);
  while (std::optional<Value> item = walk->next())
    items.append(*std::move(item));
  append_number(bytes, kList, static_cast<std::uint32_t>(items.size()));
  for (std::size_t i = 0; i < items.size(); ++i)
    append_value(bytes, items.at(i));
}

void append_mapping(std::string& bytes, const Mapping& mapping) {
  append_number(bytes, kMapping, static_cast<std::uint32_t>(mapping.size()));
  genetic::MappingCursor cursor(mapping);
  while (const std::optional<genetic::MappingEntry> entry = cursor.next()) {
    append_value(bytes, entry->key);
    append_value(bytes, entry->value);
  }
}

}  // namespace

std::string number_bytes(const Eigen::ArrayXd& numbers) {
  const auto count = static_cast<std::size_t>(numbers.size());
  return {reinterpret_cast<const char*>(numbers.data()), count * sizeof(double)};
}

Eigen::ArrayXd numbers_from(std::string_view bytes) {
  if (bytes.size() % sizeof(double) != 0) throw genetic::ValueError("bytes of half a number");
  Eigen::ArrayXd numbers(static_cast<Eigen::Index>(bytes.size() / sizeof(double)));
  // Without any the addresses may be null.
  if (!bytes.empty()) std::memcpy(numbers.data(), bytes.data(), bytes.size());
  return numbers;
}

bool append_scalar(std::string& bytes, const Value& value) {
  switch (value.kind()) {
    case Kind::kAbsent:
      bytes += kAbsent;
      return true;
    case Kind::kBoolean:
      bytes += value.boolean() ? kTrue : kFalse;
      return true;
    case Kind::kInteger:
      append_number(bytes, kInteger, value.integer());
      return true;
    case Kind::kReal:
      append_number(bytes, kReal, value.real());
      return true;
    case Kind::kText:
      append_sized(bytes, kText, value.text());
      return true;
    case Kind::kList:
    case Kind::kTuple:
    case Kind::kMapping:
    case Kind::kObject:
      return false;
  }
  return false;
}

void append_value(std::string& bytes, const Value& value) {
  if (append_scalar(bytes, value)) return;
  if (value.is_mapping()) return append_mapping(bytes, value.mapping());
  if (value.is_list() || value.is_tuple()) return append_list(bytes, value);
  append_sized(bytes, kJson, genetic::json_text(value));
}

Value ValueReader::next() {
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
      return sized();
    case kList:
      return list();
    case kMapping:
      return mapping();
    case kJson:
      return read_json(sized());
    default:
      throw genetic::ValueError("bytes between processes that are no value");
  }
}

std::string_view ValueReader::take(std::size_t size) {
  if (size > rest_.size()) throw genetic::ValueError("bytes between processes that end too soon");
  const std::string_view taken = rest_.substr(0, size);
  rest_.remove_prefix(size);
  return taken;
}

std::string_view ValueReader::sized() {
  return take(number<std::uint32_t>());
}

template <typename Number>
Number ValueReader::number() {
  Number number{};
  std::memcpy(&number, take(sizeof(number)).data(), sizeof(number));
  return number;
}

// No room is made ahead for as many entries as are told: the bytes may be wrong.
Value ValueReader::list() {
  List list;
  for (auto entries = number<std::uint32_t>(); entries > 0; --entries)
    list.append(next());
  return list;
}

Value ValueReader::mapping() {
  Mapping mapping;
  for (auto entries = number<std::uint32_t>(); entries > 0; --entries) {
    const Value key = next();
    mapping.set(key, next());
  }
  return mapping;
}

}  // namespace varnholt::embedded
