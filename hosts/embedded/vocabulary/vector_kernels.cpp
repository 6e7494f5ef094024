#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

const VectorKernels& vector_kernels() {
  static const VectorKernels* const quads = kernels_of_quads();
  return quads != nullptr ? *quads : kernels_of_pairs();
}

}  // namespace varnholt::embedded
