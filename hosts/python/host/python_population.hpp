// What the population's rules ask of Python: the replaceable source of fresh graphs, and sets of
// structures.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/population/deduplication.hpp"
#include "search_templates/genetic/population/fresh_candidates.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// Whatever the module's `_fresh_random_candidates` is at the moment.
class ModuleFreshCandidates : public genetic::FreshCandidates {
 public:
  explicit ModuleFreshCandidates(const ModuleGlobals& globals) : globals_(globals) {}

  // `_fresh_random_candidates(ctx, count, rng=rng)`.
  [[nodiscard]] genetic::Value draw(genetic::SearchContext& context, std::int64_t count,
                                    const std::shared_ptr<genetic::RandomGenerator>& rng) override;

  // What the replacement's signature tells; nothing while the module's own source is in place.
  [[nodiscard]] std::optional<std::vector<genetic::Parameter>> replacement_signature() override;
  // `_fresh_random_candidates(ctx, count)`.
  [[nodiscard]] genetic::Value draw_without_rng(genetic::SearchContext& context,
                                                std::int64_t count) override;

 private:
  const ModuleGlobals& globals_;
};

// Over a set of frozen forms: anything that answers `in` and has `add`.
class PythonSeenGraphs : public genetic::SeenGraphs {
 public:
  explicit PythonSeenGraphs(nb::object seen) : seen_(std::move(seen)) {}

  [[nodiscard]] bool contains(const genetic::Value& graph,
                              const genetic::StructuralKey& key) override;
  void add(const genetic::Value& graph, const genetic::StructuralKey& key) override;

 private:
  [[nodiscard]] nb::object frozen(const genetic::Value& graph, const genetic::StructuralKey& key);

  nb::object seen_;
  // The form asked for last: a graph that is not there yet is added right after the question.
  std::optional<genetic::StructuralKey> last_key_;
  nb::object last_frozen_;
};

}  // namespace varnholt::python
