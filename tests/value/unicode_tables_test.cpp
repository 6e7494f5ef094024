// The character properties that texts and numbers rest on, at the edges of their tables.
//
// Method: single code points, each with its reason. That every code point agrees with CPython is
// checked by the sums in python_forms_test.cpp.
#include "search_templates/genetic/value/unicode_tables.hpp"

#include <gtest/gtest.h>

namespace varnholt::genetic {
namespace {

TEST(UnicodeTables, KnowWhiteSpace) {
  for (const char32_t space : {0x09u, 0x0Du, 0x1Cu, 0x1Fu, 0x20u, 0x85u, 0xA0u, 0x1680u, 0x2000u,
                               0x200Au, 0x2028u, 0x3000u}) {
    EXPECT_TRUE(is_unicode_space(space)) << std::hex << static_cast<unsigned>(space);
  }
  // Before and behind ranges; the zero-width space; the Mongolian separator, a space until 6.3.
  for (const char32_t other :
       {0x08u, 0x0Eu, 0x1Bu, 0x21u, 0x84u, 0x1FFFu, 0x200Bu, 0x180Eu, 0x3001u, 0x10FFFFu}) {
    EXPECT_FALSE(is_unicode_space(other)) << std::hex << static_cast<unsigned>(other);
  }
}

TEST(UnicodeTables, GiveDecimalDigitsOfAnyScriptTheirValue) {
  EXPECT_EQ(unicode_decimal_value(U'0'), 0);
  EXPECT_EQ(unicode_decimal_value(U'9'), 9);
  EXPECT_EQ(unicode_decimal_value(0x0660), 0);  // Arabic-Indic zero.
  EXPECT_EQ(unicode_decimal_value(0x0669), 9);
  EXPECT_EQ(unicode_decimal_value(0x1D7CE), 0);  // Five runs of mathematical digits touch.
  EXPECT_EQ(unicode_decimal_value(0x1D7D8), 0);
  EXPECT_EQ(unicode_decimal_value(0x1D7FF), 9);
  EXPECT_EQ(unicode_decimal_value(0x1FBF9), 9);  // The last digit of the table.
}

TEST(UnicodeTables, GiveNoValueToOtherCharacters) {
  for (const char32_t other :
       {0x2Fu, 0x3Au, 0xB2u, 0x065Fu, 0x066Au, 0x1FBFAu, 0x4E00u, 0x10FFFFu}) {
    EXPECT_EQ(unicode_decimal_value(other), -1) << std::hex << static_cast<unsigned>(other);
  }
}

TEST(UnicodeTables, KnowWhatAReprShows) {
  for (const char32_t shown :
       {0x20u, 0x7Eu, 0xA1u, 0xE9u, 0x0378u - 1, 0x4E00u, 0x1F600u, 0xE0100u, 0xE01EFu}) {
    EXPECT_TRUE(is_unicode_printable(shown)) << std::hex << static_cast<unsigned>(shown);
  }
  // Controls, the soft hyphen, separators, surrogates, private use, unassigned.
  for (const char32_t hidden : {0x00u, 0x1Fu, 0x7Fu, 0x80u, 0xA0u, 0xADu, 0x0378u, 0x2028u, 0xD800u,
                                0xE000u, 0xFFFFu, 0xE01F0u, 0x10FFFFu}) {
    EXPECT_FALSE(is_unicode_printable(hidden)) << std::hex << static_cast<unsigned>(hidden);
  }
}

}  // namespace
}  // namespace varnholt::genetic
