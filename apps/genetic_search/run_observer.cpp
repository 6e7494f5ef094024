#include "apps/genetic_search/run_observer.hpp"

#include <fmt/format.h>

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {

void RunObserver::on_started(const embedded::SearchStarted& started) {
  has_started_ = true;
  tell_started(started);
}

void RunObserver::on_tick(const embedded::SearchProgress& progress,
                          std::int64_t evaluated_in_batch) {
  // An output that fails asks for the end as well, but then there is nobody to tell.
  if (interrupt_.requests > 0 && !stopping_told_ && !outputs_.text.has_failed()) {
    stopping_told_ = true;
    clear();
    tell_stopping(progress);
  }
  tell_progress(progress, evaluated_in_batch);
}

void RunObserver::message(std::string_view text) {
  outputs_.messages.write(fmt::format("{}: {}\n", kProgramName, on_one_line(text)));
}

std::string stopping_text(const embedded::SearchProgress& progress) {
  return fmt::format("stopping after {} candidate{} (press Ctrl-C again to end at once)",
                     progress.candidates, progress.candidates == 1 ? "" : "s");
}

}  // namespace varnholt::app
