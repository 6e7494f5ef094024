// The TOML parser, made safe against texts that break its own assumptions.
//
// A few texts that are not TOML ("[=" is one) run into an assertion of the parser (version 3.3)
// instead of a parse error. Left alone, that ends the program where assertions are on, and is
// undefined behaviour where they are off. Here a broken assertion is an exception in every build.
// Many characters beyond ASCII ("x = 1\u00e4") are undefined behaviour without an assertion, so the
// parser may be given ASCII only (ascii_text.hpp). Only one source file includes this header, so
// that the parser is compiled in one way only.
#pragma once

namespace varnholt::embedded {

// A text that the parser refused by an assertion, and so not TOML.
struct TomlAssertion {};

namespace detail {
[[noreturn]] inline void fail_toml_assertion() {
  throw TomlAssertion();
}
}  // namespace detail

}  // namespace varnholt::embedded

// With NDEBUG the parser would drop the assertions and tell the compiler that they always hold.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : ::varnholt::embedded::detail::fail_toml_assertion())
// The library's compiled form has the assertions of whoever compiled it.
#define TOML_HEADER_ONLY 1
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")
