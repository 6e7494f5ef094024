// A run of bytes put together from parts: what was written stays when the run outgrows its first
// room, whatever the size of the part that does it. Method: the same parts into a std::string.
#include "search_templates/genetic/value/byte_buffer.hpp"

#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/key.hpp"

namespace varnholt::genetic {
namespace {

TEST(ByteBuffer, HoldsWhatWasWritten) {
  ByteBuffer buffer;
  EXPECT_EQ(buffer.view(), "");
  buffer.append('a');
  buffer.append("");
  buffer.append("bc");
  EXPECT_EQ(buffer.view(), "abc");
}

TEST(ByteBuffer, GrowsByEveryKindOfPart) {
  for (const std::size_t part : {1U, 7U, 4095U, 4096U, 4097U, 20'000U}) {
    ByteBuffer buffer;
    std::string expected;
    for (int i = 0; i < 40; ++i) {
      const std::string bytes(part, static_cast<char>('a' + i % 26));
      buffer.append(bytes);
      buffer.append('-');
      expected += bytes + "-";
    }
    EXPECT_EQ(buffer.view(), expected);
  }
}

TEST(ByteBuffer, PutsTextsOfEverySize) {
  ByteBuffer buffer;
  std::string expected;
  for (std::size_t size = 0; size < 300; ++size) {
    const Value text = std::string(size, static_cast<char>('a' + size % 26));
    char* next = buffer.room(1 + ByteBuffer::text_room(size));
    *next++ = '|';
    buffer.end_at(ByteBuffer::put_text(next, text.text()));
    expected += "|" + std::string(text.text());
  }
  EXPECT_EQ(buffer.view(), expected);
}

TEST(ByteBuffer, PutsFixedTexts) {
  ByteBuffer buffer;
  for (const Value& text : {Value(key<"">()), Value(key<"node">()),
                            Value(key<"a fixed text of more than sixteen characters">())}) {
    buffer.end_at(
        ByteBuffer::put_text(buffer.room(ByteBuffer::text_room(text.text().size())), text.text()));
  }
  EXPECT_EQ(buffer.view(), "nodea fixed text of more than sixteen characters");
}

}  // namespace
}  // namespace varnholt::genetic
