// What a pool tells of its items, noted in order: "dispatch 1.0", "start 1.0", "lost 1.0" and
// "done 1.0", the index of the item with its attempt.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "hosts/embedded/pool/fork_pool.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"

namespace varnholt::embedded::test {

class NotedPoolTest : public ProcessTest {
 protected:
  PoolCallbacks noting() {
    PoolCallbacks callbacks;
    callbacks.dispatch_callback = [this](const WorkItem& item) { note("dispatch", item); };
    callbacks.started_callback = [this](const WorkItem& item, pid_t) { note("start", item); };
    callbacks.lost_callback = [this](const PoolOutcome& outcome) {
      note("lost", {outcome.index, outcome.attempt});
    };
    callbacks.completed_callback = [this](const PoolOutcome& outcome) {
      note("done", {outcome.index, outcome.attempt});
    };
    return callbacks;
  }
  void note(const char* what, const WorkItem& item) {
    std::ostringstream text;
    text << what << ' ' << item.index << '.' << item.attempt;
    notes_.push_back(text.str());
  }

  std::vector<std::string> notes_;
};

}  // namespace varnholt::embedded::test
