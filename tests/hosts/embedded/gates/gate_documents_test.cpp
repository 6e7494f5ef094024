// Goal: what the documents tell of the gates is what the table of gates says.
// Method: the rows that the table gives, looked for in the documents; and the documents' rows
// counted, so that none is left over.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/gates/gates.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAreArray;

std::string document(const std::string& name) {
  std::ifstream file(VARNHOLT_SOURCE_DIR "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The rows of the first table after the heading, without the two lines above them.
std::vector<std::string> rows_below(const std::string& text, const std::string& heading) {
  std::vector<std::string> rows;
  std::size_t at = text.find(heading);
  EXPECT_NE(at, std::string::npos) << heading;
  at = text.find("\n|", at) + 1;
  for (; text[at] == '|'; at = text.find('\n', at) + 1)
    rows.push_back(text.substr(at, text.find('\n', at) - at));
  rows.erase(rows.begin(), rows.begin() + 2);
  return rows;
}

std::string one_digit(double number) {
  return fmt::format("{:.1f}", number);
}

std::vector<std::string> configuration_rows(bool limits) {
  std::vector<std::string> rows;
  for (const Gate* const gate : gates_as_told(limits)) {
    const std::string range = std::isfinite(gate->high)
                                  ? fmt::format("{} to {}", gate->low, gate->high)
                                  : std::string("finite");
    rows.push_back(fmt::format(
        "| `{}` | {} | {} | {} | {} |", gate->key, gate->meaning, gate->unit, range,
        gate->made_default.empty() ? one_digit(gate->default_threshold()) : gate->default_text()));
  }
  return rows;
}

TEST(GateDocuments, TheConfigurationsTablesAreThoseOfTheGates) {
  const std::string text = document("docs/configuration.md");
  EXPECT_THAT(rows_below(text, "## `[gates]`"), ElementsAreArray(configuration_rows(false)));
  EXPECT_THAT(rows_below(text, "## `[limits]`"), ElementsAreArray(configuration_rows(true)));
}

TEST(GateDocuments, TheTableOfReasonsIsThatOfTheGates) {
  std::vector<std::string> expected;
  for (const Gate& gate : gate_table()) {
    expected.push_back(fmt::format("| `{}` | `{}.{}` | `{}` | `{}` | {} |", gate.reason.view(),
                                   gate.config_table(), gate.key, gate.name.view(),
                                   gate.comparison().view(), gate.category.view()));
  }
  EXPECT_THAT(rows_below(document("docs/configuration.md"), "A signal is rejected for the first"),
              ElementsAreArray(expected));
}

TEST(GateDocuments, TheOptionsAreToldAsTheirHelpTellsThem) {
  const std::vector<std::string> rows =
      rows_below(document("docs/command-line.md"), "## genetic-search run");
  std::vector<std::string> told;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(told),
               [](const std::string& row) { return row.find(" | gate: ") != std::string::npos; });
  std::vector<std::string> expected;
  for (const Gate* const gate : gates_as_told(false)) {
    std::string help(gate->help);
    help.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(help.front())));
    help.pop_back();
    expected.push_back(fmt::format("| `{} X` | {} | {} | gate: {} |", gate->option,
                                   gate->option_unit, gate->default_text(), help));
  }
  EXPECT_THAT(told, ElementsAreArray(expected));
}

TEST(GateDocuments, TheExampleHasEveryKeyAtItsDefault) {
  const std::string text = document("examples/genetic-search.toml");
  std::size_t at = 0;
  for (const bool limits : {false, true}) {
    at = text.find(limits ? "\n[limits]\n" : "\n[gates]\n", at);
    for (const Gate* const gate : gates_as_told(limits)) {
      // A default that is made of the days is no number: the example shows how another is set.
      const std::size_t line =
          text.find(fmt::format("\n{}{} = {}\n", gate->made_default.empty() ? "" : "# ", gate->key,
                                one_digit(gate->default_threshold())),
                    at);
      EXPECT_NE(line, std::string::npos) << gate->key;
      at = line;
    }
  }
}

TEST(GateDocuments, ARemedyNamesWhatSetsTheGate) {
  for (const Gate& gate : gate_table()) {
    const std::string what =
        gate.is_limit ? fmt::format("limits.{} in --config", gate.key) : std::string(gate.option);
    EXPECT_EQ(gate.remedy(0.25), gate.sense == Sense::AtMost
                                     ? fmt::format("raise {} above 0.25", what)
                                     : fmt::format("lower {} below 0.25", what));
    EXPECT_LE(gate.low, gate.default_threshold());
    EXPECT_LE(gate.default_threshold(), gate.high);
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
