#include "apps/genetic_search/eval_command.hpp"

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/error_report.hpp"
#include "apps/genetic_search/json_events.hpp"
#include "apps/genetic_search/pool_signals.hpp"
#include "apps/genetic_search/report.hpp"
#include "apps/genetic_search/run_config.hpp"
#include "apps/genetic_search/sample_figures.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "hosts/embedded/system/read_file.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/unit_check.hpp"

namespace varnholt::app {
namespace {

using embedded::FormulaLine;
using embedded::Panel;
using genetic::Value;

constexpr std::size_t kLargestFormulaFile = std::size_t{16} << 20U;
constexpr std::size_t kNearestMembers = 5;

std::string file_text(const std::filesystem::path& path, const embedded::InterruptCheck& check) {
  // Standard input has a name as a file too.
  const std::filesystem::path source = path == kStandardOutput ? "/dev/stdin" : path;
  embedded::FileBytes file =
      embedded::read_file(source, kLargestFormulaFile, embedded::kWaitForWriter, check);
  if (file.trouble == embedded::ReadTrouble::None) return std::move(file.bytes);
  throw UsageError(fmt::format("{}: it {}; give the name of a file with formulas, one a line",
                               path.string(), file.trouble_text()));
}

// A formula with what is said of it: its name, or its number among all.
struct NamedLine {
  std::string label;
  FormulaLine line;
  std::string place;  // In errors.
};

std::vector<NamedLine> wanted_formulas(const EvalCommand& command,
                                       const embedded::InterruptCheck& check) {
  std::vector<NamedLine> formulas;
  const auto add = [&formulas](FormulaLine line, const std::string& place) {
    const std::string number = std::to_string(formulas.size() + 1);
    const std::string label = line.name.empty() ? number : line.name;
    formulas.push_back({label, std::move(line), place});
  };
  for (std::size_t i = 0; i < command.formulas.size(); ++i) {
    std::string_view text = command.formulas[i];
    if (text.starts_with(" -")) text.remove_prefix(1);  // The blank of the command line's parser.
    for (FormulaLine& line : embedded::formula_lines(text))
      add(std::move(line), fmt::format("formula {}", i + 1));
  }
  if (command.file) {
    for (FormulaLine& line : embedded::formula_lines(file_text(*command.file, check)))
      add(std::move(line), on_one_line(command.file->string()));
  }
  if (formulas.empty()) {
    throw UsageError(
        "there is no formula; give one, such as \"rank(close)\", or a file of them "
        "with --file FILE");
  }
  return formulas;
}

// A member of the pool, computed anew on the prices at hand.
struct Member {
  std::string eval_id;
  Eigen::ArrayXd pnl;
};

struct MemberCorrelation {
  std::string eval_id;
  double correlation = 0.0;
};

// How near a statistic is to its gate: above 0 by how much it is beyond it, below by how much it
// misses it.
double room_of(const embedded::Gate& gate, double actual, double threshold) {
  return gate.sense == embedded::Sense::AtLeast ? actual - threshold : threshold - actual;
}

// What is told of one formula.
struct Evaluated {
  std::string label;
  Value graph;
  embedded::GraphShape shape;
  embedded::UnitsOfGraph units;
  embedded::SampleStatistics statistics;
  std::vector<MemberCorrelation> members;  // The most alike first.
};

class Evaluations {
 public:
  Evaluations(const EvalCommand& command, const RunOutputs& outputs, embedded::InterruptCheck check,
              Width width)
      : command_(command), outputs_(outputs), check_(std::move(check)), width_(width) {}

  bool tell() {
    const std::vector<NamedLine> formulas = wanted_formulas(command_, check_);
    embedded::SearchOptions options = command_.search;
    options.config = resolved_config(command_.config_file, command_.overrides, check_);
    embedded::RunData data(options, check_);
    config_ = options.config;
    config_.gates = data.gates;
    book_ = data.book;
    plan_ = data.plan;
    days_.dates = data.whole.dates;
    days_.symbols = data.whole.symbols;
    const embedded::Evaluator evaluator(
        std::move(data.whole), {.book = data.book, .vocabulary = options.config.vocabulary});
    read_members(evaluator);
    for (const std::optional<std::filesystem::path>* path : {&command_.weights, &command_.values}) {
      if (*path) embedded::check_weights_path(**path, existing());
    }
    std::string values = head(formulas.size());
    std::string weights = values;
    bool all_read = true;
    if (!command_.json) outputs_.text.write(days_text(options));
    for (const NamedLine& formula : formulas) {
      check_();
      all_read = tell_one(evaluator, formula, formulas.size(), values, weights) && all_read;
    }
    write_file(command_.values, values);
    write_file(command_.weights, weights);
    outputs_.text.throw_if_failed();
    return all_read;
  }

