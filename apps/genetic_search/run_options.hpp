// The options of "genetic-search run" and of what judges signals as it does.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/option_set.hpp"

namespace varnholt::app {

// What is given on the command line is written into `run`, which must live as long as the parser.
void add_run_options(Options& options, RunCommand& run);

// What the page of "genetic-search eval" says above and below its options.
inline constexpr const char* kEvalDescription =
    "Evaluates formulas such as \"-1 * rank(delta(close, 5))\": the figures in sample and\n"
    "on the hold-out, how near each gate is, and with --db what they have in common with\n"
    "the signals of a pool. Nothing is stored.";

inline constexpr const char* kEvalFooter =
    "\"genetic-search vocabulary\" tells what formulas are made of.\n\n"
    "Exit codes: 0 done, 2 bad usage or bad input; the formulas that can be read are\n"
    "evaluated all the same.";

// Likewise those of "genetic-search eval", which judges by the same rules.
void add_eval_options(Options& options, EvalCommand& eval);

}  // namespace varnholt::app
