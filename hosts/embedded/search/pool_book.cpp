#include "hosts/embedded/search/pool_book.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/signal_weights.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;
using Eigen::MatrixXd;
using genetic::Value;

const EvaluationOfRun& latest(const std::vector<EvaluationOfRun>& signals) {
  return *std::max_element(signals.begin(), signals.end(), [](const auto& left, const auto& right) {
    return left.run.id < right.run.id;
  });
}

Value entry(const Value& mapping, std::string_view name) {
  return mapping.is_mapping() ? mapping.mapping().get(Value(name)) : Value();
}

std::optional<Date> date_of(const Value& span, std::string_view name) {
  const Value text = entry(span, name);
  return text.is_text() ? parse_date(genetic::str(text)) : std::nullopt;
}

// The last day that the run's search saw, and the first of its hold-out.
struct RunDays {
  Date last_seen;
  Date first_holdout;
};

RunDays days_of(const RunRecord& run) {
  const Value eras = read_json(run.start.eras_json);
  const Value train = entry(eras, "train");
  const Value number = entry(eras, "era");
  if (train.is_list() && number.is_integer()) {
    const std::int64_t era = genetic::saturated_integer(number.integer());
    if (era >= 1 && era <= static_cast<std::int64_t>(train.list().size())) {
      const auto last = date_of(train.list().at(static_cast<std::size_t>(era) - 1), "last_date");
      const auto first = date_of(entry(eras, "holdout"), "first_date");
      if (last && first) return {*last, *first};
    }
  }
  throw PoolBookError(fmt::format(
      "run {} has no eras, so that nothing tells which days its search saw; search again", run.id));
}

void require_days(std::string_view what, Index days) {
  if (days >= kMinimumEraDays) return;
  throw PoolBookError(
      fmt::format("{} has {} days on these prices; it needs {}, so give prices that hold them",
                  what, days, kMinimumEraDays));
}

// A signal alone: its figures, and what it earned on each day in sample.
struct Alone {
  SampleStatistics statistics;
  ArrayXd pnl;
};

Alone alone(const Panel& weights, const Panel& close, const BookRules& rules, const EraPlan& plan) {
  BacktestResult seen = in_sample_backtest(weights, close, rules, plan);
  if (seen.net_returns.size() == 0 || (seen.net_returns == seen.net_returns(0)).all()) {
    throw PoolBookError("it earns the same on every day in sample");
  }
  return {{seen.statistics, holdout_backtest(weights, close, rules, plan).statistics},
          std::move(seen.net_returns)};
}

BookShares shares_of(const MatrixXd& pnl, BookMethod method) {
  try {
    return book_shares(pnl, method);
  } catch (const std::invalid_argument& error) {
    throw PoolBookError(fmt::format("{}; choose another method", error.what()));
  }
}

void share_out(PoolBook& book, const std::vector<ArrayXd>& pnl, BookMethod method) {
  MatrixXd days(pnl.front().size(), static_cast<Index>(pnl.size()));
  for (std::size_t i = 0; i < pnl.size(); ++i)
    days.col(static_cast<Index>(i)) = pnl[i].matrix();
  const BookShares shares = shares_of(days, method);
  book.shrinkage = shares.shrinkage;
  book.mean_correlation = shares.mean_correlation;
  for (std::size_t i = 0; i < book.members.size(); ++i) {
    BookMember& member = book.members[i];
    member.share = shares.shares(static_cast<Index>(i));
    member.risk = shares.risks(static_cast<Index>(i));
    book.turnover_alone_in_sample += member.share * member.statistics.in_sample.turnover;
    book.turnover_alone_holdout += member.share * member.statistics.holdout.turnover;
  }
}

}  // namespace

EraPlan book_days(const std::vector<EvaluationOfRun>& signals, const std::vector<Date>& dates) {
  RunDays all = days_of(signals.front().run);
  for (const EvaluationOfRun& signal : signals) {
    const RunDays days = days_of(signal.run);
    all.last_seen = std::max(all.last_seen, days.last_seen);
    all.first_holdout = std::max(all.first_holdout, days.first_holdout);
  }
  const auto span = [&dates](Index first, Index end) {
    DaySpan days{first, end, {}, {}};
    if (first >= end) return days;
    days.first_date = dates[static_cast<std::size_t>(first)];
    days.last_date = dates[static_cast<std::size_t>(end) - 1];
    return days;
  };
  const Index seen = std::upper_bound(dates.begin(), dates.end(), all.last_seen) - dates.begin();
  const Index first_holdout =
      std::lower_bound(dates.begin(), dates.end(), all.first_holdout) - dates.begin();
  EraPlan plan;
  plan.train = {span(0, seen)};
  plan.holdout = span(std::max(seen, first_holdout), static_cast<Index>(dates.size()));
  plan.era = 1;
  require_days("the sample that the searches saw", seen);
  require_days("the hold-out", plan.holdout.day_count());
  return plan;
}

PoolBook make_pool_book(const std::vector<EvaluationOfRun>& signals, const MarketData& data,
                        BookMethod method, const InterruptCheck& check) {
  PoolBook book;
  book.plan = book_days(signals, data.dates);
  book.rules = book_rules_of(latest(signals).run.start);
  SignalWeights weights(data);
  const Panel& close = data.close;
  std::vector<ArrayXd> pnl;
  for (std::size_t i = 0; i < signals.size(); ++i) {
    if (check) check();
    const std::string& id = signals[i].evaluation.eval_id;
    try {
      Alone found = alone(weights.of(signals[i]), close, book.rules, book.plan);
      book.members.push_back({id, i, 0.0, 0.0, found.statistics});
      pnl.push_back(std::move(found.pnl));
    } catch (const std::exception& error) {
      // What a signal cannot be computed for is told, and the others are a book all the same.
      book.left_out.emplace_back(id, error.what());
    }
  }
  if (book.members.empty()) {
    throw PoolBookError(fmt::format("no signal can be part of a book; {}: {}",
                                    book.left_out.front().first, book.left_out.front().second));
  }
  share_out(book, pnl, method);
  book.weights = Panel::Zero(close.rows(), close.cols());
  for (const BookMember& member : book.members) {
    if (check) check();
    if (member.share > 0.0) book.weights += member.share * weights.of(signals[member.signal]);
  }
  book.statistics = sample_statistics(book.weights, close, book.rules, book.plan);
  book.market = sample_statistics(equal_weights(close), close, book.rules, book.plan);
  return book;
}

}  // namespace varnholt::embedded
