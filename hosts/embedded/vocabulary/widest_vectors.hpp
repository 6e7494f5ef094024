// Loops that the compiler vectorises by itself, compiled for what every machine has and for what
// this one has besides. (Where it cannot, vector_kernels.hpp has loops over vectors.)
#pragma once

#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

#if defined(__x86_64__)

// The calls in `work` are made a part of this function, and so are compiled as it is: in vectors of
// four, without fused multiplications, so that the values are the same.
template <typename Work>
[[gnu::flatten, gnu::target("avx2")]] void work_in_quads(const Work& work) {
  work();
}

template <typename Work>
void in_widest_vectors(const Work& work) {
  if (kernels_of_quads() != nullptr) return work_in_quads(work);
  work();
}

#else

template <typename Work>
void in_widest_vectors(const Work& work) {
  work();
}

#endif

}  // namespace varnholt::embedded
