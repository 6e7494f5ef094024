#include "search_templates/genetic/host/host.hpp"

#include <string>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

[[noreturn]] void throw_keeps_no_attempts(const char* what) {
  throw RuntimeError("this host keeps no attempts of processes: override Host::" +
                     std::string(what));
}

}  // namespace

AttemptMarkers& Host::attempt_markers() {
  throw_keeps_no_attempts("attempt_markers");
}

AttemptAccounting& Host::attempt_accounting() {
  throw_keeps_no_attempts("attempt_accounting");
}

ProcessContexts& Host::process_contexts() {
  throw_keeps_no_attempts("process_contexts");
}

}  // namespace varnholt::genetic
