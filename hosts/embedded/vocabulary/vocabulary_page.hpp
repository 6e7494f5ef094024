// The vocabulary as a page for people.
#pragma once

#include <string>

namespace varnholt::embedded {

// Every feature and every function with its formula, its NaN and tie rules and an example that is
// computed by the function itself, as Markdown. docs/vocabulary.md is this text.
[[nodiscard]] std::string vocabulary_page();

}  // namespace varnholt::embedded
