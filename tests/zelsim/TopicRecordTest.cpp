#include "TopicRecord.h"

#include <gtest/gtest.h>

#include "Support.h"

namespace zelsim {
namespace {

Bytes Sample() { return test::BuildRecord("pub", "a", std::string_view("x\0y", 3), 1, 2); }

TEST(TopicRecord, ReadsEveryField) {
  const Bytes bytes = Sample();
  ASSERT_EQ(bytes.size(), 42u);
  const auto record = ParseTopicRecord(bytes);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->verb, "pub");
  EXPECT_EQ(record->topic, "a");
  EXPECT_EQ(test::ToText(record->data), std::string("x\0y", 3));
  EXPECT_EQ(record->idGroup, 1u);
  EXPECT_EQ(record->idOffset, 2u);
}

TEST(TopicRecord, WritesWhatItReads) {
  const Bytes bytes = Sample();
  EXPECT_EQ(EncodeTopicRecord(*ParseTopicRecord(bytes)), bytes);
}

TEST(TopicRecord, RefusesEveryCut) {
  const Bytes bytes = Sample();
  for (size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(ParseTopicRecord(ByteView(bytes).first(size))) << size;
  }
}

TEST(TopicRecord, RefusesBytesLeftOver) {
  Bytes bytes = Sample();
  bytes.push_back(0);
  EXPECT_FALSE(ParseTopicRecord(bytes));
}

TEST(TopicRecord, RefusesLengthsNearTheTopOfTheirRange) {
  for (const size_t field : {0u, 8u, 16u}) {
    for (const uint64_t length :
         {UINT64_MAX, UINT64_MAX - 1, UINT64_MAX - 26, uint64_t{1} << 63, uint64_t{40}}) {
      Bytes bytes = Sample();
      PutLe(&bytes[field], length);
      EXPECT_FALSE(ParseTopicRecord(bytes)) << field << " " << length;
    }
  }
}

TEST(TopicRecord, RefusesATextWithoutItsNul) {
  Bytes bytes = Sample();
  bytes[24 + 3] = 'x';
  EXPECT_FALSE(ParseTopicRecord(bytes));
}

}  // namespace
}  // namespace zelsim
