// What the programs of this folder have in common: how they end, and what a run left in its store.
#pragma once

#include <string>
#include <vector>

#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded::search_quality {

// Of the signals that the run submitted to its pool, in their order.
[[nodiscard]] std::vector<EvaluationOfRun> submitted_evaluations(const SearchSummary& summary,
                                                                 RunStore& store);

// Calls `main_of` with the arguments behind the program's name; an exception is told on standard
// error, and the program ends with 1.
int run_program(const char* program, int (*main_of)(const std::vector<std::string>& arguments),
                int count, char** arguments);

}  // namespace varnholt::embedded::search_quality
