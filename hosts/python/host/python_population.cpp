#include "hosts/python/host/python_population.hpp"

#include <vector>

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_random.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"

namespace varnholt::python {

constexpr const char* kSource = "_fresh_random_candidates";
constexpr const char* kDefaultSource = "_DEFAULT_FRESH_RANDOM_CANDIDATES";

genetic::Value ModuleFreshCandidates::draw(genetic::SearchContext& context, std::int64_t count,
                                           const std::shared_ptr<genetic::RandomGenerator>& rng) {
  return to_value(call(globals_.get(kSource), {object_of(context), to_python(count)},
                       {{"rng", object_of(rng)}}));
}

std::optional<std::vector<genetic::Parameter>> ModuleFreshCandidates::replacement_signature() {
  const nb::object source = globals_.get(kSource);
  if (source.is(globals_.get(kDefaultSource))) return std::nullopt;
  return any_callable(source).signature();
}

genetic::Value ModuleFreshCandidates::draw_without_rng(genetic::SearchContext& context,
                                                       std::int64_t count) {
  return to_value(call(globals_.get(kSource), {object_of(context), to_python(count)}));
}

nb::object PythonSeenGraphs::frozen(const genetic::Value& graph,
                                    const genetic::StructuralKey& key) {
  if (!last_key_ || !(*last_key_ == key)) {
    last_frozen_ = to_python(genetic::freeze_graph_data(graph));
    last_key_ = key;
  }
  return last_frozen_;
}

bool PythonSeenGraphs::contains(const genetic::Value& graph, const genetic::StructuralKey& key) {
  return checked(PySequence_Contains(seen_.ptr(), frozen(graph, key).ptr())) != 0;
}

void PythonSeenGraphs::add(const genetic::Value& graph, const genetic::StructuralKey& key) {
  call_method(seen_, "add", {frozen(graph, key)});
}

}  // namespace varnholt::python
