// Messages between parent and child keep their values. Method: round trips, and bytes cut anywhere.
#include "hosts/embedded/host/message_wire.hpp"

#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Tuple;
using genetic::Value;

TEST(MessageWire, KeepsEveryScalar) {
  const Value message = Tuple{7,   std::numeric_limits<std::int64_t>::min(), true, false, Value(),
                              0.1, std::numeric_limits<double>::infinity(),  "",   "grün"};
  const Value back = decode_message(encode_message(message));
  EXPECT_TRUE(back.is_tuple());
  EXPECT_EQ(genetic::repr(back), genetic::repr(message));
  EXPECT_EQ(genetic::repr(decode_message(encode_message(Tuple()))), "()");
}

TEST(MessageWire, CutsALongTextAtTheEndOfACharacter) {
  const std::string text = std::string(kLongestMessageText - 1, 'x') + "ü and more";
  const Value back = decode_message(encode_message(Tuple{text, 5}));
  EXPECT_EQ(back.tuple().at(0).text(), std::string(kLongestMessageText - 1, 'x'));
  EXPECT_EQ(back.tuple().at(1).integer(), 5);
  const std::string whole(kLongestMessageText, 'y');
  EXPECT_EQ(decode_message(encode_message(Tuple{whole})).tuple().at(0).text(), whole);
}

TEST(MessageWire, RefusesWhatWouldNotBeTheSameOnTheOtherSide) {
  EXPECT_THROW(static_cast<void>(encode_message(5)), genetic::TypeError);
  EXPECT_THROW(static_cast<void>(encode_message(Tuple{genetic::List()})), genetic::TypeError);
  EXPECT_THROW(static_cast<void>(encode_message(Tuple{genetic::Mapping()})), genetic::TypeError);
}

TEST(MessageWire, RefusesBytesThatAreNoMessage) {
  const std::string bytes = encode_message(Tuple{"text", 5});
  for (const std::size_t end : {std::size_t{1}, std::size_t{4}, std::size_t{7}, bytes.size() - 1})
    EXPECT_THROW(static_cast<void>(decode_message(bytes.substr(0, end))), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(decode_message("?")), genetic::ValueError);
}

}  // namespace
}  // namespace varnholt::embedded::test
