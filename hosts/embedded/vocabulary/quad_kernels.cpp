// The kernels of vector_kernels.hpp for vectors of four, which not every machine has.
//
// What other files might take from here must not have been compiled for such vectors: the linker
// keeps one of each inline function. So everything of the standard library and of other libraries
// is included before the compiler is told of them, and after it only templates of Quad are made.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/strands.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

#if defined(__x86_64__)

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "hosts/embedded/vocabulary/vector_kernels_of.hpp"

namespace varnholt::embedded {
template struct KernelsOf<Quad>;
}  // namespace varnholt::embedded

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

namespace varnholt::embedded {

const VectorKernels* kernels_of_quads() {
  return __builtin_cpu_supports("avx2") ? &KernelsOf<Quad>::kTable : nullptr;
}

}  // namespace varnholt::embedded

#else

namespace varnholt::embedded {

const VectorKernels* kernels_of_quads() {
  return nullptr;
}

}  // namespace varnholt::embedded

#endif
