// A candidate result record on its way from a child process to the parent.
#pragma once

#include <string>
#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The record as bytes, its keys in their order. Reals come back bit for bit.
[[nodiscard]] std::string encode_result(const genetic::Mapping& result);

// The record again, with its statistics as an object. genetic::ValueError for bytes
// that are no record.
[[nodiscard]] genetic::Mapping decode_result(std::string_view bytes);

}  // namespace varnholt::embedded
