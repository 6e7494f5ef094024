#include "hosts/embedded/market/price_file_error.hpp"

#include <utility>

namespace varnholt::embedded {
namespace {

constexpr std::size_t kShownBytes = 40;

// A cell as a message can show it: on one line, and not longer than a glance.
std::string shown(const std::string& value) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "\"";
  for (std::size_t i = 0; i < value.size() && i < kShownBytes; ++i) {
    const auto byte = static_cast<unsigned char>(value[i]);
    if (byte < 0x20 || byte == 0x7f) {
      text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      text += value[i];
    }
  }
  // The cut may not leave half a UTF-8 sequence at the end.
  if (value.size() > kShownBytes) {
    while (text.size() > 1 && (static_cast<unsigned char>(value[kShownBytes]) & 0xc0) == 0x80) {
      const auto last = static_cast<unsigned char>(text.back());
      if (last < 0x80) break;
      text.pop_back();
      if (last >= 0xc0) break;
    }
    text += "...";
  }
  return text + "\"";
}

std::string message(const PricePlace& place, const std::string& problem,
                    const std::string& remedy) {
  std::string text = place.file;
  if (place.line != 0) text.append(": line ").append(std::to_string(place.line));
  if (place.column != 0) {
    text.append(", column ").append(std::to_string(place.column));
    if (!place.column_name.empty()) text.append(" ").append(shown(place.column_name));
    text.append(": ").append(shown(place.value)).append(" ");
  } else {
    text.append(": ");
  }
  return text + problem + "; " + remedy;
}

std::string joined(const std::vector<std::string>& mistakes, const std::string& more) {
  std::string text;
  for (const std::string& mistake : mistakes)
    text.append(text.empty() ? "" : "\n").append(mistake);
  return more.empty() ? text : text + "\n" + more;
}

}  // namespace

PriceFileError::PriceFileError(PricePlace place, const std::string& problem,
                               const std::string& remedy)
    : std::runtime_error(message(place, problem, remedy)),
      place_(std::move(place)),
      mistakes_{what()} {}

PriceFileError::PriceFileError(PricePlace first, std::vector<std::string> mistakes,
                               const std::string& more)
    : std::runtime_error(joined(mistakes, more)),
      place_(std::move(first)),
      mistakes_(std::move(mistakes)),
      is_cut_(!more.empty()) {}

void MistakeList::add(const PriceFileError& error) {
  if (mistakes_.empty()) first_ = error.place();
  for (const std::string& mistake : error.mistakes()) {
    if (mistakes_.size() < kMost) mistakes_.push_back(mistake);
  }
  if (mistakes_.size() < kMost && !error.is_cut()) return;
  throw PriceFileError(first_, mistakes_,
                       error.place().file + ": read no further after " +
                           std::to_string(mistakes_.size()) + " mistakes; there may be more");
}

void MistakeList::throw_if_any() const {
  if (!mistakes_.empty()) throw PriceFileError(first_, mistakes_, "");
}

}  // namespace varnholt::embedded
