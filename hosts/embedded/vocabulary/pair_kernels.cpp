// The kernels of vector_kernels.hpp for vectors of two, which every machine has.
#include "hosts/embedded/vocabulary/vector_kernels.hpp"
#include "hosts/embedded/vocabulary/vector_kernels_of.hpp"

namespace varnholt::embedded {

const VectorKernels& kernels_of_pairs() {
  return KernelsOf<Pair>::kTable;
}

}  // namespace varnholt::embedded
