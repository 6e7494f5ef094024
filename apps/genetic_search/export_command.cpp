#include "apps/genetic_search/export_command.hpp"

#include <fmt/format.h>

#include "apps/genetic_search/pool_signals.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/store/store_reader.hpp"

namespace varnholt::app {
namespace {

using embedded::ExportError;

embedded::PriceSource prices_of(const ExportCommand& command, const embedded::RunStart& run) {
  if (command.prices) return *command.prices;
  if (run.price_path.empty()) {
    throw ExportError(fmt::format(
        "the store does not say where the price file {} was; name it with --prices FILE",
        on_one_line(run.price_file)));
  }
  return embedded::price_source_of(run);
}

}  // namespace

void export_command(const ExportCommand& command, const RunOutputs& outputs,
                    const embedded::InterruptFlag& interrupt) {
  using embedded::Existing;
  const bool is_file = command.weights != kStandardOutput;
  const auto check_interrupt = [&interrupt] {
    if (interrupt.requests > 0) throw embedded::InterruptedAtOnce();
  };
  const Existing existing = command.force ? Existing::IsReplaced : Existing::IsKept;
  const std::unique_ptr<embedded::StoreReader> opened =
      embedded::open_store_reader(command.database);
  embedded::StoreReader& store = *opened;
  const embedded::EvaluationOfRun found = required_evaluation(store, command.eval_id);
  const embedded::PriceSource prices = prices_of(command, found.run.start);
  if (is_file) {
    refuse_input_as_output(command.weights, command.database, prices);
    embedded::check_weights_path(command.weights, existing);
  }

  const embedded::MarketData data =
      embedded::read_run_prices(prices, found.run.start, check_interrupt);
  check_interrupt();
  const embedded::Panel weights = embedded::history_weights(
      data, found.evaluation.graph_json, embedded::book_rules_of(found.run.start));
  check_interrupt();
  if (is_file) {
    embedded::write_weights(command.weights, data, weights, existing);
  } else {
    outputs.text.write(embedded::weights_head(data));
    for (Eigen::Index day = 0; day < weights.rows(); ++day)
      outputs.text.write(embedded::weights_row(data, weights, day));
    outputs.text.throw_if_failed();
  }
  Output& report = is_file ? outputs.text : outputs.messages;
  report.write(fmt::format(
      "{}: the weights of {} on {} days, {} to {}, in {} instruments\n",
      is_file ? on_one_line(command.weights.string()) : std::string("standard output"),
      found.evaluation.eval_id, data.day_count(), embedded::date_text(data.dates.front()),
      embedded::date_text(data.dates.back()), data.instrument_count()));
  report.throw_if_failed();
}

}  // namespace varnholt::app
