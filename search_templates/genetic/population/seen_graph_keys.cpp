#include "search_templates/genetic/population/seen_graph_keys.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace varnholt::genetic {
namespace {

constexpr std::size_t kFirstPlaces = 64;
constexpr std::size_t kFirstEncodingBytes = std::size_t{16} * 1024;

}  // namespace

SeenGraphKeys::SeenGraphKeys(std::pmr::memory_resource& memory)
    : encodings_(
          std::make_unique<std::pmr::monotonic_buffer_resource>(kFirstEncodingBytes, &memory)),
      places_(&memory) {}

std::size_t SeenGraphKeys::place_of(const StructuralKey& key) const {
  const std::size_t mask = places_.size() - 1;
  const std::string_view encoding = key.encoding();
  std::size_t place = key.hash() & mask;
  while (places_[place].encoding != nullptr) {
    const Place& taken = places_[place];
    if (taken.hash == key.hash() && std::string_view(taken.encoding, taken.size) == encoding) break;
    place = (place + 1) & mask;
  }
  return place;
}

bool SeenGraphKeys::contains(const StructuralKey& key) const {
  if (key.has_objects()) return with_objects_.contains(key);
  return count_ > 0 && places_[place_of(key)].encoding != nullptr;
}

void SeenGraphKeys::insert(const StructuralKey& key) {
  if (key.has_objects()) {
    with_objects_.insert(key);
    return;
  }
  if (3 * (count_ + 1) > 2 * places_.size()) grow();
  Place& place = places_[place_of(key)];
  if (place.encoding != nullptr) return;
  const std::string_view encoding = key.encoding();
  auto* const bytes =
      static_cast<char*>(encodings_->allocate(std::max<std::size_t>(encoding.size(), 1), 1));
  std::copy(encoding.begin(), encoding.end(), bytes);
  place = {key.hash(), bytes, encoding.size()};
  ++count_;
}

void SeenGraphKeys::grow() {
  const std::size_t size = std::max(kFirstPlaces, 2 * places_.size());
  std::pmr::vector<Place> old(size, places_.get_allocator());
  old.swap(places_);
  const std::size_t mask = size - 1;
  for (const Place& taken : old) {
    if (taken.encoding == nullptr) continue;
    // All are different, so the first empty place is the right one.
    std::size_t place = taken.hash & mask;
    while (places_[place].encoding != nullptr)
      place = (place + 1) & mask;
    places_[place] = taken;
  }
}

}  // namespace varnholt::genetic
