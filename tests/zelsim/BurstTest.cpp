#include "Burst.h"

#include <gtest/gtest.h>

#include "Frame.h"
#include "TopicRecord.h"

namespace zelsim {
namespace {

// The counters of all messages in the buffer; fails on anything that is not a whole message of the topic.
std::vector<uint64_t> Counters(ByteView buffer, size_t size) {
  std::vector<uint64_t> counters;
  while (!buffer.empty()) {
    const Header header = ReadHeader(buffer);
    const auto record = ParseTopicRecord(buffer.subspan(kAnswerOverhead, header.bodyLength - kZoeSize));
    if (!record || record->topic != "load" || record->data.size() != size || header.port != kTopicPort)
      return {};
    counters.push_back(GetLe<uint64_t>(record->data.data()));
    buffer = buffer.subspan(kHeaderSize + header.bodyLength);
  }
  return counters;
}

TEST(Burst, CountsItsMessagesFromZeroWithoutAGap) {
  Burst burst({.topic = "load", .count = 5000, .size = 64});
  std::vector<uint64_t> all;
  for (Bytes buffer; burst.Fill(buffer); buffer.clear()) {
    const auto counters = Counters(buffer, 64);
    ASSERT_FALSE(counters.empty());
    all.insert(all.end(), counters.begin(), counters.end());
  }
  ASSERT_EQ(all.size(), 5000u);
  for (size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], i);
  EXPECT_TRUE(burst.Done());
}

TEST(Burst, CountZeroNeverEnds) {
  Burst burst({.topic = "load", .count = 0, .size = 8});
  for (int i = 0; i < 100; ++i) {
    Bytes buffer;
    ASSERT_TRUE(burst.Fill(buffer));
  }
  EXPECT_FALSE(burst.Done());
}

TEST(Burst, MessagesLargerThanABlockGoOneByOne) {
  Burst burst({.topic = "load", .count = 2, .size = 1024 * 1024});
  Bytes buffer;
  ASSERT_TRUE(burst.Fill(buffer));
  EXPECT_EQ(Counters(buffer, 1024 * 1024), std::vector<uint64_t>{0});
}

TEST(Burst, SmallDataHasNoCounter) {
  Burst burst({.topic = "t", .count = 1, .size = 3});
  Bytes buffer;
  ASSERT_TRUE(burst.Fill(buffer));
  const auto record = ParseTopicRecord(ByteView(buffer).subspan(kAnswerOverhead));
  ASSERT_TRUE(record);
  EXPECT_EQ(Bytes(record->data.begin(), record->data.end()), (Bytes{'.', '.', '.'}));
}

TEST(Burst, RuleNamesTopicCountAndSize) {
  const auto rule = ParseBurstRule("a/b=10:64");
  ASSERT_TRUE(rule);
  EXPECT_EQ(rule->topic, "a/b");
  EXPECT_EQ(rule->count, 10u);
  EXPECT_EQ(rule->size, 64u);
  for (const char* text : {"", "a", "a=1", "=1:2", "a=x:1", "a=1:x"})
    EXPECT_FALSE(ParseBurstRule(text)) << text;
}

}  // namespace
}  // namespace zelsim
