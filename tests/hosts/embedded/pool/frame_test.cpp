// A frame arrives whole however it is cut on the way, and any other bytes are never taken for one.
// Method: a golden frame made by another program, every cut and every flipped bit of small frames,
// and seeded random payloads fed in random pieces.
#include "hosts/embedded/pool/frame.hpp"

#include <cstdint>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

using State = FrameDecoder::State;
using ::testing::HasSubstr;

constexpr FrameAddress kAddress{7, 2};
constexpr std::uint64_t kLimit = 1 << 20;

std::string frame(FrameKind kind, const FrameAddress& address, const std::string& payload) {
  const FrameHeader header = frame_header(kind, address, payload);
  return std::string(header.begin(), header.end()) + payload;
}

std::string from_hex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

TEST(Frame, HasTheDocumentedBytes) {
  // Made with Python's struct.pack("<IIQQ", ...) and a plain FNV-1a that gives the published
  // af63dc4c8601ec8c for "a" and 85944171f73967e8 for "foobar".
  const std::string golden = from_hex(
      "56474652414d4531010000000200000008070605040302010500000000000000"
      "c0f058b718f6cb0f"
      "68656c6c6f");
  EXPECT_EQ(frame(FrameKind::Result, {0x0102030405060708U, 2}, "hello"), golden);
}

TEST(Frame, ArrivesByteByByte) {
  const std::string bytes = frame(FrameKind::Error, kAddress, std::string("a\0b", 3));
  FrameDecoder decoder(kAddress, kLimit);
  EXPECT_TRUE(decoder.received_nothing());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    ASSERT_EQ(decoder.state(), State::Incomplete) << i;
    decoder.feed(bytes.substr(i, 1));
    ASSERT_FALSE(decoder.received_nothing());
  }
  ASSERT_EQ(decoder.state(), State::Whole);
  EXPECT_EQ(decoder.kind(), FrameKind::Error);
  EXPECT_EQ(decoder.take_payload(), std::string("a\0b", 3));
}

TEST(Frame, MayHaveNoPayload) {
  FrameDecoder decoder(kAddress, kLimit);
  EXPECT_EQ(decoder.feed(frame(FrameKind::Result, kAddress, "")), State::Whole);
  EXPECT_EQ(decoder.take_payload(), "");
}

TEST(Frame, IsNotWholeAtAnyCut) {
  const std::string bytes = frame(FrameKind::Result, kAddress, "some payload");
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    FrameDecoder decoder(kAddress, kLimit);
    EXPECT_EQ(decoder.feed(bytes.substr(0, cut)), State::Incomplete) << cut;
  }
}

TEST(Frame, TellsHowFarItCame) {
  const std::string bytes = frame(FrameKind::Result, kAddress, "some payload");
  FrameDecoder decoder(kAddress, kLimit);
  decoder.feed(bytes.substr(0, 12));
  EXPECT_EQ(decoder.progress(), "12 of at least 40 bytes");
  decoder.feed(bytes.substr(12, 30));
  EXPECT_EQ(decoder.progress(), "42 of 52 bytes");
}

TEST(Frame, IsNeverWholeWithAFlippedBit) {
  const std::string bytes = frame(FrameKind::Result, kAddress, "some payload");
  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    std::string damaged = bytes;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
    FrameDecoder decoder(kAddress, kLimit);
    // A longer length looks like a frame that is still on its way.
    EXPECT_NE(decoder.feed(damaged), State::Whole) << "bit " << bit;
  }
}

TEST(Frame, OfAnotherItemOrAttemptIsDamage) {
  for (const FrameAddress& other : {FrameAddress{8, 2}, FrameAddress{7, 1}}) {
    FrameDecoder decoder(kAddress, kLimit);
    EXPECT_EQ(decoder.feed(frame(FrameKind::Result, other, "x")), State::Damaged);
    EXPECT_THAT(decoder.damage(), HasSubstr("not for item 7 attempt 2"));
  }
}

TEST(Frame, WithAWrongChecksumIsDamage) {
  std::string bytes = frame(FrameKind::Result, kAddress, "some payload");
  bytes.back() = '?';
  FrameDecoder decoder(kAddress, kLimit);
  EXPECT_EQ(decoder.feed(bytes), State::Damaged);
  EXPECT_EQ(decoder.damage(), "its checksum is wrong");
}

TEST(Frame, OfAnUnknownKindIsDamage) {
  FrameDecoder decoder(kAddress, kLimit);
  EXPECT_EQ(decoder.feed(frame(static_cast<FrameKind>(5), kAddress, "x")), State::Damaged);
  EXPECT_EQ(decoder.damage(), "its kind 5 is unknown");
}

TEST(Frame, MayBeAsLongAsTheLimitAndNoLonger) {
  FrameDecoder fits(kAddress, 5);
  EXPECT_EQ(fits.feed(frame(FrameKind::Result, kAddress, "12345")), State::Whole);
  FrameDecoder refused(kAddress, 4);
  EXPECT_EQ(refused.feed(frame(FrameKind::Result, kAddress, "12345")), State::Damaged);
  EXPECT_EQ(refused.damage(), "its length of 5 bytes is above the limit of 4 bytes");
}

TEST(Frame, IsTheFirstOneAndWhatFollowsIsNotLookedAt) {
  const std::string first = frame(FrameKind::Result, kAddress, "first");
  const std::string second = frame(FrameKind::Result, kAddress, "second");
  FrameDecoder decoder(kAddress, kLimit);
  EXPECT_EQ(decoder.feed(first + second), State::Whole);
  EXPECT_EQ(decoder.feed("noise"), State::Whole);
  EXPECT_EQ(decoder.take_payload(), "first");
}

TEST(Frame, StaysDamagedWhateverFollows) {
  FrameDecoder decoder(kAddress, kLimit);
  EXPECT_EQ(decoder.feed(std::string(kFrameHeaderBytes, 'x')), State::Damaged);
  EXPECT_EQ(decoder.feed(frame(FrameKind::Result, kAddress, "x")), State::Damaged);
  EXPECT_EQ(decoder.damage(), "it does not begin with a frame's mark");
}

TEST(Frame, CarriesAnyPayloadInAnyPieces) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::string payload(random() % 5000, '\0');
    for (char& byte : payload) {
      byte = static_cast<char>(random());
    }
    const FrameAddress address{random(), static_cast<std::uint32_t>(random() % 10)};
    std::string bytes = frame(FrameKind::Result, address, payload);
    FrameDecoder decoder(address, kLimit);
    while (!bytes.empty()) {
      const std::size_t piece = 1 + random() % 700;
      decoder.feed(bytes.substr(0, piece));
      bytes.erase(0, piece);
    }
    ASSERT_EQ(decoder.state(), State::Whole);
    ASSERT_EQ(decoder.take_payload(), payload);
  }
}

TEST(FrameErrors, KeepTypeAndText) {
  const std::optional<FrameError> error = decode_error(encode_error("std::logic_error", "why: \n"));
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->type, "std::logic_error");
  EXPECT_EQ(error->text, "why: \n");
}

TEST(FrameErrors, AreAbsentWhereThePayloadIsTooShort) {
  const std::string whole = encode_error("Kind", "");
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    EXPECT_FALSE(decode_error(whole.substr(0, cut)).has_value()) << cut;
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
