#include "apps/genetic_search/portfolio_command.hpp"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/json_events.hpp"
#include "apps/genetic_search/pool_signals.hpp"
#include "apps/genetic_search/report.hpp"
#include "apps/genetic_search/sample_figures.hpp"
#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/pool_book.hpp"
#include "hosts/embedded/search/signal_export.hpp"

namespace varnholt::app {
namespace {

using embedded::BookMember;
using embedded::EvaluationOfRun;
using embedded::MarketData;
using embedded::PoolBook;

constexpr double kPerCent = 100.0;

const embedded::BookMethodName& chosen_method(const PortfolioCommand& command) {
  const auto methods = embedded::book_methods();
  const auto found = std::find_if(methods.begin(), methods.end(), [&command](const auto& row) {
    return row.name == command.method;
  });
  return found == methods.end() ? methods.front() : *found;
}

const embedded::RunRecord& latest_run(const std::vector<EvaluationOfRun>& signals) {
  return std::max_element(
             signals.begin(), signals.end(),
             [](const auto& left, const auto& right) { return left.run.id < right.run.id; })
      ->run;
}

embedded::PriceSource source_of(const PortfolioCommand& command, const embedded::RunStart& start) {
  return command.prices ? *command.prices : stored_prices(start);
}

// Other prices than those of the run are the user's own choice, not an accident.
MarketData prices_of(const PortfolioCommand& command, const embedded::RunStart& start,
                     const embedded::InterruptCheck& check) {
  if (command.prices)
    return embedded::read_price_file(*command.prices, command.price_format, check);
  return embedded::read_run_prices(source_of(command, start), start, check);
}

std::string figures_text(const PoolBook& book) {
  return sample_figures_text(book.statistics) +
         figures_line("turnover without netting", book.turnover_alone_in_sample,
                      book.turnover_alone_holdout) +
         figures_line("Sharpe ratio of the market", book.market.in_sample.sharpe,
                      book.market.holdout.sharpe);
}

std::string members_text(const PoolBook& book, const std::vector<EvaluationOfRun>& signals,
                         Width width) {
  const std::vector<TableColumn> columns = {
      {"id"}, {"share %"}, {"risk %"}, {"in sample"}, {"hold-out"}};
  std::vector<const BookMember*> members;
  for (const BookMember& member : book.members)
    members.push_back(&member);
  std::stable_sort(members.begin(), members.end(),
                   [](const auto* left, const auto* right) { return left->share > right->share; });
  std::vector<SignalRow> rows;
  rows.reserve(members.size());
  for (const BookMember* const member : members) {
    rows.push_back({{member->eval_id, fmt::format("{:.1f}", kPerCent * member->share),
                     fmt::format("{:.1f}", kPerCent * member->risk),
                     two_digits(member->statistics.in_sample.sharpe),
                     two_digits(member->statistics.holdout.sharpe)},
                    stored_expression(signals[member->signal].evaluation.graph_json)});
  }
  return signal_table_text(columns, rows, width);
}

std::string span_text(const embedded::DaySpan& days) {
  return fmt::format("{}, {} to {}", days.day_count(), embedded::date_text(days.first_date),
                     embedded::date_text(days.last_date));
}

std::string page_text(const PortfolioCommand& command, const PoolBook& book,
                      const std::vector<EvaluationOfRun>& signals, const std::string& prices,
                      Width width) {
  const embedded::BookMethodName& method = chosen_method(command);
  std::string text;
  const auto line = [&](const char* name, const std::string& told) {
    text += entry_text(padded(name, 8, Align::Left), told, width);
  };
  line("pool", fmt::format("\"{}\": {}, with a mean correlation of {:.2f} in sample",
                           on_one_line(command.pool),
                           counted(static_cast<std::int64_t>(book.members.size()), "signal"),
                           book.mean_correlation));
  line("prices", on_one_line(prices));
  line("days", fmt::format("in sample {}; hold-out {}", span_text(book.plan.train.front()),
                           span_text(book.plan.holdout)));
  line("book", book_text(book.rules, false));
  line("method",
       fmt::format("{}: {}, from the days in sample alone; correlations shrunk by {:.1f} %",
                   method.name, method.meaning, kPerCent * book.shrinkage));
  return text + "\nThe book\n" + figures_text(book) +
         "\nThe signals, the largest share first; the Sharpe ratios are of each alone\n" +
         members_text(book, signals, width);
}

Json span_json(const embedded::DaySpan& days) {
  return {{"days", days.day_count()},
          {"first_date", embedded::date_text(days.first_date)},
          {"last_date", embedded::date_text(days.last_date)}};
}

Json book_json(const PortfolioCommand& command, const PoolBook& book,
               const std::vector<EvaluationOfRun>& signals, const std::string& prices) {
  Json members = Json::array();
  for (const BookMember& member : book.members) {
    const std::string expression = stored_expression(signals[member.signal].evaluation.graph_json);
    Json row = {{"eval_id", member.eval_id}, {"share", member.share}, {"risk", member.risk}};
    row.update(sample_statistics_json(member.statistics));
    row["expression"] = expression.empty() ? Json(nullptr) : Json(expression);
    members.push_back(row);
  }
  Json left_out = Json::array();
  for (const auto& [id, reason] : book.left_out)
    left_out.push_back({{"eval_id", id}, {"reason", reason}});
  return {
      {"signal_pool_name", command.pool},
      {"prices", prices},
      {"method", std::string(chosen_method(command).name)},
      {"in_sample", span_json(book.plan.train.front())},
      {"holdout", span_json(book.plan.holdout)},
      {"shrinkage", book.shrinkage},
      {"mean_correlation", book.mean_correlation},
      {"statistics", sample_statistics_json(book.statistics)},
      {"market", sample_statistics_json(book.market)},
      {"turnover_without_netting",
       {{"in_sample", book.turnover_alone_in_sample}, {"holdout", book.turnover_alone_holdout}}},
      {"members", members},
      {"left_out", left_out}};
}

void write_book(const MarketData& data, const embedded::Panel& weights,
                const embedded::Append& append) {
  append(embedded::weights_head(data));
  for (Eigen::Index day = 0; day < data.day_count(); ++day)
    append(embedded::weights_row(data, weights, day));
}

}  // namespace

bool portfolio_command(const PortfolioCommand& command, const RunOutputs& outputs,
                       const embedded::InterruptFlag& interrupt, Width width) {
  const embedded::InterruptCheck check = [&interrupt] {
    if (interrupt.requests > 0) throw embedded::InterruptedAtOnce();
  };
  const auto existing = command.force ? embedded::Existing::IsReplaced : embedded::Existing::IsKept;
  const std::unique_ptr<embedded::StoreReader> store =
      embedded::open_store_reader(command.database);
  const std::vector<EvaluationOfRun> signals = signals_of_pool(*store, command.pool);
  const embedded::RunStart& start = latest_run(signals).start;
  const embedded::PriceSource prices = source_of(command, start);
  const bool to_standard_output = command.output == kStandardOutput;
  const bool to_file = command.output && !to_standard_output;
  if (to_file) {
    refuse_input_as_output(*command.output, command.database, prices);
    embedded::check_weights_path(*command.output, existing);
  }
  const MarketData data = prices_of(command, start, check);
  const PoolBook book = make_pool_book(signals, data, chosen_method(command).method, check);
  if (to_file) {
    embedded::write_weights(*command.output, data, book.weights, existing);
  } else if (to_standard_output) {
    write_book(data, book.weights, [&](std::string_view text) { outputs.text.write(text); });
  }
  Output& figures = to_standard_output ? outputs.messages : outputs.text;
  figures.write(command.json ? json_line(book_json(command, book, signals, prices.text()))
                             : page_text(command, book, signals, prices.text(), width));
  for (const auto& [id, reason] : book.left_out) {
    outputs.messages.write(
        fmt::format("{}: {} is not part of the book: {}\n", kProgramName, id, on_one_line(reason)));
  }
  outputs.text.throw_if_failed();
  return book.left_out.empty();
}

}  // namespace varnholt::app
