#include "apps/genetic_search/stored_signal.hpp"

#include <fmt/format.h>

#include "apps/genetic_search/names.hpp"
#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::app {
namespace {

using embedded::SubmissionRecord;
using embedded::SubmissionState;
using genetic::Value;

template <typename Text>
Json or_null(const std::optional<Text>& text) {
  return text ? Json(*text) : Json(nullptr);
}

}  // namespace

embedded::EvaluationOfRun required_evaluation(embedded::StoreReader& store,
                                              const std::string& eval_id) {
  std::optional<embedded::EvaluationOfRun> found = store.find_evaluation(eval_id);
  if (!found) {
    throw UsageError(fmt::format(
        "there is no evaluation \"{}\" in {}; an id such as 3-17 is candidate 17 of run 3, and "
        "\"{} {} DB --all\" lists those that were handed in",
        cut_to_width(on_one_line(eval_id), 40), store.path(), kProgramName, kSignalsName));
  }
  return *std::move(found);
}

embedded::PriceSource stored_prices(const embedded::RunStart& run) {
  embedded::PriceSource source = embedded::price_source_of(run);
  return source.empty() ? embedded::PriceSource(run.price_file) : source;
}

std::string stored_expression(const std::string& graph_json) {
  try {
    return embedded::expression_text(embedded::read_json(graph_json));
  } catch (const genetic::ValueError&) {
    return {};
  }
}

void Damages::note(const std::string& trouble) {
  if (count_++ == 0) first_ = trouble;
}

void Damages::throw_if_any(const embedded::StoreReader& store) const {
  if (count_ == 0) return;
  const std::string more = count_ == 1 ? "" : fmt::format(" (and {} more troubles)", count_ - 1);
  throw embedded::StoreError(
      store.path(), first_ + more,
      "the file is damaged, and what could be read is shown; begin a new one "
      "with the next run");
}

Value stored_json(const std::string& text, const std::string& what, Damages& damages) {
  try {
    return embedded::read_json(text);
  } catch (const genetic::ValueError& error) {
    damages.note(fmt::format("{} is no JSON: {}", what, error.text()));
    return {};
  }
}

std::optional<double> figure_of(const Value& statistics, genetic::Key name) {
  if (!statistics.is_mapping()) return std::nullopt;
  return genetic::tolerant_float(statistics.mapping().get(name));
}

std::string figure_text(const std::optional<double>& figure) {
  return figure ? two_digits(*figure) : "-";
}

Json figure_json(const std::optional<double>& figure) {
  return figure ? number_json(*figure) : Json(nullptr);
}

std::string state_text(const SubmissionRecord& submission) {
  switch (submission.state) {
    case SubmissionState::Queued:
      return "waiting";
    case SubmissionState::Submitted:
      return "submitted";
    case SubmissionState::Refused:
      break;
  }
  const bool has_reason = submission.settlement && submission.settlement->refusal_reason;
  return has_reason ? "refused: " + *submission.settlement->refusal_reason : "refused";
}

Json submission_json(const SubmissionRecord& submission) {
  Json object = {{"signal_pool_name", submission.pool.signal_pool_name},
                 {"market_id", submission.pool.market_id},
                 {"era_number", submission.pool.era_number},
                 {"state", embedded::name_of(submission.state)},
                 {"pending_reason", or_null(submission.pending_reason)}};
  const auto& settlement = submission.settlement;
  object["novelty"] = settlement ? number_json(settlement->novelty) : Json(nullptr);
  object["novelty_min"] = settlement ? number_json(settlement->novelty_threshold) : Json(nullptr);
  object["correlation"] = settlement ? number_json(settlement->correlation) : Json(nullptr);
  object["correlation_max"] =
      settlement ? number_json(settlement->correlation_threshold) : Json(nullptr);
  object["refusal_reason"] = settlement ? or_null(settlement->refusal_reason) : Json(nullptr);
  object["refusal_detail"] = settlement ? or_null(settlement->refusal_detail) : Json(nullptr);
  object["queued_at"] = submission.queued_at;
  object["settled_at"] = settlement ? Json(settlement->settled_at) : Json(nullptr);
  return object;
}

}  // namespace varnholt::app
