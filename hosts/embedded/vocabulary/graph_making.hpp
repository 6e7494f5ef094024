// What is done to every graph that the host makes: fresh ones, children, repairs and seeds. It is
// never done to a graph that is stored, shown or judged.
#pragma once

#include "hosts/embedded/vocabulary/canonical_form.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct GraphMakingOptions {
  bool simplifies = false;  // To the form of canonical_form.hpp.
  // Whether no child and no repair mixes units where what it is made of does not.
  bool keeps_units = false;
  CanonicalOptions canonical = {};
  // An expression and its opposite are judged as one: none begins with a negation.
  bool drops_sign = false;
};

class GraphMaking {
 public:
  // Leaves graphs as they are.
  GraphMaking() = default;
  // The vocabulary must outlive it.
  GraphMaking(const Vocabulary& vocabulary, const GraphMakingOptions& options)
      : vocabulary_(&vocabulary), options_(options) {}

  // The graph as the host hands it out.
  [[nodiscard]] genetic::Value finished(genetic::Value graph) const;

  // Whether the graph may be made of `parent`: it mixes units at no more places (unit_check.hpp).
  // Those that the user has mixed by himself may stay.
  [[nodiscard]] bool fits_units(const genetic::Value& graph, const genetic::Value& parent) const;
  [[nodiscard]] bool keeps_units() const { return options_.keeps_units; }

 private:
  const Vocabulary* vocabulary_ = nullptr;
  GraphMakingOptions options_;
};

}  // namespace varnholt::embedded
