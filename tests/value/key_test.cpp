// Fixed texts: the same text as one made at run time, in value, hash and JSON form, for free.
#include "search_templates/genetic/value/key.hpp"

#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

TEST(Key, IsOneTextHoweverOftenItIsNamed) {
  constexpr Key first = key<"some text">();
  constexpr Key second = key<"some text">();
  EXPECT_EQ(&first.rep(), &second.rep());
  EXPECT_EQ(first.view(), "some text");
  EXPECT_EQ(key<"">().view(), "");
  EXPECT_EQ(keys::kTrackingMetricKwargs.view(), "tracking_metric_kwargs");
}

TEST(Key, HasTheHashOfATextMadeAtRunTime) {
  EXPECT_EQ(Value(keys::kCandidateIndex).text_hash(), Value("candidate_index").text_hash());
  EXPECT_EQ(Value(key<"">()).text_hash(), Value("").text_hash());
  EXPECT_TRUE(Value(key<"\xC3\xA9">()) == Value("\xC3\xA9"));
}

TEST(Key, IsNeverCounted) {
  {
    Value first = keys::kGraph;
    const Value second = first;
    first = Value();
  }
  EXPECT_EQ(keys::kGraph.rep().references, detail::kImmortal);
}

TEST(TextIsPlain, TellsWhatJsonHasAsItIs) {
  EXPECT_TRUE(Value("").text_is_plain());
  EXPECT_TRUE(Value(" ~a/'").text_is_plain());
  EXPECT_TRUE(Value(keys::kNode).text_is_plain());
  for (const char* text :
       {"\"", "\\", "a\n", "\x1F", "\x7F", "\xC3\xA9", "plain, then \xF0\x9F\x98\x80"}) {
    EXPECT_FALSE(Value(text).text_is_plain()) << text;
  }
  EXPECT_FALSE(Value(std::string("\0", 1)).text_is_plain());
  EXPECT_FALSE(Value(key<"a\tb">()).text_is_plain());
}

}  // namespace
}  // namespace varnholt::genetic
