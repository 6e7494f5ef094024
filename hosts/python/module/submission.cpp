#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/submission/backtest_timing.hpp"
#include "search_templates/genetic/submission/pool_metric_refresh.hpp"
#include "search_templates/genetic/submission/pool_metric_tracking.hpp"
#include "search_templates/genetic/submission/ranking.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/submission/statistics_payload.hpp"
#include "search_templates/genetic/submission/submission_payload.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

using genetic::Mapping;

Mapping record(const Any& object) {
  return genetic::record_of(to_value(object));
}

void init_pool_metrics(nb::module_& module) {
  module.def("submission_mi_failure_detail",
             [](PythonHost& host, const Any& ctx, const Any& score) {
               PythonSearchContext context(ctx);
               return to_python(genetic::submission_mi_failure_detail(
                   host.gates(), host.pool_thresholds(), context, to_value(score)));
             });
  module.def("block_candidate_submission", [](PythonHost& host, const Any& candidate,
                                              const Any& reason, const Any& detail) {
    Mapping result = record(candidate);
    genetic::block_candidate_submission(host.gates(), result, to_value(reason), to_value(detail));
  });
  module.def("set_candidate_mi_tracking",
             [](PythonHost& host, const Any& ctx, const Any& candidate, const Any& score) {
               PythonSearchContext context(ctx);
               Mapping result = record(candidate);
               genetic::set_candidate_mi_tracking(host.gates(), host.pool_thresholds(), context,
                                                  result, to_value(score));
             });
  module.def("set_candidate_correlation_tracking",
             [](PythonHost& host, const Any& ctx, const Any& candidate, const Any& correlation) {
               PythonSearchContext context(ctx);
               Mapping result = record(candidate);
               genetic::set_candidate_correlation_tracking(host.gates(), host.pool_thresholds(),
                                                           context, result, to_value(correlation));
             });
  module.def("mark_candidate_pool_metrics_pending",
             [](const Any& candidate, const Any& payload, const Any& detail) {
               Mapping result = record(candidate);
               Mapping submission = record(payload);
               genetic::mark_candidate_pool_metrics_pending(result, submission, to_value(detail));
             });
  module.def("clear_candidate_pool_metrics_pending", [](const Any& candidate, const Any& payload) {
    Mapping result = record(candidate);
    Mapping submission = record(payload);
    genetic::clear_candidate_pool_metrics_pending(result, submission);
  });
  module.def("refresh_candidate_submission_pool_metrics",
             [](PythonHost& host, const Any& ctx, const Any& candidate, const Any& payload) {
               PythonSearchContext context(ctx);
               Mapping result = record(candidate);
               Mapping submission = record(payload);
               genetic::refresh_candidate_submission_pool_metrics(host, context, result,
                                                                  submission);
             });
}

void init_timings(nb::module_& module) {
  module.def("validated_process_backtest_timing", [](PythonHost& host, const Any& timing) {
    return to_python(
        genetic::validated_process_backtest_timing(host.backtest_timings(), to_value(timing)));
  });
  module.def("consumed_process_backtest_timing",
             [](PythonHost& host, const Any& graph, const Any& payload) {
               return to_python(genetic::consumed_process_backtest_timing(
                   host.backtest_timings(), to_value(graph), to_value(payload)));
             });
  module.def("process_backtest_timing", [](PythonHost& host, const Any& graph,
                                           const Any& attempt_evidence, const Any& payload) {
    return to_python(genetic::process_backtest_timing(
        host.backtest_timings(), to_value(graph), to_value(attempt_evidence), to_value(payload)));
  });
  module.def("validated_graph_process_backtest_timing",
             [](PythonHost& host, const Any& graph, const Any& timing) {
               return to_python(genetic::validated_graph_process_backtest_timing(
                   host.backtest_timings(), to_value(graph), to_value(timing)));
             });
  module.def("validated_graph_backtest_timing",
             [](PythonHost& host, const Any& graph, const Any& timing) {
               return to_python(genetic::validated_graph_backtest_timing(
                   host.backtest_timings(), to_value(graph), to_value(timing)));
             });
  module.def("graph_bound_process_backtest_timing",
             [](PythonHost& host, const Any& graph, const Any& timing) {
               return to_python(genetic::graph_bound_process_backtest_timing(
                   host.backtest_timings(), to_value(graph), to_value(timing)));
             });
  module.def("candidate_backtest_timing_payload",
             [](PythonHost& host, const Any& candidate, const Any& require_process_identity) {
               return to_python(genetic::candidate_backtest_timing_payload(
                   host.backtest_timings(), record(candidate), to_value(require_process_identity)));
             });
}

void init_payload(nb::module_& module) {
  module.def("candidate_stats_payload", [](PythonHost& host, const Any& ctx, const Any& candidate) {
    PythonSearchContext context(ctx);
    return to_python(
        genetic::candidate_stats_payload(host.submission_payloads(), context, record(candidate)));
  });
  module.def("candidate_eval_id", [](const Any& candidate) {
    return to_python(genetic::candidate_eval_id(record(candidate)));
  });
  module.def(
      "ensure_candidate_submission_payload",
      [](PythonHost& host, const Any& ctx, const Any& candidate, const Any& refresh_pool_metrics) {
        PythonSearchContext context(ctx);
        Mapping result = record(candidate);
        return to_python(genetic::ensure_candidate_submission_payload(
            host, context, result, to_value(refresh_pool_metrics)));
      });
}

void init_recording(nb::module_& module) {
  module.def("candidate_rejection_reason", [](const Any& candidate) {
    return to_python(genetic::candidate_rejection_reason(to_value(candidate)));
  });
  module.def("record_candidate_result_in_parent", [](PythonHost& host, const Any& ctx,
                                                     const Any& candidate) {
    PythonSearchContext context(ctx);
    return genetic::record_candidate_result_in_parent(host, context, to_value(candidate));
  });
  module.def("record_candidate_results_in_parent",
             [](PythonHost& host, const Any& ctx, const Any& candidates) {
               PythonSearchContext context(ctx);
               genetic::record_candidate_results_in_parent(host, context, to_value(candidates));
             });
  module.def("rank_submittable_candidates", [](PythonHost& host, const Any& candidates) {
    return to_python(genetic::rank_submittable_candidates(host.eliteness(), to_value(candidates)));
  });
  module.def("submit_candidate", [](PythonHost& host, const Any& ctx, const Any& candidate) {
    PythonSearchContext context(ctx);
    genetic::submit_candidate(host, context, to_value(candidate));
  });
  module.def("submit_submittable_candidates",
             [](PythonHost& host, const Any& ctx, const Any& candidates) {
               PythonSearchContext context(ctx);
               genetic::submit_submittable_candidates(host, context, to_value(candidates));
             });
}

}  // namespace

void init_submission(nb::module_& module) {
  init_pool_metrics(module);
  init_timings(module);
  init_payload(module);
  init_recording(module);
}

}  // namespace varnholt::python
