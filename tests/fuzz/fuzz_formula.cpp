// Goal: no text crashes the parser of formulas, and every one that is refused is refused with its
// place; what is read can be printed, and the print is read as the same graph.
// Method: every text is read as one formula, and as a file of formulas, of the whole vocabulary.
#include <string>

#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/hosts/embedded/price_text.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace varnholt::embedded;
  using varnholt::fuzz::require;
  static const Vocabulary vocabulary = make_vocabulary(
      test::read_price_text("date,symbol,open,high,low,close,volume,sector\n"
                            "2020-01-02,AAA,1,2,1,2,5,oil\n2020-01-02,BBB,1,2,1,2,5,\n",
                            "prices.csv"));
  const auto read = [](std::string_view text, std::size_t line) {
    try {
      const varnholt::genetic::Value graph = parse_formula(text, vocabulary, {}, line);
      static_cast<void>(check_graph(graph, vocabulary));
      const std::string printed = expression_text(graph);
      require(expression_text(parse_formula(printed, vocabulary)) == printed,
              "what is printed is read as the same graph");
    } catch (const FormulaError& error) {
      require(error.text().starts_with("line "), "an error names its line");
    }
  };
  const std::string_view text = varnholt::fuzz::text_of(data, size);
  read(text, 1);
  for (const FormulaLine& line : formula_lines(text))
    read(line.text, line.first_line);
  return 0;
}
