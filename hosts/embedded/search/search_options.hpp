// The options of a search on the embedded host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/config/host_config.hpp"
#include "hosts/embedded/host/isolation.hpp"
#include "hosts/embedded/market/price_format.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct SearchOptions {
  // The prices, in one of the forms of price_file.hpp, what is to be known to read them, and the
  // store, made when it is not there.
  PriceSource prices;
  PriceFormat price_format;
  std::filesystem::path database;

  // Worker processes at once; absent is one a processor.
  std::optional<int> jobs;
  // Settings of the template, which validates them; absent is its default. Numbers may be given as
  // texts where the template takes a real; `operator_rates` is a mapping of operator to rate.
  std::optional<genetic::Value> batch_size;         // Candidates a generation.
  std::optional<genetic::Value> restart_threshold;  // Generations without a better score.
  std::optional<genetic::Value> elite_fraction;     // The share of candidates that are parents.
  std::optional<genetic::Value> diversity_weight;
  std::optional<genetic::Value> parsimony_weight;
  std::optional<genetic::Value> operator_rates;
  // Whether no fresh graph is bred from the host's archive, none is a known formula or made of one,
  // and none is a simple form. With the three all fresh graphs are random.
  bool has_no_archive = false;
  bool has_no_known_formulas = false;
  bool has_no_simple_forms = false;
  // Repairs of a generation's near misses: how many are tried, in how many rounds, and how many may
  // follow one another in a lineage. 0 of any is none at all.
  std::optional<genetic::Value> max_improvement_candidates;
  std::optional<genetic::Value> max_improvement_rounds;
  std::optional<genetic::Value> max_improvement_depth;
  // A JSON file with the list of graphs that the first generation consists of.
  std::optional<std::filesystem::path> seeds;

  // Whether the search goes on with what the store holds: what runs with the same days, rules,
  // gates and pool have evaluated is not evaluated again, and the best of it begins the search,
  // after the graphs of `seeds`.
  bool continues = false;

  // The limits of the run. Whichever is reached first ends it; without any it runs until it is
  // stopped. Candidates are counted as they are recorded, and the batch in which the limit is
  // reached is completed. The limit in seconds counts from the start of the search and cancels the
  // evaluations under way.
  std::optional<std::int64_t> generations;
  std::optional<std::int64_t> candidates;
  std::optional<double> seconds;

  // Repeats a run: the same seed, prices and settings give the same candidates in the same order.
  // Absent draws one from the operating system.
  std::optional<std::uint64_t> seed;

  // Limits of the random graphs.
  RandomGraphOptions graphs;
  // Whether an expression is judged as it is written. Otherwise one backtest judges it and its
  // opposite, and the one that earns is recorded.
  bool is_as_written = false;
  // How signals are traded; see book_rules.hpp. A signal is traded a day after the close that it is
  // made of: at the same close it could not be known.
  double cost_basis_points = BookRules().cost_basis_points;
  int delay_days = 1;
  double delisting_return = BookRules().delisting_return;
  // A day that is missing here and there costs a window a value, not the result.
  double least_known_share = 0.8;
  // Absent is inferred from the dates of the prices.
  std::optional<double> periods_per_year;
  // Absent is the market from kLeastNeutralInstruments instruments on, and none below.
  std::optional<std::string> neutralize;
  // Gates, limits, the signal pool, the eras and the market.
  HostConfig config;

  // Whether several candidates share a process. The search finds the same, and costs less: on few
  // instruments half.
  Isolation isolation = Isolation::Chunk;
  // The limit of one evaluation, and of its process's memory (absent is the host's default).
  double timeout_seconds = 60.0;
  std::optional<std::int64_t> worker_memory_limit_bytes;
  // The nice value of the workers, -20 to 19; absent is that of the search.
  std::optional<int> worker_nice;

  // How many of the best signals are reported at the end.
  int best_count = 10;
};

}  // namespace varnholt::embedded
