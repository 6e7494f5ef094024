// What a run searches, and what is stored about it: its prices, its settings, its signal pool.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/search_options.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/driver/genetic_template.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The prices of a run: the whole history, how it is split, and the digest of what was read.
struct RunData {
  // Reads each file once, so that the digest is that of exactly the bytes that are searched. The
  // hold-out that the pool keeps takes the place of the share of the options; an EraError for
  // another one that the options ask for by its date. Throws what read_prices, split_eras and
  // `check` throw.
  explicit RunData(const SearchOptions& options, const InterruptCheck& check = {},
                   const std::optional<Date>& kept_holdout = {});

  MarketData whole;
  EraPlan plan;
  std::string digest;
  // The first day that the pool keeps for its hold-out, or is to keep, and whether it did already.
  Date holdout_from;
  bool split_is_kept;
  // By which signals are traded on these prices.
  BookRules book;
  // With the least Sharpe ratio that these days ask for, where the options name none.
  GateThresholds gates;
  // Of all that decides the daily PnL of a signal on the days that are searched. The periods of a
  // year do not: they scale figures. Neither do later days, nor how the file looks.
  std::string data_key;
  // Of all that decides what an evaluation comes to: beside those the periods of a year, the gates,
  // and the pool.
  std::string evaluation_key;

 private:
  RunData(const SearchOptions& options, PricesRead prices, const std::optional<Date>& kept_holdout);
};

// The run's signal pool. Signals are comparable day by day when they were evaluated on the same
// days of the same prices at the same rules; members of others are measured anew.
[[nodiscard]] PoolIdentity pool_identity(const SearchOptions& options, const RunData& data);

// The rules by which a stored run was evaluated. Runs from before there were others than costs were
// traded at the close of their signals, in years of 252 days, with nothing neutralized.
[[nodiscard]] BookRules book_rules_of(const RunStart& start);

// Whether the run judged the opposite of an expression with it; earlier runs did not.
[[nodiscard]] bool judges_both_signs(const RunStart& start);

// How the prices of a stored run are read.
[[nodiscard]] PriceFormat price_format_of(const RunStart& start);

// Where the prices of a stored run were. Empty for a run that does not say it.
[[nodiscard]] PriceSource price_source_of(const RunStart& start);

// The row under which the store keeps the run.
[[nodiscard]] RunStart run_start(const SearchOptions& options, const RunData& data,
                                 const genetic::GeneticTemplate& config, int jobs);

[[nodiscard]] SearchStarted started_event(const SearchOptions& options, const RunData& data,
                                          const genetic::GeneticTemplate& config,
                                          const RunStore& store, std::int64_t run_id, int jobs);

// What a submission's payload says of this client.
[[nodiscard]] genetic::Mapping client_manifest(const RunData& data, std::int64_t run_id);

}  // namespace varnholt::embedded
