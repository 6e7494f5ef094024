// Digests that name what was read and what was found.
#pragma once

#include "search_templates/genetic/value/digest.hpp"

namespace varnholt::embedded {

using genetic::sha256_hex;

}  // namespace varnholt::embedded
