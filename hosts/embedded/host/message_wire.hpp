// A tuple of scalars on its way between parent and child.
#pragma once

#include <string>
#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Texts are cut to so many bytes, at the end of a character: a message must fit into what a pipe
// takes at once, and the texts are for people.
inline constexpr std::size_t kLongestMessageText = 1500;

// The bytes (value_wire.hpp) of a tuple of absent values, booleans, integers, reals and texts.
// genetic::TypeError for any other value: it would be another object on the other side.
[[nodiscard]] std::string encode_message(const genetic::Value& message);

// The tuple again. genetic::ValueError for bytes that are not a message.
[[nodiscard]] genetic::Value decode_message(std::string_view bytes);

}  // namespace varnholt::embedded
