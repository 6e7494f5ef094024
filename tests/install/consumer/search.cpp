// A small search of the embedded host, on prices made up here, and a look into its store.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/store/store_reader.hpp"

namespace embedded = varnholt::embedded;

namespace {

class Quiet : public embedded::SearchObserver {
 public:
  void on_started(const embedded::SearchStarted& /*started*/) override {}
  void on_tick(const embedded::SearchProgress& /*progress*/, std::int64_t /*evaluated*/) override {}
  void on_recorded(const embedded::CandidateRecorded& /*candidate*/) override {}
  void on_settled(const embedded::SettledSignal& /*signal*/) override {}
  void on_generation(const embedded::SearchProgress& /*progress*/) override {}
  void on_log(embedded::LogLevel /*level*/, std::string_view /*text*/) override {}
  void on_metrics(const varnholt::genetic::Mapping& /*metrics*/) override {}
};

// A year of 28-day months, two instruments.
void write_prices(const std::filesystem::path& path) {
  std::ofstream file(path);
  file << "date,UP,DOWN\n";
  for (int day = 0; day < 13 * 12 * 28; ++day) {
    const int month = day / 28;
    file << 2000 + month / 12 << '-' << (month % 12 < 9 ? "0" : "") << month % 12 + 1 << '-'
         << (day % 28 < 9 ? "0" : "") << day % 28 + 1 << ',' << 100 + 10 * std::sin(day * 0.1)
         << ',' << 50 + 5 * std::cos(day * 0.07) << '\n';
  }
}

}  // namespace

void search(const char* folder) {
  embedded::SearchOptions options;
  options.prices = std::filesystem::path(folder) / "prices.csv";
  options.database = std::filesystem::path(folder) / "runs.db";
  std::filesystem::remove(options.database);
  write_prices(options.prices.named().front());
  options.jobs = 1;
  options.batch_size = 4;
  options.max_improvement_rounds = 0;
  options.generations = 1;
  options.seed = 7;

  Quiet observer;
  const embedded::InterruptFlag interrupt;
  const embedded::SearchSummary summary = embedded::run_search(options, observer, interrupt);
  const auto store = embedded::open_store_reader(options.database);
  if (!store->find_run(summary.run_id)) std::cout << "the run was not stored\n";
  std::cout << "run " << summary.run_id << ": " << summary.progress.candidates
            << " candidates, ended by the limit of " << embedded::to_text(summary.stop_cause)
            << "\n";
}
