// What the search tells of its generations, to a host that wants to know.
//
// A graph that is evaluated no longer says where it came from: it may have been a seed of the run,
// bred from parents, or drawn afresh. Here the search tells it, beside its other calls and without
// changing their order: it makes no call and no random draw that it would not make otherwise.
//
// Called in the parent, on the thread of the search. What an operation throws ends the search.
#pragma once

#include <span>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class GenerationObserver {
 public:
  virtual ~GenerationObserver() = default;

  // A seed of the run is in the batch that is being made.
  virtual void on_seed(const Value& /*graph*/) {}

  // A graph was bred, and is what it will be: `operators` were applied, one or two, the second
  // always a crossover with the mate. The parents are graphs of the generation before; the mate had
  // a part only in a crossover. Whether the graph comes into the batch is not known yet.
  virtual void on_offspring(const Value& /*graph*/, std::span<const Key> /*operators*/,
                            const Value& /*elite*/, const Value& /*mate*/) {}

  // These graphs are evaluated next, in this order. They are the very ones that were told of before
  // where they are seeds or offspring; all others were drawn afresh.
  virtual void on_batch(const List& /*graphs*/) {}

  // A generation is over, its results are recorded and submitted; the pause follows. Also told of a
  // generation without a batch, but not of the one in which the search ends.
  virtual void on_generation_end() {}
};

}  // namespace varnholt::genetic
