// An observer of searches of which only the end is looked at: it shows what goes wrong and no more.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "hosts/embedded/host/search_events.hpp"

namespace varnholt::embedded {

class SilentObserver : public SearchObserver {
 public:
  void on_started(const SearchStarted& /*started*/) override {}
  void on_tick(const SearchProgress& /*progress*/, std::int64_t /*evaluated*/) override {}
  void on_recorded(const CandidateRecorded& /*candidate*/) override {}
  void on_settled(const SettledSignal& /*signal*/) override {}
  void on_generation(const SearchProgress& /*progress*/) override {}
  void on_log(LogLevel /*level*/, std::string_view text) override {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  }
  void on_metrics(const genetic::Mapping& /*metrics*/) override {}
};

}  // namespace varnholt::embedded
