// What statements of the host's language do with values: unpacking, membership, negation,
// comparison, writing an entry. Each fails as the statement does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The items of a value that must have as many. The errors are those of unpack_pair.
[[nodiscard]] std::vector<Value> unpack(const Value& value, std::size_t count);

// first, second = value. TypeError "cannot unpack non-iterable int object"; ValueError for another
// number of items but two.
[[nodiscard]] std::pair<Value, Value> unpack_pair(const Value& value);

// item in container: a key of a mapping, an item of a sequence, a part of a text.
// TypeError "argument of type 'int' is not iterable", and for an item that cannot be a key.
[[nodiscard]] bool contains(const Value& container, const Value& item);

// -value. TypeError "bad operand type for unary -: 'str'".
[[nodiscard]] Value negated(const Value& value);

// value.name, for an attribute that a rule requires. AttributeError "'int' object has no attribute
// 'graph'".
[[nodiscard]] Value required_attribute(const Value& value, std::string_view name);

// left != right. A host's object is asked whether it differs, which need not be the opposite of its
// equality.
[[nodiscard]] bool differ(const Value& left, const Value& right);

// integer + addend, exactly. The integer is one that to_integer() gave.
[[nodiscard]] Value integer_sum(const Value& integer, std::int64_t addend);

// left >= right. A host's object answers this comparison itself. TypeError "'>=' not supported
// between instances of 'int' and 'str'".
[[nodiscard]] bool at_least(const Value& left, const Value& right);

// The value as what is read, written and emptied by key, whatever it is. Anything but a record
// fails when it is first used, as the host's language has it: TypeError "'int' object does not
// support item assignment" for value[key] = ..., AttributeError "'int' object has no attribute
// 'get'" and the like for its operations.
[[nodiscard]] Mapping expected_record(const Value& value);

// value.get(key), for a record that may be any kind of object with such an operation.
// AttributeError "'int' object has no attribute 'get'".
[[nodiscard]] Value entry(const Value& value, const Value& key);

}  // namespace varnholt::genetic
