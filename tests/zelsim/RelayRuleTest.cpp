#include "RelayRule.h"

#include <gtest/gtest.h>

namespace zelsim {
namespace {

using std::chrono::microseconds;

TEST(RelayRuleText, NamesBothSides) {
  const auto rule = ParseRelayRule("10.78.0.2:9999=10.77.0.3:1234");
  ASSERT_TRUE(rule);
  EXPECT_EQ(rule->listen.MemberFor(0).address().to_string(), "10.78.0.2");
  EXPECT_EQ(rule->listen.port, 9999);
  EXPECT_EQ(rule->target.MemberFor(0).address().to_string(), "10.77.0.3");
  EXPECT_EQ(rule->target.port, 1234);
}

TEST(RelayRuleText, ARangeHasTheAddressesWithItsLeadingBits) {
  const auto range = ParseAddressRange("10.78.4.0/22:9999");
  ASSERT_TRUE(range);
  EXPECT_TRUE(range->Has(0x0A4E0400));
  EXPECT_TRUE(range->Has(0x0A4E07FF));
  EXPECT_FALSE(range->Has(0x0A4E0800));
  EXPECT_FALSE(range->Has(0x0A4E03FF));
}

TEST(RelayRuleText, AMemberOfARangeKeepsItsOwnBits) {
  const auto range = ParseAddressRange("10.79.0.0/16:9999");
  ASSERT_TRUE(range);
  EXPECT_EQ(range->MemberFor(0x0A4E0C0D).address().to_string(), "10.79.12.13");
}

TEST(RelayRuleText, EveryAddressIsARangeToo) {
  const auto range = ParseAddressRange("0.0.0.0/0:1");
  ASSERT_TRUE(range);
  EXPECT_TRUE(range->Has(0xFFFFFFFF));
}

TEST(RelayRuleText, ConductIsEmptyByDefault) {
  const auto rule = ParseRelayRule("127.0.0.1:1=127.0.0.1:2");
  ASSERT_TRUE(rule);
  EXPECT_EQ(rule->conduct.delay.count(), 0);
  EXPECT_EQ(rule->conduct.pieceBytes, 0U);
  EXPECT_FALSE(rule->conduct.silenceAfter);
  EXPECT_FALSE(rule->conduct.dropAfter);
}

TEST(RelayRuleText, ConductsMayBeCombined) {
  const auto rule = ParseRelayRule("127.0.0.1:1=127.0.0.1:2,delay:5ms:200us,cut:3:4ms,silence:10:3s,drop:99");
  ASSERT_TRUE(rule);
  EXPECT_EQ(rule->conduct.delay, microseconds(5000));
  EXPECT_EQ(rule->conduct.jitter, microseconds(200));
  EXPECT_EQ(rule->conduct.pieceBytes, 3U);
  EXPECT_EQ(rule->conduct.pieceGap, microseconds(4000));
  EXPECT_EQ(rule->conduct.silenceAfter, 10U);
  EXPECT_EQ(rule->conduct.silence, microseconds(3000000));
  EXPECT_EQ(rule->conduct.dropAfter, 99U);
}

TEST(RelayRuleText, GapAndJitterAreNoneByDefault) {
  const auto rule = ParseRelayRule("127.0.0.1:1=127.0.0.1:2,delay:5ms,cut:1");
  ASSERT_TRUE(rule);
  EXPECT_EQ(rule->conduct.jitter.count(), 0);
  EXPECT_EQ(rule->conduct.pieceGap.count(), 0);
}

class RefusedRelayRule : public testing::TestWithParam<const char*> {};

TEST_P(RefusedRelayRule, IsNotUnderstood) { EXPECT_FALSE(ParseRelayRule(GetParam())); }

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedRelayRule,
    testing::Values("", "127.0.0.1:1", "127.0.0.1:1=", "=127.0.0.1:1", "127.0.0.1=127.0.0.1:2",
                    "127.0.0.1:1=127.0.0.1:0", "10.78.0.1/16:1=127.0.0.1:2", "10.78.0.0/33:1=127.0.0.1:2",
                    "127.0.0.1:1=127.0.0.1:2,", "127.0.0.1:1=127.0.0.1:2,delay",
                    "127.0.0.1:1=127.0.0.1:2,delay:5", "127.0.0.1:1=127.0.0.1:2,delay:ms",
                    "127.0.0.1:1=127.0.0.1:2,delay:5ms:1ms:1ms", "127.0.0.1:1=127.0.0.1:2,delay:2h",
                    "127.0.0.1:1=127.0.0.1:2,delay:7200s", "127.0.0.1:1=127.0.0.1:2,cut:0",
                    "127.0.0.1:1=127.0.0.1:2,cut:1:x", "127.0.0.1:1=127.0.0.1:2,silence:3",
                    "127.0.0.1:1=127.0.0.1:2,silence:x:3s", "127.0.0.1:1=127.0.0.1:2,drop",
                    "127.0.0.1:1=127.0.0.1:2,drop:1:2", "127.0.0.1:1=127.0.0.1:2,sleep:1"));

}  // namespace
}  // namespace zelsim
