#include "apps/genetic_search/doctor_command.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/pool/system_calls.hpp"

namespace varnholt::app {
namespace {

constexpr std::uint64_t kBytesInMebibyte = 1024 * 1024;
constexpr double kMillisecondsInSecond = 1e3;

std::string limit_text(const std::optional<std::uint64_t>& limit) {
  return limit ? fmt::format("{}", *limit) : std::string("any number of");
}

std::string machine_text(const embedded::MachineFacts& facts) {
  std::string text = fmt::format("machine  {}, {} processor{}", facts.kernel,
                                 facts.limits.processors, facts.limits.processors == 1 ? "" : "s");
  if (facts.limits.processor_quota) {
    text += fmt::format(", of which the control group gives {}", *facts.limits.processor_quota);
  }
  if (facts.limits.memory_available_bytes) {
    text += fmt::format(", {} MiB of memory available",
                        *facts.limits.memory_available_bytes / kBytesInMebibyte);
  }
  return text + "\n";
}

std::string fork_text(const embedded::MachineFacts& facts) {
  if (!facts.fork_cost) return "fork     cannot be measured\n";
  const embedded::ForkCost& cost = *facts.fork_cost;
  return fmt::format(
      "fork     {:.2f} ms as it is, {:.2f} ms with 64 MiB in small pages, {:.2f} ms with 64 MiB in "
      "large ones\n",
      cost.lean_seconds * kMillisecondsInSecond, cost.small_pages_seconds * kMillisecondsInSecond,
      cost.large_pages_seconds * kMillisecondsInSecond);
}

std::string pages_text(const embedded::LargePages& pages) {
  if (pages.page_bytes == 0) return "pages    the kernel has no large ones\n";
  return fmt::format("pages    large ones of {} KiB, given {}\n", pages.page_bytes / 1024,
                     pages.enabled == "always"    ? "to all"
                     : pages.enabled == "madvise" ? "to who asks for them"
                                                  : "to nobody");
}

}  // namespace

std::string machine_page(const embedded::MachineFacts& facts) {
  std::string page = machine_text(facts);
  page += fmt::format("limits   {} open files, {} processes\n", limit_text(facts.open_files),
                      limit_text(facts.processes));
  page += pages_text(facts.pages);
  page += fork_text(facts);
  const std::vector<embedded::MachineFinding> findings = embedded::machine_findings(facts);
  page += findings.empty() ? "\nNothing needs to be changed.\n" : "\nTo change:\n";
  for (const embedded::MachineFinding& finding : findings) {
    page += fmt::format("- {}{}\n  {}\n", finding.prevents_searching ? "no search can run: " : "",
                        finding.text, finding.remedy);
  }
  return page;
}

bool doctor_command(Output& output) {
  embedded::RealSystemCalls system;
  const embedded::MachineFacts facts = embedded::read_machine_facts(system);
  output.write(machine_page(facts));
  output.throw_if_failed();
  const std::vector<embedded::MachineFinding> findings = embedded::machine_findings(facts);
  return std::none_of(
      findings.begin(), findings.end(),
      [](const embedded::MachineFinding& finding) { return finding.prevents_searching; });
}

}  // namespace varnholt::app
