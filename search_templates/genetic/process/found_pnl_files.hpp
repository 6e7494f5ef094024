// The files of the signals that the pool has found, listed once in the parent and shown to every
// child of a batch in the place of the host's link to the pool.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The list as a tuple, in the parent before any fork. Empty without a link that can be asked, and
// when asking fails, which is logged: the search goes on without the list.
[[nodiscard]] Value prefetch_found_pnl_files(Host& host, SearchContext& context);

// tuple(paths), or an empty tuple for what is false.
[[nodiscard]] Value found_paths(const Value& paths);

// What a manager's `get_manifest` gives; absent when it has no such operation.
[[nodiscard]] Value manifest_of(const Value& sync_manager);

// What a child sees in the place of the context's sync manager: an object whose `request_for_sync`
// gives the paths without asking the parent's manager, and whose `get_manifest` asks that. A host
// of another language makes an object of its own.
[[nodiscard]] Value child_sync_snapshot(const Value& sync_manager, const Value& found_pnl_paths);

}  // namespace varnholt::genetic
