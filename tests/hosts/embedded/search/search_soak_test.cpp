// A long search keeps what it has to, and no more: the keys of the structures that it met, and an
// archive that is full soon. Method: one whole search over many candidates of a tiny universe, none
// of which passes, so that no pool grows; the process's memory and descriptors after each
// generation, and the keys of all candidates from the store at the end.
//
//   VARNHOLT_SOAK_CANDIDATES=1000000 build/release/bin/test_embedded_soak    the long one
//
// It prints what it measured.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/host/json_value.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace varnholt::embedded::test {
namespace {

// A sanitizer keeps what was freed, and an unoptimised search takes too long to be a measure.
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer) || !defined(NDEBUG)
constexpr bool kIsMeasured = false;
#else
constexpr bool kIsMeasured = true;
#endif

constexpr std::int64_t kCandidates = kIsMeasured ? 10'000 : 1'000;
constexpr double kMostBesidesTheKey = 200.0;
// However long the search: its members, which lie scattered among what was freed since.
constexpr double kMostOfTheArchive = 2.5e6;

std::int64_t wanted_candidates() {
  const char* const wanted = std::getenv("VARNHOLT_SOAK_CANDIDATES");
  return wanted == nullptr ? kCandidates : std::stoll(wanted);
}

// What the process has touched and shares with no file, in bytes.
double own_memory() {
  std::ifstream status("/proc/self/status");
  std::string name;
  double kilobytes = 0;
  while (status >> name) {
    if (name == "RssAnon:") status >> kilobytes;
  }
  return 1024.0 * kilobytes;
}

std::int64_t descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

struct Sample {
  std::int64_t candidates = 0;
  double bytes = 0;
  std::int64_t descriptors = 0;
};

class SamplingObserver : public RecordingObserver {
 public:
  void on_recorded(const CandidateRecorded& /*candidate*/) override {}
  void on_tick(const SearchProgress& /*progress*/, std::int64_t /*evaluated*/) override {}
  void on_generation(const SearchProgress& progress) override {
    samples.push_back({progress.candidates, own_memory(), descriptors()});
  }

  std::vector<Sample> samples;
};

// Of the candidates from `first` on.
double mean_key_bytes(const std::string& database, std::int64_t first) {
  SqliteDatabase store(database, 1000);
  SqliteStatement graphs(store, "SELECT graph FROM evaluations WHERE candidate_number >= :first",
                         "reading the graphs");
  SqliteUse rows(graphs);
  rows.bind("first", first);
  double bytes = 0;
  double count = 0;
  while (rows.step()) {
    bytes +=
        static_cast<double>(genetic::structural_key(read_json(rows.text("graph"))).encoded_size());
    ++count;
  }
  return bytes / count;
}

class SearchSoakTest : public SearchRunTest {};

TEST_F(SearchSoakTest, ALongSearchKeepsItsKeysAndLittleElse) {
  SearchOptions soak = options();
  soak.candidates = wanted_candidates();
  soak.generations.reset();
  soak.batch_size = 100;
  soak.jobs = 1;
  soak.max_improvement_candidates = 0;
  soak.config.gates.min_sharpe = 1000.0;
  SamplingObserver observer;
  static_cast<void>(run_search(soak, observer, interrupt_));

  const std::vector<Sample>& samples = observer.samples;
  ASSERT_GE(samples.size(), 5U);
  for (const Sample& sample : samples)
    EXPECT_EQ(sample.descriptors, samples.front().descriptors) << sample.candidates;

  // The first fifth fills caches.
  const Sample& early = samples[samples.size() / 5];
  const Sample& late = samples.back();
  const auto candidates = static_cast<double>(late.candidates - early.candidates);
  const double growth = (late.bytes - early.bytes) / candidates;
  const double key = mean_key_bytes(soak.database.string(), early.candidates);
  std::cout << late.candidates << " candidates: " << growth << " bytes each, of which " << key
            << " are the key; " << late.bytes / 1e6 << " MB at the end, " << late.descriptors
            << " descriptors\n";
  if (kIsMeasured) {
    EXPECT_LE(growth, key + kMostBesidesTheKey + kMostOfTheArchive / candidates);
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
