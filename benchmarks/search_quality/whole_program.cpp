#include "benchmarks/search_quality/whole_program.hpp"

#include <cstdio>
#include <exception>
#include <utility>

namespace varnholt::embedded::search_quality {

std::vector<EvaluationOfRun> submitted_evaluations(const SearchSummary& summary, RunStore& store) {
  std::vector<EvaluationOfRun> signals;
  signals.reserve(summary.submitted.size());
  for (const SubmittedSignal& signal : summary.submitted) {
    if (auto found = store.find_evaluation(signal.eval_id)) signals.push_back(*std::move(found));
  }
  return signals;
}

int run_program(const char* program, int (*main_of)(const std::vector<std::string>& arguments),
                int count, char** arguments) {
  try {
    return main_of({arguments + 1, arguments + count});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", program, error.what());
    return 1;
  }
}

}  // namespace varnholt::embedded::search_quality
