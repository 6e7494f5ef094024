#include "hosts/embedded/system/machine_limits.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <vector>

#include <sched.h>
#include <unistd.h>

#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::uint64_t kBytesInKilobyte = 1024;

int allowed_processors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 1;
  return std::max(1, CPU_COUNT(&set));
}

std::optional<std::int64_t> number_in(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;  // "max", for instance, or no such file.
  return number;
}

std::optional<std::int64_t> number_of_file(const std::string& path) {
  return number_in(read_file(path).bytes);
}

// The number behind a name at the beginning of a line: "MemAvailable:   123 kB".
std::optional<std::int64_t> number_after(const std::string& text, const std::string& name) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, name.size(), name) != 0) continue;
    const std::size_t digit = line.find_first_of("0123456789", name.size());
    if (digit != std::string::npos) return number_in(std::string_view(line).substr(digit));
  }
  return std::nullopt;
}

template <typename Number>
void lower(std::optional<Number>& least, std::optional<Number> candidate) {
  if (candidate && (!least || *candidate < *least)) least = candidate;
}

std::optional<double> share(std::optional<std::int64_t> quota, std::optional<std::int64_t> period) {
  if (!quota || !period || *quota <= 0 || *period <= 0) return std::nullopt;
  return static_cast<double>(*quota) / static_cast<double>(*period);
}

// What a limit leaves when `used` is taken, of which `given_up` bytes would be given up.
std::optional<std::uint64_t> left(std::optional<std::int64_t> limit,
                                  std::optional<std::int64_t> used,
                                  std::optional<std::int64_t> given_up) {
  if (!limit || !used) return std::nullopt;
  const std::int64_t held = std::max<std::int64_t>(0, *used - given_up.value_or(0));
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, *limit - held));
}

// A group and all groups above it, each of which may set limits.
std::vector<std::string> with_those_above(const std::string& root, std::string path) {
  std::vector<std::string> folders;
  while (true) {
    folders.push_back(root + path);
    if (path.empty() || path == "/") break;
    path.erase(path.rfind('/'));
  }
  return folders;
}

void take_version_2(const std::string& folder, MachineLimits& limits) {
  std::istringstream cpu(read_file(folder + "/cpu.max").bytes);
  std::string quota;
  std::string period;
  cpu >> quota >> period;
  lower(limits.processor_quota, share(number_in(quota), number_in(period)));
  const auto limit = number_of_file(folder + "/memory.max");
  if (limit) lower(limits.memory_limit_bytes, std::optional(static_cast<std::uint64_t>(*limit)));
  lower(limits.memory_available_bytes,
        left(limit, number_of_file(folder + "/memory.current"),
             number_after(read_file(folder + "/memory.stat").bytes, "inactive_file ")));
}

void take_version_1_processors(const std::string& folder, MachineLimits& limits) {
  lower(limits.processor_quota, share(number_of_file(folder + "/cpu.cfs_quota_us"),
                                      number_of_file(folder + "/cpu.cfs_period_us")));
}

void take_version_1_memory(const std::string& folder, MachineLimits& limits) {
  // Without a limit the kernel shows the largest number of whole pages.
  constexpr std::int64_t kNoLimit = std::int64_t{1} << 60U;
  const auto limit = number_of_file(folder + "/memory.limit_in_bytes");
  if (!limit || *limit >= kNoLimit) return;
  lower(limits.memory_limit_bytes, std::optional(static_cast<std::uint64_t>(*limit)));
  lower(limits.memory_available_bytes,
        left(limit, number_of_file(folder + "/memory.usage_in_bytes"),
             number_after(read_file(folder + "/memory.stat").bytes, "total_inactive_file ")));
}

bool has_controller(const std::string& list, std::string_view controller) {
  std::istringstream names(list);
  for (std::string name; std::getline(names, name, ',');) {
    if (name == controller) return true;
  }
  return false;
}

}  // namespace

int MachineLimits::busy_workers() const {
  if (!processor_quota) return processors;
  const double whole = std::ceil(*processor_quota);
  return static_cast<int>(std::clamp(whole, 1.0, static_cast<double>(processors)));
}

MachineLimits read_machine_limits(const std::string& proc, const std::string& control_groups) {
  MachineLimits limits;
  limits.processors = allowed_processors();
  const auto free_kilobytes = number_after(read_file(proc + "/meminfo").bytes, "MemAvailable:");
  if (free_kilobytes) {
    limits.memory_available_bytes = static_cast<std::uint64_t>(*free_kilobytes) * kBytesInKilobyte;
  }
  // Lines "hierarchy:controllers:path"; version 2 has no controllers there.
  std::istringstream groups(read_file(proc + "/self/cgroup").bytes);
  for (std::string line; std::getline(groups, line);) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const std::string path = line.substr(second + 1);
    const auto walk = [&](const char* folder, auto take) {
      for (const std::string& group : with_those_above(control_groups + folder, path))
        take(group, limits);
    };
    if (controllers.empty()) walk("", take_version_2);
    if (has_controller(controllers, "cpu")) walk("/cpu", take_version_1_processors);
    if (has_controller(controllers, "memory")) walk("/memory", take_version_1_memory);
  }
  return limits;
}

std::optional<std::uint64_t> mapped_bytes(const std::string& proc) {
  const auto pages = number_of_file(proc + "/self/statm");
  if (!pages) return std::nullopt;
  return static_cast<std::uint64_t>(*pages) * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace varnholt::embedded
