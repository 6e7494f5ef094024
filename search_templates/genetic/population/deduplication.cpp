#include "search_templates/genetic/population/deduplication.hpp"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// Attempts for each graph that is wanted, and the fewest in all.
constexpr std::int64_t kBackfillAttempts = 20;

std::int64_t smaller(const Value& left, const Value& right) {
  return saturated_integer(less(right, left) ? right : left);
}

std::int64_t max_backfill_attempts(const Value& batch_size) {
  const std::int64_t wanted = saturated_integer(batch_size);
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max() / kBackfillAttempts;
  return std::max(std::min(wanted, kLargest) * kBackfillAttempts, kBackfillAttempts);
}

List list_of(const Value& sequence) {
  List list;
  const auto items = iterate(sequence);
  while (std::optional<Value> item = items->next())
    list.append(*std::move(item));
  return list;
}

}  // namespace

List deduplicate_graphs(const Value& graphs) {
  List unique;
  StructuralKeySet seen;
  const auto items = iterate(graphs);
  while (const std::optional<Value> graph = items->next()) {
    if (seen.insert(structural_key(*graph)).second) unique.append(*graph);
  }
  return unique;
}

DeduplicatedBatch run_deduplicated_batch(SearchContext& context, SearchConfig& config,
                                         FreshCandidates& fresh_candidates, const Value& graphs,
                                         SeenGraphs& seen) {
  const Value batch_size = config.batch_size();
  const auto target_size = smaller(batch_size, static_cast<std::int64_t>(length(graphs)));
  const List pending = list_of(graphs);
  // Read a second time on purpose: every setting is read where it is used.
  const std::int64_t attempt_limit = max_backfill_attempts(config.batch_size());

  DeduplicatedBatch batch;
  batch.generated_count = static_cast<std::int64_t>(pending.size());
  StructuralKeySet local_seen;
  std::int64_t backfill_attempt_count = 0;
  std::shared_ptr<RandomGenerator> rng;
  std::size_t next_pending = 0;

  while (static_cast<std::int64_t>(batch.graphs.size()) < target_size) {
    Value graph;
    if (next_pending < pending.size()) {
      graph = pending.at(next_pending++);
    } else {
      if (backfill_attempt_count >= attempt_limit) break;
      // Asked again at each attempt as long as there is none.
      if (rng == nullptr) rng = config.rng_for_batch();
      const Value fresh = fresh_candidates.draw(context, 1, rng);
      batch.generated_count += static_cast<std::int64_t>(length(fresh));
      if (!truth(fresh)) break;
      graph = item(fresh, 0);    // Further graphs have been counted and are dropped.
      ++backfill_attempt_count;  // Also when the graph turns out to be a duplicate.
    }

    StructuralKey key = structural_key(graph);
    // The batch's own set comes first: it holds whatever the other set does with a key.
    if (local_seen.contains(key) || seen.contains(graph, key)) {
      ++batch.duplicate_count;
      continue;
    }
    seen.add(graph, key);
    local_seen.insert(std::move(key));
    batch.graphs.append(std::move(graph));
  }

  if (rng != nullptr) config.store_rng_state(rng);
  return batch;
}

}  // namespace varnholt::genetic
