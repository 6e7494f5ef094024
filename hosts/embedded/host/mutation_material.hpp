// The graphs that lend their parts to a mutation.
#pragma once

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class MutationMaterial {
 public:
  static constexpr int kGraphs = 3;
  // How often a graph is one of the archive's, once there are any to choose from. What was good
  // has good parts; the random ones keep words alive that the archive has lost.
  static constexpr double kArchiveShare = 0.5;

  // Without an archive all graphs are random. What is given must outlive the object, but for the
  // options.
  MutationMaterial(const Vocabulary& vocabulary, const RandomGraphOptions& options,
                   const SignalArchive* archive)
      : vocabulary_(vocabulary), options_(options), archive_(archive) {}

  // kGraphs of them. Draws for each: whether it is the archive's, where it may be, and then what
  // the archive or a random graph draws.
  [[nodiscard]] genetic::List draw(genetic::RandomGenerator& generator) const;

 private:
  const Vocabulary& vocabulary_;
  RandomGraphOptions options_;
  const SignalArchive* archive_;
};

}  // namespace varnholt::embedded
