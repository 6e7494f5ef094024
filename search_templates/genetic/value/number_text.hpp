// Numbers as CPython writes them.
//
// A double is written with the fewest digits that read back as the same double, and of those with
// the digits nearest to it: positional between 1e-4 and 1e16 with at least one digit behind the
// point, in powers of ten elsewhere ("1.0", "0.0001", "1e-05", "1e+16", "-0.0").
//
// The appending forms write into a buffer that the caller reuses and allocate nothing themselves.
#pragma once

#include <cstdint>
#include <string>

namespace varnholt::genetic {

// Appends `repr(value)` of a float; "inf", "-inf" and "nan" (of either sign) for values that are
// not finite.
void append_float_repr(std::string& out, double value);

// Appends what `json.dumps` writes for a float: its repr, but "Infinity", "-Infinity" and "NaN".
void append_float_json(std::string& out, double value);

// Appends an integer in decimal digits: its repr, and its JSON text.
void append_integer(std::string& out, std::int64_t value);

}  // namespace varnholt::genetic