 private:
  [[nodiscard]] embedded::Existing existing() const {
    return command_.force ? embedded::Existing::IsReplaced : embedded::Existing::IsKept;
  }

  // With one formula a file is that of a signal; with more each row begins with the formula.
  [[nodiscard]] std::string head(std::size_t formulas) const {
    return (formulas > 1 ? "formula," : "") + embedded::weights_head(days_);
  }

  void append_rows(std::string& text, const std::string& label, std::size_t formulas,
                   const Panel& panel) const {
    for (Eigen::Index day = 0; day < panel.rows(); ++day) {
      if (formulas > 1) text += label + ",";
      text += embedded::weights_row(days_, panel, day);
    }
  }

  void write_file(const std::optional<std::filesystem::path>& path, const std::string& text) const {
    if (!path) return;
    embedded::write_whole_file(*path, existing(),
                               [&text](const embedded::Append& append) { append(text); });
  }

  bool tell_one(const embedded::Evaluator& evaluator, const NamedLine& formula,
                std::size_t formulas, std::string& values, std::string& weights_text) {
    Evaluated told;
    told.label = formula.label;
    try {
      told.graph = embedded::parse_formula(formula.line.text, evaluator.vocabulary(), {},
                                           formula.line.first_line);
    } catch (const embedded::FormulaError& error) {
      outputs_.messages.write(
          fmt::format("{}: {}, {}\n", kProgramName, formula.place, error_text(error)));
      return false;
    }
    const embedded::Expression expression = evaluator.compile(told.graph);
    told.shape = expression.shape;
    told.units = embedded::units_of_graph(told.graph, evaluator.vocabulary());
    const Panel signal = evaluator.signal(expression);
    const Panel weights = evaluator.weights(signal);
    const embedded::BacktestResult in_sample =
        embedded::in_sample_backtest(weights, evaluator.close(), book_, plan_);
    told.statistics = {
        in_sample.statistics,
        embedded::holdout_backtest(weights, evaluator.close(), book_, plan_).statistics};
    told.members = correlations(in_sample.net_returns);
    outputs_.text.write(command_.json ? json_line(json_of(told)) : text_of(told));
    if (command_.values) append_rows(values, formula.label, formulas, signal);
    if (command_.weights) append_rows(weights_text, formula.label, formulas, weights);
    return true;
  }

  // --- the pool ---

  void read_members(const embedded::Evaluator& evaluator) {
    if (!command_.database) return;
    const std::unique_ptr<embedded::StoreReader> store =
        embedded::open_store_reader(*command_.database);
    for (const embedded::SubmissionRecord& submission :
         store->submissions().list({std::nullopt, embedded::SubmissionState::Submitted})) {
      if (submission.pool.signal_pool_name != config_.pool.name) continue;
      check_();
      const embedded::EvaluationOfRun signal = required_evaluation(*store, submission.eval_id);
      try {
        const Panel weights =
            evaluator.evaluate(embedded::read_json(signal.evaluation.graph_json)).weights;
        members_.push_back(
            {submission.eval_id,
             embedded::in_sample_backtest(weights, evaluator.close(), book_, plan_).net_returns});
      } catch (const genetic::ValueError& error) {
        outputs_.messages.write(fmt::format("{}: {} cannot be computed on these prices: {}\n",
                                            kProgramName, submission.eval_id,
                                            on_one_line(error.what())));
      }
    }
  }

  [[nodiscard]] std::vector<MemberCorrelation> correlations(const Eigen::ArrayXd& pnl) const {
    std::vector<MemberCorrelation> all;
    all.reserve(members_.size());
    for (const Member& member : members_)
      all.push_back({member.eval_id, embedded::pearson_correlation(pnl, member.pnl)});
    std::stable_sort(all.begin(), all.end(), [](const auto& left, const auto& right) {
      return std::abs(left.correlation) > std::abs(right.correlation);
    });
    return all;
  }

  // --- what is told ---

  [[nodiscard]] std::string days_text(const embedded::SearchOptions& options) const {
    std::string text;
    const auto line = [&](const char* name, const std::string& told) {
      text += entry_text(padded(name, 8, Align::Left), told, width_);
    };
    line("prices",
         fmt::format("{}: {}, {}", on_one_line(options.prices.text()),
                     counted(static_cast<std::int64_t>(days_.symbols.size()), "instrument"),
                     counted(static_cast<std::int64_t>(days_.dates.size()), "day")));
    const embedded::DaySpan& holdout = plan_.holdout;
    line("days", fmt::format("in sample {}, to {}; hold-out {}, {} to {}", plan_.seen_days(),
                             embedded::date_text(plan_.searched().last_date), holdout.day_count(),
                             embedded::date_text(holdout.first_date),
                             embedded::date_text(holdout.last_date)));
    line("book", book_text(book_, !options.periods_per_year.has_value()));
    return text;
  }

