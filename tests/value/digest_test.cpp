// Goal: SHA-256 as the standard has it, and as the host's language shows it.
//
// Method: the examples of FIPS 180-4 and texts at the borders of a block; canonical texts of random
// graphs are compared with CPython in python_semantics_test.
#include "search_templates/genetic/value/digest.hpp"

#include <string>

#include <gtest/gtest.h>

namespace varnholt::genetic {
namespace {

TEST(Sha256Hex, GivesTheDigestsOfTheStandard) {
  EXPECT_EQ(sha256_hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(sha256_hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha256_hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(sha256_hex(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256Hex, CountsEveryByte) {
  using std::string_literals::operator""s;
  EXPECT_EQ(sha256_hex("\0"s), "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
  EXPECT_NE(sha256_hex("a\0b"s), sha256_hex("a"s));
  EXPECT_EQ(sha256_hex("\xC3\xA9"),
            "4a99557e4033c3539de2eb65472017cad5f9557f7a0625a09f1c3f6e2ba69c4c");
}

}  // namespace
}  // namespace varnholt::genetic
