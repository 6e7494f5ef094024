// Structural deduplication: no search evaluates the same structure twice.
#pragma once

#include <cstdint>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The structures that a search has seen. Grows for the whole search, and never shrinks.
class SeenGraphs {
 public:
  virtual ~SeenGraphs() = default;

  [[nodiscard]] virtual bool contains(const Value& graph, const StructuralKey& key) = 0;
  virtual void add(const Value& graph, const StructuralKey& key) = 0;
};

// What deduplication made of a batch.
struct DeduplicatedBatch {
  List graphs;                       // The accepted graphs, in the order of acceptance.
  std::int64_t generated_count = 0;  // Graphs of the batch and of every backfill, used or not.
  std::int64_t duplicate_count = 0;  // Graphs rejected as seen.
};

// A new list with the first graph of each structure, in order.
[[nodiscard]] List deduplicate_graphs(const Value& graphs);

// Drops every graph whose structure is in `seen`, and replaces the dropped ones by fresh random
// graphs. A batch shorter than the batch size does not grow: no more graphs are added than were
// dropped. An accepted graph enters `seen` at once, before it is evaluated, and stays there
// whatever the result.
//
// The random stream is fetched at the first replacement and stored once, after the last; when
// something fails in between, the draws made so far are not stored.
[[nodiscard]] DeduplicatedBatch run_deduplicated_batch(SearchContext& context, SearchConfig& config,
                                                       FreshCandidates& fresh_candidates,
                                                       const Value& graphs, SeenGraphs& seen);

}  // namespace varnholt::genetic
