// The price of a parent pool: 1,000, 4,000 and 16,000 candidates with graphs of 20 nodes, a quarter
// of them chosen, diversity weight 0.5.
//
// At 1,000 a plain pool runs beside it, once, which walks the graphs of every pair anew as the
// rules are written; both must choose the same parents with the same requests for scores, and the
// library's must be at least 20 times faster. The larger sizes run without it.
//
// The budget for n candidates of which k are chosen: graph walks grow as n, redundancy as n times
// k, nothing as n times k squared. The table gives the time by n times k and the walks by n, for
// all purposes and for the names among them; they stay flat. Each pass asks for two scores a
// candidate left, which is nearly all of the time. Times are of the processor.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "search_templates/genetic/population/parent_pool.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/storage.hpp"
#include "tests/support/plain_parent_pool.hpp"

namespace {

using varnholt::genetic::Eliteness;
using varnholt::genetic::List;
using varnholt::genetic::Mapping;
using varnholt::genetic::MappingCursor;
using varnholt::genetic::MappingEntry;
using varnholt::genetic::MappingStorage;
using varnholt::genetic::same_object;
using varnholt::genetic::Value;
using varnholt::genetic::test::PlainParentPool;

constexpr std::size_t kNodes = 20;
constexpr double kEliteFraction = 0.25;
constexpr double kDiversityWeight = 0.5;
constexpr double kParsimonyWeight = 0.01;

// Answers from the record, at once, and counts.
class BenchEliteness : public Eliteness {
 public:
  [[nodiscard]] Value score_candidate(const Value& candidate, const Mapping& keywords) override {
    ++requests;
    // What tells one sequence of requests from another.
    sequence = (sequence ^ reinterpret_cast<std::uintptr_t>(candidate.counted())) * 0x100000001B3U;
    if (keywords.at(varnholt::genetic::keys::kDiversityWeight).real() > 0.0) sequence ^= 1U;
    return candidate.mapping().at(varnholt::genetic::keys::kSharpe);
  }

  std::uint64_t requests = 0;
  std::uint64_t sequence = 0;
};

// How often the walks of a pool pass a graph's root.
struct Walks {
  std::uint64_t over_entries = 0;  // For the structural key, and to tell records apart.
  std::uint64_t over_names = 0;
};

// A graph's root that counts the walks passing it.
class CountingRoot : public MappingStorage {
 public:
  CountingRoot(Mapping root, Walks& walks) : root_(std::move(root)), walks_(walks) {}

  [[nodiscard]] const void* identity() const noexcept override { return this; }
  [[nodiscard]] std::size_t size() const override { return root_.size(); }
  [[nodiscard]] std::optional<Value> find(const Value& key) const override {
    if (key == Value(varnholt::genetic::keys::kNode)) ++walks_.over_names;
    return root_.find(key);
  }
  void set(const Value& key, const Value& value) override { Mapping(root_).set(key, value); }
  bool erase(const Value& key) override { return Mapping(root_).erase(key); }
  [[nodiscard]] std::unique_ptr<Cursor> entries() const override {
    ++walks_.over_entries;
    return std::make_unique<Entries>(root_);
  }

 private:
  class Entries : public Cursor {
   public:
    explicit Entries(const Mapping& root) : cursor_(root) {}
    [[nodiscard]] std::optional<MappingEntry> next() override { return cursor_.next(); }

   private:
    MappingCursor cursor_;
  };

  Mapping root_;
  Walks& walks_;
};

class Candidates {
 public:
  // With `walks`, every graph's root counts the walks that pass it.
  explicit Candidates(std::size_t count, Walks* walks = nullptr) {
    for (std::size_t i = 0; i < count; ++i) {
      Mapping root = graph(kNodes).mapping();
      if (walks != nullptr) root = Mapping(std::make_unique<CountingRoot>(root, *walks));
      all.push_back(Mapping{{"graph", root},
                            {"stats", Value()},
                            {"passes", false},
                            {"sharpe", static_cast<double>(draw_() % 3000) / 1000.0},
                            {"quality_score", 0.0},
                            {"correlation", static_cast<double>(draw_() % 1000) / 1000.0}});
    }
  }

