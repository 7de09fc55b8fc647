#include "AnswerRule.h"

#include <gtest/gtest.h>

namespace zelsim {
namespace {

using Kind = AnswerRule::Kind;

TEST(AnswerRule, EveryPortEchoesByDefault) {
  const AnswerRules rules;
  EXPECT_EQ(rules.For(0).kind, Kind::kEcho);
  EXPECT_EQ(rules.For(65535).kind, Kind::kEcho);
}

TEST(AnswerRule, StarIsForPortsWithoutARuleOfTheirOwn) {
  AnswerRules rules;
  ASSERT_TRUE(rules.Add("*=silent"));
  ASSERT_TRUE(rules.Add("600=error:0x1001:4"));
  EXPECT_EQ(rules.For(601).kind, Kind::kSilent);
  EXPECT_EQ(rules.For(600).kind, Kind::kError);
  EXPECT_EQ(rules.For(600).error, 4097u);
  EXPECT_EQ(rules.For(600).size, 4u);
}

TEST(AnswerRule, RefusesTextsThatItDoesNotKnow) {
  AnswerRules rules;
  for (const char* text : {"", "600", "600=", "600=echo:1", "600=size", "600=size:x", "600=error",
                           "600=error:1:2:3", "65536=echo", "a=echo", "600=size:10485761"}) {
    EXPECT_FALSE(rules.Add(text)) << text;
  }
}

TEST(AnswerRule, CountingBytesWrapAt256) {
  const Bytes bytes = CountingBytes(258);
  EXPECT_EQ(bytes[255], 255);
  EXPECT_EQ(bytes[257], 1);
}

}  // namespace
}  // namespace zelsim
