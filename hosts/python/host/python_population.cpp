#include "hosts/python/host/python_population.hpp"

#include <algorithm>
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

nb::object ModuleFreshCandidates::draw_for_rng(nb::handle context, nb::handle count,
                                               nb::handle rng) const {
  const nb::object source = globals_.get(kSource);
  if (!source.is(globals_.get(kDefaultSource)) && !takes_rng(source)) {
    return call(source, {context, count});
  }
  return call(source, {context, count}, {{"rng", rng}});
}

// By its name alone, or by taking any keyword. One that cannot be looked into is taken to.
bool ModuleFreshCandidates::takes_rng(const nb::object& source) const {
  const std::optional<std::vector<genetic::Parameter>> parameters =
      any_callable(source).signature();
  if (!parameters) return true;
  return std::any_of(parameters->begin(), parameters->end(), [](const genetic::Parameter& one) {
    return one.name == "rng" || one.kind == genetic::ParameterKind::kVariableKeyword;
  });
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