  [[nodiscard]] List list() const {
    List list;
    for (const Value& candidate : all)
      list.append(candidate);
    return list;
  }

  std::vector<Value> all;

 private:
  // A random tree of so many nodes, over 120 names.
  Value graph(std::size_t nodes) {
    List children;
    for (std::size_t left = nodes - 1; left > 0;) {
      const std::size_t size = 1 + draw_() % left;
      children.append(graph(size));
      left -= size;
    }
    return Mapping{{"node", "function_" + std::to_string(draw_() % 120)},
                   {"type", "rotation"},
                   {"children", children}};
  }

  std::mt19937_64 draw_{20240229};
};

template <typename Work>
double seconds(const Work& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

[[noreturn]] void fail(const char* text) {
  std::fprintf(stderr, "bench_population: %s\n", text);
  std::exit(1);
}

List library_pool(Eliteness& eliteness, const List& prior) {
  return varnholt::genetic::diverse_parent_pool(eliteness, prior, kEliteFraction, kDiversityWeight,
                                                kParsimonyWeight);
}

void print_growth() {
  std::printf("\n%8s %6s %12s %8s %10s %11s %10s %13s\n", "n", "k", "requests", "pool s",
              "ns/request", "ns/(n k)", "walks/n", "name walks/n");
  for (const std::size_t count : {1000U, 4000U, 16000U}) {
    Walks walks;
    const List prior = Candidates(count, &walks).list();
    BenchEliteness eliteness;
    std::size_t chosen = 0;
    const double time = seconds([&] { chosen = library_pool(eliteness, prior).size(); });
    const auto n = static_cast<double>(count);
    std::printf("%8zu %6zu %12llu %8.3f %10.1f %11.1f %10.2f %13.2f\n", count, chosen,
                static_cast<unsigned long long>(eliteness.requests), time,
                1e9 * time / static_cast<double>(eliteness.requests),
                1e9 * time / n / static_cast<double>(chosen),
                static_cast<double>(walks.over_entries + walks.over_names) / n,
                static_cast<double>(walks.over_names) / n);
    std::fflush(stdout);
    // One walk for the structural key, one to tell records apart, one for the names.
    if (walks.over_entries > 2 * count || walks.over_names > count) {
      fail("a graph was walked more than once for one thing");
    }
  }
}

void compare_with_plain_pool() {
  const Candidates candidates(1000);
  const List prior = candidates.list();
  BenchEliteness plain_eliteness;
  std::vector<Value> expected;
  const double plain = seconds([&] {
    expected = PlainParentPool(plain_eliteness, kDiversityWeight, kParsimonyWeight)
                   .pick(candidates.all, kEliteFraction);
  });
  double fast = 0.0;
  for (int turn = 0; turn < 5; ++turn) {
    BenchEliteness eliteness;
    std::optional<List> parents;
    const double time = seconds([&] { parents = library_pool(eliteness, prior); });
    fast = turn == 0 ? time : std::min(fast, time);
    if (parents->size() != expected.size()) fail("the pools differ in size");
    for (std::size_t i = 0; i < expected.size(); ++i)
      if (!same_object(parents->at(i), expected[i])) fail("the pools differ");
    if (eliteness.requests != plain_eliteness.requests ||
        eliteness.sequence != plain_eliteness.sequence) {
      fail("the pools ask for other scores");
    }
  }
  std::printf("1,000 candidates: plain pool %.2f s, library's %.4f s: %.0f times faster\n", plain,
              fast, plain / fast);
  if (plain < 20.0 * fast) fail("less than 20 times faster than the plain pool");
}

}  // namespace

int main(int argc, char** argv) {
  // "growth" leaves the plain pool out, which takes most of the time.
  if (argc < 2 || std::string(argv[1]) != "growth") compare_with_plain_pool();
  print_growth();
  return 0;
}
