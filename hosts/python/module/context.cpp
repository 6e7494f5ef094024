#include <optional>

#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/context/thresholds.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

using genetic::Mapping;
using genetic::Value;

// As the library's field_value, for a name that the caller chooses: built-in objects have
// attributes too.
nb::object field_value(const Any& value, const Any& key, const Any& fallback) {
  if (const std::optional<Mapping> mapping = genetic::as_mapping(to_value(value))) {
    const std::optional<Value> found = mapping->find(to_value(key));
    return found ? to_python(*found) : nb::object(fallback);
  }
  return find_attribute(value, nb::handle(key)).value_or(fallback);
}

}  // namespace

void init_context(nb::module_& module) {
  module.def("field_value", &field_value);
  module.def("positive_int_or_none", [](const Any& value) {
    return to_python(genetic::positive_int_or_none(to_value(value)));
  });
  module.def("context_era_config", [](const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::context_era_config(context));
  });
  module.def("context_market_id", [](const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::context_market_id(context));
  });
  module.def("context_era_number", [](const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::context_era_number(context));
  });
  module.def("ensure_payload_market_era", [](const Any& payload, const Any& ctx) {
    Mapping record = genetic::record_of(to_value(payload));
    PythonSearchContext context(ctx);
    genetic::ensure_payload_market_era(record, context);
    return payload;
  });
  module.def("context_thresholds", [](PythonHost& host, const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::context_thresholds(context, host.gates()));
  });
}

}  // namespace varnholt::python
