#include "hosts/embedded/search/seed_graphs.hpp"

#include <string>

#include <fmt/format.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/system/read_file.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::size_t kLargestSeedBytes = std::size_t{64} << 20U;

std::string file_text(const std::filesystem::path& path, const InterruptCheck& check) {
  FileBytes file = read_file(path, kLargestSeedBytes, kWaitForWriter, check);
  if (file.trouble != ReadTrouble::None) {
    throw SeedFileError(fmt::format("{}: {}; give the name of a file with formulas or graphs",
                                    path.string(), file.trouble_text()));
  }
  return std::move(file.bytes);
}

genetic::Value parsed(std::string_view text, const std::string& name) {
  try {
    return read_written_json(text);
  } catch (const genetic::ValueError& error) {
    throw SeedFileError(fmt::format("{}: {}", name, error.text()));
  }
}

// A formula begins with neither of the two.
bool is_json(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  return begin != std::string_view::npos && (text[begin] == '[' || text[begin] == '{');
}

genetic::List graphs_of_formulas(std::string_view text, const std::string& name,
                                 const Vocabulary& vocabulary, const GraphLimits& limits) {
  genetic::List graphs;
  for (const FormulaLine& line : formula_lines(text)) {
    try {
      graphs.append(parse_formula(line.text, vocabulary, limits, line.first_line));
    } catch (const FormulaError& error) {
      throw SeedFileError(fmt::format("{}, {}", name, error.text()));
    }
  }
  if (graphs.size() == 0) {
    throw SeedFileError(fmt::format(
        "{}: holds no graph; write formulas, one a line, or a JSON list of graphs", name));
  }
  return graphs;
}

}  // namespace

genetic::List read_seed_graphs(const std::filesystem::path& path, const Vocabulary& vocabulary,
                               const GraphLimits& limits, const InterruptCheck& check) {
  return parse_seed_graphs(file_text(path, check), path.string(), vocabulary, limits);
}

genetic::List parse_seed_graphs(std::string_view text, const std::string& name,
                                const Vocabulary& vocabulary, const GraphLimits& limits) {
  if (!is_json(text)) return graphs_of_formulas(text, name, vocabulary, limits);
  const genetic::Value graphs = parsed(text, name);
  if (!graphs.is_list()) {
    throw SeedFileError(
        fmt::format("{}: holds no list; write the graphs as a JSON list [...]", name));
  }
  for (std::size_t index = 0; index < graphs.list().size(); ++index) {
    try {
      static_cast<void>(check_graph(graphs.list().at(index), vocabulary, limits));
    } catch (const GraphError& error) {
      throw SeedFileError(fmt::format("{}: graph {} of {}: {}", name, index + 1,
                                      graphs.list().size(), error.text()));
    }
  }
  return graphs.list();
}

}  // namespace varnholt::embedded
