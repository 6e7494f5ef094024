// The backtests at the end of a run, in forked workers: one process would make them one after the
// other, while the processors that the search had are idle.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/pool/work.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// What they work on is a piece of the report and no attempt: it has no limits, and a piece whose
// worker was lost, or whose work threw, is made once more in this process. So the report does not
// depend on its workers, and an error leaves as it is.
class ReportWorkers {
 public:
  struct Settings {
    int jobs = 1;
    std::optional<int> nice = {};
    // Of one panel that the work computes with; 0 where it computes with none.
    std::size_t panel_bytes = 0;
  };
  using Taker = std::function<void(std::size_t index, const std::string& result)>;

  // `is_cut` cuts short whatever is asked for; once it has said so, it is not asked again.
  ReportWorkers(SystemCalls& system, const Settings& settings, StopQuestion is_cut = {});

  // Hands the result of `work` for each item to `take`, in the order of the items, each as soon as
  // those before it are there. Items that were cut off are left out. Throws what `work`, `take` and
  // the question throw, and PoolError where this process may not fork.
  void run(std::size_t items, const Work& work, const Taker& take);

 private:
  [[nodiscard]] bool is_cut();

  SystemCalls& system_;
  Settings settings_;
  StopQuestion question_;
  bool is_cut_ = false;
};

}  // namespace varnholt::embedded
