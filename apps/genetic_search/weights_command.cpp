#include "apps/genetic_search/weights_command.hpp"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/pool_signals.hpp"
#include "apps/genetic_search/report.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/market/price_changes.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/search/signal_weights.hpp"
#include "hosts/embedded/store/store_reader.hpp"

namespace varnholt::app {
namespace {

using embedded::EvaluationOfRun;
using embedded::MarketData;
using embedded::Panel;

struct Signal {
  std::string eval_id;
  Panel weights;
};

std::vector<EvaluationOfRun> wanted_signals(const WeightsCommand& command,
                                            embedded::StoreReader& store) {
  if (!command.pool) return {required_evaluation(store, command.eval_id)};
  return signals_of_pool(store, *command.pool);
}

// The first day to write; the days after it are written too.
Eigen::Index first_day(const WeightsCommand& command, const MarketData& data) {
  Eigen::Index first = 0;
  if (command.since) {
    first =
        std::lower_bound(data.dates.begin(), data.dates.end(), *command.since) - data.dates.begin();
    if (first == data.day_count()) {
      throw UsageError(fmt::format(
          "{} has no day from {} on; its last is {}", on_one_line(command.prices.text()),
          embedded::date_text(*command.since), embedded::date_text(data.dates.back())));
    }
  }
  return command.last ? std::max<Eigen::Index>(first, data.day_count() - *command.last) : first;
}

std::string names_text(const std::vector<std::string>& names) {
  constexpr std::size_t kListed = 10;
  std::string text;
  for (std::size_t i = 0; i < std::min(names.size(), kListed); ++i)
    text.append(text.empty() ? "" : ", ").append(on_one_line(names[i]));
  if (names.size() > kListed) text += fmt::format(", and {} more", names.size() - kListed);
  return text;
}

std::string changes_text(const embedded::PriceChanges& changes) {
  std::string text =
      fmt::format("{} more, {} fewer", counted(changes.days_added, "day"), changes.days_gone);
  if (!changes.instruments_added.empty())
    text += "; new instruments " + names_text(changes.instruments_added);
  if (!changes.instruments_gone.empty())
    text += "; gone are " + names_text(changes.instruments_gone);
  if (changes.closes_added > 0) text += fmt::format("; {} gaps are filled", changes.closes_added);
  if (changes.closes_gone > 0) text += fmt::format("; {} closes are missing", changes.closes_gone);
  if (const auto& largest = changes.largest) {
    text += fmt::format(
        "; the largest change of a return is that of {} on {}, {:.4g} % then and "
        "{:.4g} % now",
        on_one_line(largest->symbol), embedded::date_text(largest->date), 100.0 * largest->before,
        100.0 * largest->now);
  }
  return text + (changes.history_is_the_same()
                     ? "; where both have prices, the returns are the same"
                     : "");
}

// How the prices differ from those of each run that a signal is from.
std::string comparison_text(const WeightsCommand& command, const MarketData& data,
                            const std::vector<EvaluationOfRun>& signals,
                            const embedded::InterruptCheck& check) {
  std::string text;
  std::set<std::string> told;
  for (const EvaluationOfRun& signal : signals) {
    const embedded::RunStart& start = signal.run.start;
    if (!told.insert(start.price_digest).second) continue;
    text += fmt::format("{} beside the prices of run {}: ", on_one_line(command.prices.text()),
                        signal.run.id);
    try {
      const MarketData before =
          embedded::read_run_prices(embedded::price_source_of(start), start, check);
      text += changes_text(embedded::price_changes(before, data)) + "\n";
    } catch (const embedded::ExportError&) {
      // Nothing depends on them: what was asked for are the weights on the new ones.
      text += fmt::format("not compared, because {} is not there any more as it was\n",
                          on_one_line(stored_prices(start).text()));
    }
  }
  return text;
}

// Writes the lines of all signals, from the day on.
void write_lines(const WeightsCommand& command, const MarketData& data,
                 const std::vector<Signal>& signals, const embedded::Append& append) {
  append((command.pool ? "id," : "") + embedded::weights_head(data));
  const Eigen::Index first = first_day(command, data);
  for (const Signal& signal : signals) {
    const std::string begin = command.pool ? signal.eval_id + "," : "";
    for (Eigen::Index day = first; day < data.day_count(); ++day)
      append(begin + embedded::weights_row(data, signal.weights, day));
  }
}

class Weights {
 public:
  Weights(const WeightsCommand& command, const RunOutputs& outputs,
          const embedded::InterruptFlag& interrupt)
      : command_(command),
        outputs_(outputs),
        check_([&interrupt] {
          if (interrupt.requests > 0) throw embedded::InterruptedAtOnce();
        }),
        is_file_(command.output != kStandardOutput),
        existing_(command.force ? embedded::Existing::IsReplaced : embedded::Existing::IsKept) {}

  bool write() {
    const std::unique_ptr<embedded::StoreReader> store =
        embedded::open_store_reader(command_.database);
    const std::vector<EvaluationOfRun> wanted = wanted_signals(command_, *store);
    if (is_file_) refuse_input_as_output(command_.output, command_.database, command_.prices);
    if (is_file_) embedded::check_weights_path(command_.output, existing_);
    const MarketData data =
        embedded::read_price_file(command_.prices, command_.price_format, check_);
    (void)first_day(command_, data);  // Refused before anything is computed.
    check_();
    tell(comparison_text(command_, data, wanted, check_));
    const std::vector<Signal> signals = computed(wanted, data);
    if (is_file_) {
      embedded::write_whole_file(command_.output, existing_, [&](const embedded::Append& append) {
        write_lines(command_, data, signals, append);
      });
    } else {
      write_lines(command_, data, signals,
                  [this](std::string_view text) { outputs_.text.write(text); });
    }
    tell(fmt::format(
        "{} of {}, from {} to {}; {}\n",
        counted(static_cast<std::int64_t>(signals.size()), "signal"),
        counted(data.day_count() - first_day(command_, data), "day"),
        embedded::date_text(data.dates[static_cast<std::size_t>(first_day(command_, data))]),
        embedded::date_text(data.dates.back()),
        book_text(embedded::book_rules_of(wanted.front().run.start), false)));
    outputs_.text.throw_if_failed();
    return signals.size() == wanted.size();
  }

 private:
  std::vector<Signal> computed(const std::vector<EvaluationOfRun>& wanted, const MarketData& data) {
    embedded::SignalWeights weights(data);
    std::vector<Signal> signals;
    for (const EvaluationOfRun& signal : wanted) {
      check_();
      const std::string& id = signal.evaluation.eval_id;
      try {
        signals.push_back({id, weights.of(signal)});
      } catch (const std::exception& error) {
        if (!command_.pool) throw;
        outputs_.messages.write(fmt::format("{}: {} cannot be computed on {}: {}\n", kProgramName,
                                            id, on_one_line(command_.prices.text()),
                                            on_one_line(error.what())));
      }
    }
    return signals;
  }

  void tell(const std::string& text) { (is_file_ ? outputs_.text : outputs_.messages).write(text); }

  const WeightsCommand& command_;
  const RunOutputs& outputs_;
  embedded::InterruptCheck check_;
  bool is_file_;
  embedded::Existing existing_;
};

}  // namespace

bool weights_command(const WeightsCommand& command, const RunOutputs& outputs,
                     const embedded::InterruptFlag& interrupt) {
  return Weights(command, outputs, interrupt).write();
}

}  // namespace varnholt::app