  [[nodiscard]] double statistic(const embedded::Gate& gate, const Evaluated& told) const {
    return told.statistics.in_sample.*gate.statistic;
  }

  [[nodiscard]] std::size_t failure_count(const Evaluated& told) const {
    return embedded::failed_gates(told.statistics.in_sample, config_.gates, config_.limits).size();
  }

  [[nodiscard]] std::string gates_text(const Evaluated& told) const {
    constexpr std::size_t kReason = 30;
    std::string text;
    for (const embedded::Gate& gate : embedded::gate_table()) {
      const double actual = statistic(gate, told);
      const double threshold = gate.threshold(config_.gates, config_.limits);
      const bool fails = embedded::judge_gate(gate, actual, threshold).has_value();
      text +=
          fmt::format("  {}  {} {:.4g}, {} {:.4g}: {} by {:.4g}\n",
                      padded(gate.reason.view(), kReason, Align::Left), gate.metric.view(), actual,
                      gate.sense == embedded::Sense::AtLeast ? "least" : "most", threshold,
                      fails ? "fails" : "passes", std::abs(room_of(gate, actual, threshold)));
    }
    return text;
  }

  [[nodiscard]] std::string text_of(const Evaluated& told) const {
    std::string text = "\n";
    text += entry_text(told.label + "  ", embedded::expression_text(told.graph), width_);
    text += fmt::format("  {}, {} deep\n",
                        counted(static_cast<std::int64_t>(told.shape.node_count), "node"),
                        told.shape.depth);
    if (told.units.mixed_calls > 0) text += fmt::format("  note: {}\n", told.units.first_mixture);
    text += sample_figures_text(told.statistics);
    const std::size_t failures = failure_count(told);
    text += failures == 0 ? std::string("It passes every gate:\n")
                          : fmt::format("It fails {} of {} gates:\n", failures,
                                        embedded::gate_table().size());
    text += gates_text(told);
    if (command_.database) text += pool_text(told);
    return text;
  }

  [[nodiscard]] std::string pool_text(const Evaluated& told) const {
    if (told.members.empty()) {
      return fmt::format("No signal of the pool \"{}\" can be compared with it.\n",
                         on_one_line(config_.pool.name));
    }
    std::string text =
        fmt::format("Correlation with the pool \"{}\", {}; {:g} is the most for a new member:\n",
                    on_one_line(config_.pool.name),
                    counted(static_cast<std::int64_t>(told.members.size()), "member"),
                    config_.pool.correlation_max);
    for (std::size_t i = 0; i < std::min(kNearestMembers, told.members.size()); ++i) {
      text +=
          fmt::format("  {:>8}  {:6.2f}\n", told.members[i].eval_id, told.members[i].correlation);
    }
    return text;
  }

  [[nodiscard]] Json json_of(const Evaluated& told) const {
    Json gates = Json::array();
    for (const embedded::Gate& gate : embedded::gate_table()) {
      const double actual = statistic(gate, told);
      const double threshold = gate.threshold(config_.gates, config_.limits);
      gates.push_back({{"reason", std::string(gate.reason.view())},
                       {"metric", std::string(gate.metric.view())},
                       {"actual", number_json(actual)},
                       {"threshold", number_json(threshold)},
                       {"room", number_json(room_of(gate, actual, threshold))},
                       {"passes", !embedded::judge_gate(gate, actual, threshold).has_value()}});
    }
    Json members = Json::array();
    for (const MemberCorrelation& member : told.members) {
      members.push_back(
          {{"eval_id", member.eval_id}, {"correlation", number_json(member.correlation)}});
    }
    return {{"formula", told.label},
            {"expression", embedded::expression_text(told.graph)},
            {"graph", to_json(told.graph)},
            {"nodes", told.shape.node_count},
            {"depth", told.shape.depth},
            {"unit", embedded::unit_name(told.units.unit)},
            {"unit_mixtures", told.units.mixed_calls},
            {"statistics", sample_statistics_json(told.statistics)},
            {"passes", failure_count(told) == 0},
            {"gates", gates},
            {"pool", command_.database ? members : Json(nullptr)}};
  }

  const EvalCommand& command_;
  const RunOutputs& outputs_;
  embedded::InterruptCheck check_;
  Width width_;
  embedded::HostConfig config_;
  embedded::BookRules book_;
  embedded::EraPlan plan_;
  embedded::MarketData days_;  // The dates and symbols alone.
  std::vector<Member> members_;
};

}  // namespace

bool eval_command(const EvalCommand& command, const RunOutputs& outputs,
                  const embedded::InterruptFlag& interrupt, Width width) {
  const embedded::InterruptCheck check = [&interrupt] {
    if (interrupt.requests > 0) throw embedded::InterruptedAtOnce();
  };
  return Evaluations(command, outputs, check, width).tell();
}

}  // namespace varnholt::app
