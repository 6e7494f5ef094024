#include "apps/genetic_search/pool_signals.hpp"

#include <system_error>

#include <fmt/format.h>

#include "apps/genetic_search/names.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/store/store_files.hpp"

namespace varnholt::app {
namespace {

namespace fs = std::filesystem;

// Also of two names of which there is no file yet.
bool are_same_file(const fs::path& left, const fs::path& right) {
  std::error_code ignored;  // Files that are not there are not equivalent.
  return fs::equivalent(left, right, ignored) ||
         fs::weakly_canonical(left, ignored) == fs::weakly_canonical(right, ignored);
}

}  // namespace

std::vector<embedded::EvaluationOfRun> signals_of_pool(embedded::StoreReader& store,
                                                       const std::string& pool) {
  std::vector<embedded::EvaluationOfRun> found;
  for (const embedded::SubmissionRecord& submission :
       store.submissions().list({std::nullopt, embedded::SubmissionState::Submitted})) {
    if (submission.pool.signal_pool_name != pool) continue;
    found.push_back(required_evaluation(store, submission.eval_id));
  }
  if (!found.empty()) return found;
  throw UsageError(
      fmt::format("no signal was submitted to the signal pool \"{}\" in {}; "
                  "\"{} {} DB\" lists the signals",
                  on_one_line(pool), store.path(), kProgramName, kSignalsName));
}

void refuse_input_as_output(const fs::path& output, const fs::path& database,
                            const embedded::PriceSource& prices) {
  std::vector<fs::path> inputs = embedded::files_of_store(database);
  const std::vector<fs::path> price_files = embedded::price_files(prices);
  inputs.insert(inputs.end(), price_files.begin(), price_files.end());
  for (const fs::path& input : inputs) {
    if (!are_same_file(input, output)) continue;
    throw embedded::ExportError(fmt::format(
        "{}: it is a file that the weights are made of; name another one", output.string()));
  }
  if (const auto other = embedded::database_beside(output)) {
    throw embedded::ExportError(
        fmt::format("{}: it is the name of a file that {} keeps beside itself; name another one",
                    output.string(), other->string()));
  }
}

}  // namespace varnholt::app
