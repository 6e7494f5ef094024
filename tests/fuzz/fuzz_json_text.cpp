// Goal: no JSON text crashes or leaks, be it a file's or the detail of a failure.
// Method: every text is read. One that is JSON is written and read again, which must give the same
// text; one that is not must fail with a ValueError that says so. Each is also the detail of a
// failure, whose metrics are read whatever it is.
#include <optional>
#include <string>

#include "hosts/embedded/host/json_value.hpp"
#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/support/utf8.hpp"

namespace {

using varnholt::embedded::read_json;
using varnholt::fuzz::require;
using varnholt::genetic::Value;

class Reader : public varnholt::genetic::JsonReader {
 public:
  [[nodiscard]] Value read(const Value& text) override { return read_json(text.text()); }
};

std::optional<Value> value_of(std::string_view text) {
  try {
    return read_json(text);
  } catch (const varnholt::genetic::ValueError& error) {
    require(error.text().starts_with("not JSON: "), "an error says that the text is no JSON");
    return std::nullopt;
  }
}

void write_and_read_again(const Value& value) {
  std::string written;
  try {
    written = varnholt::genetic::json_text(value);
  } catch (const varnholt::genetic::RecursionError&) {
    return;  // Deeper than any walk goes.
  }
  require(varnholt::genetic::json_text(read_json(written)) == written,
          "what is written reads as the same");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = varnholt::fuzz::text_of(data, size);
  const std::optional<Value> value = value_of(text);
  if (value) write_and_read_again(*value);
  if (!varnholt::genetic::test::is_valid_utf8(text)) return 0;

  Reader reader;
  const auto pair = varnholt::genetic::failure_metric_pair(
      reader, varnholt::genetic::Mapping{{"reason", "sharpe_min"}, {"detail", Value(text)}});
  require(value.has_value() || (pair.value.is_absent() && pair.threshold.is_absent()),
          "a detail that is no JSON has no metrics");
  return 0;
}
