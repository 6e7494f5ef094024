// The chief header: all that a host needs to run a genetic search.
//
//   class MyHost : public varnholt::genetic::Host { ... };
//   class MyContext : public varnholt::genetic::SearchContext { ... };
//
//   MyHost host;
//   varnholt::genetic::Module module(host);
//   MyContext context;
//   module.genetic(context);   // Returns when the context's stop event is set.
//
// Settings other than the defaults go through a template:
//
//   auto arguments = module.default_arguments();
//   arguments.batch_size = 64;
//   auto config = module.with_config(arguments);   // Throws TypeError or ValueError.
//   module.run(context, config);
#pragma once

#include "search_templates/genetic/driver/genetic_template.hpp"  // IWYU pragma: export
#include "search_templates/genetic/driver/module.hpp"            // IWYU pragma: export
#include "search_templates/genetic/host/host.hpp"                // IWYU pragma: export
#include "search_templates/genetic/value/errors.hpp"             // IWYU pragma: export
#include "search_templates/genetic/value/keys.hpp"               // IWYU pragma: export
#include "search_templates/genetic/value/semantics.hpp"          // IWYU pragma: export
#include "search_templates/genetic/value/value.hpp"              // IWYU pragma: export
