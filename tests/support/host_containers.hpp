// Containers of an imagined host: a list and a mapping over the standard library's containers that
// count what reaches them. They show that a List or Mapping on a host's container stores nothing
// itself.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/storage.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

// The host's list object. Several handles may stand for one.
struct HostList {
  std::vector<Value> items;
  int reads = 0;
  int writes = 0;
};

class HostListStorage : public ListStorage {
 public:
  explicit HostListStorage(std::shared_ptr<HostList> list) : list_(std::move(list)) {}

  [[nodiscard]] const void* identity() const noexcept override { return list_.get(); }
  [[nodiscard]] std::size_t size() const override { return list_->items.size(); }
  [[nodiscard]] Value at(std::size_t index) const override {
    ++list_->reads;
    if (index >= list_->items.size()) throw IndexError("list index out of range");
    return list_->items[index];
  }
  void set(std::size_t index, const Value& item) override {
    ++list_->writes;
    list_->items.at(index) = item;
  }
  void append(const Value& item) override {
    ++list_->writes;
    list_->items.push_back(item);
  }

 private:
  std::shared_ptr<HostList> list_;
};

// The host's mapping object.
struct HostMapping {
  std::vector<MappingEntry> entries;
  int reads = 0;
  int writes = 0;

  [[nodiscard]] std::size_t position(const Value& key) const {
    std::size_t index = 0;
    while (index < entries.size() && !is_same_key(entries[index].key, key))
      ++index;
    return index;
  }
};

class HostMappingStorage : public MappingStorage {
 public:
  explicit HostMappingStorage(std::shared_ptr<HostMapping> mapping)
      : mapping_(std::move(mapping)) {}

  [[nodiscard]] const void* identity() const noexcept override { return mapping_.get(); }
  [[nodiscard]] std::size_t size() const override { return mapping_->entries.size(); }
  [[nodiscard]] std::optional<Value> find(const Value& key) const override {
    ++mapping_->reads;
    const std::size_t index = mapping_->position(key);
    if (index == mapping_->entries.size()) return std::nullopt;
    return mapping_->entries[index].value;
  }
  void set(const Value& key, const Value& value) override {
    ++mapping_->writes;
    const std::size_t index = mapping_->position(key);
    if (index == mapping_->entries.size()) {
      mapping_->entries.push_back({key, value});
    } else {
      mapping_->entries[index].value = value;
    }
  }
  bool erase(const Value& key) override {
    ++mapping_->writes;
    const std::size_t index = mapping_->position(key);
    if (index == mapping_->entries.size()) return false;
    mapping_->entries.erase(mapping_->entries.begin() + static_cast<std::ptrdiff_t>(index));
    return true;
  }
  [[nodiscard]] std::unique_ptr<Cursor> entries() const override {
    return std::make_unique<Walk>(*mapping_);
  }

 private:
  class Walk : public Cursor {
   public:
    explicit Walk(HostMapping& mapping) : mapping_(mapping), size_(mapping.entries.size()) {}
    [[nodiscard]] std::optional<MappingEntry> next() override {
      ++mapping_.reads;
      if (mapping_.entries.size() != size_) {
        throw RuntimeError("dictionary changed size during iteration");
      }
      if (index_ == size_) return std::nullopt;
      return mapping_.entries[index_++];
    }

   private:
    HostMapping& mapping_;
    std::size_t size_;
    std::size_t index_ = 0;
  };

  std::shared_ptr<HostMapping> mapping_;
};

// An object of a subclass of the mapping type: its entries count, whatever its own `get` says.
class Ledger : public HostObject {
 public:
  explicit Ledger(Mapping entries) : entries_(std::move(entries)) {}

  [[nodiscard]] std::string type_name() const override { return "Ledger"; }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override { return entries_; }

 private:
  Mapping entries_;
};

[[nodiscard]] inline List list_of(const std::shared_ptr<HostList>& host) {
  return List(std::make_unique<HostListStorage>(host));
}
[[nodiscard]] inline Mapping mapping_of(const std::shared_ptr<HostMapping>& host) {
  return Mapping(std::make_unique<HostMappingStorage>(host));
}

// Moves what a native container holds into a container of the host, which it stands for from then
// on: the storage is set first, since a container may contain itself.
inline std::shared_ptr<HostList> hand_over(List list) {
  auto host = std::make_shared<HostList>();
  const List held = list.adopt(std::make_unique<HostListStorage>(host));
  for (std::size_t i = 0; i < held.size(); ++i)
    host->items.push_back(held.at(i));
  return host;
}
inline std::shared_ptr<HostMapping> hand_over(Mapping mapping) {
  auto host = std::make_shared<HostMapping>();
  const Mapping held = mapping.adopt(std::make_unique<HostMappingStorage>(host));
  MappingCursor cursor(held);
  while (std::optional<MappingEntry> entry = cursor.next())
    host->entries.push_back(*std::move(entry));
  return host;
}

// A copy of plain data in which every list and mapping is a container of the host.
[[nodiscard]] inline Value as_host_containers(const Value& value) {
  if (value.is_list()) {
    auto host = std::make_shared<HostList>();
    for (const Value& item : value.list().native_items())
      host->items.push_back(as_host_containers(item));
    return list_of(host);
  }
  if (value.is_mapping()) {
    auto host = std::make_shared<HostMapping>();
    for (const MappingEntry& entry : value.mapping().native_entries())
      host->entries.push_back({entry.key, as_host_containers(entry.value)});
    return mapping_of(host);
  }
  return value;
}

}  // namespace varnholt::genetic::test
