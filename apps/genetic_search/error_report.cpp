#include "apps/genetic_search/error_report.hpp"

#include <stdexcept>

#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/config/host_config_error.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/search/pool_book.hpp"
#include "hosts/embedded/search/seed_graphs.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/store/store_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::app {
namespace {

template <typename... Kinds>
bool is_one_of(const std::exception& error) {
  return ((dynamic_cast<const Kinds*>(&error) != nullptr) || ...);
}

// The lines of an error of several lines, such as the mistakes of a price file.
std::string each_on_one_line(std::string_view text) {
  std::string lines;
  while (true) {
    const std::size_t end = text.find('\n');
    lines += on_one_line(text.substr(0, end));
    if (end == std::string_view::npos) return lines;
    lines += "\n  ";
    text.remove_prefix(end + 1);
  }
}

}  // namespace

bool is_about_input(const std::exception& error) {
  // Others use the store, or the disk is full: that says nothing of the input.
  if (is_one_of<embedded::StoreBusyError, embedded::StoreDiskError>(error)) return false;
  return is_one_of<UsageError, embedded::PriceFileError, embedded::SeedFileError,
                   embedded::StoreError, embedded::HostConfigError, embedded::ExportError,
                   genetic::TypeError, embedded::PoolBookError, genetic::ValueError,
                   std::invalid_argument>(error);
}

std::string error_text(const std::exception& error) {
  std::string text = each_on_one_line(error.what());
  if (text.empty()) text = "an error without a text";
  try {
    std::rethrow_if_nested(error);
  } catch (const std::exception& cause) {
    text += ": " + error_text(cause);
  } catch (...) {
    text += ": an error of an unknown kind";
  }
  return text;
}

}  // namespace varnholt::app
