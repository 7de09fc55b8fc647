#include "zelcomm/Frame.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace libzel {
namespace {

using Bytes = std::vector<uint8_t>;

std::span<const uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

Bytes Written(const TopicRecord& record) {
  Bytes bytes(TopicRecordSize(record), 0xEE);
  WriteTopicRecordHead(bytes.data(), record);
  const size_t head = TopicRecordHeadSize(record);
  std::copy(record.data.begin(), record.data.end(), bytes.begin() + static_cast<ptrdiff_t>(head));
  WriteTopicRecordTail(bytes.data() + head + record.data.size(), record);
  return bytes;
}

Bytes Example() { return Written({"pub", "a", BytesOf("xyz"), 1, 2}); }

TEST(FrameTest, BigEndianPutsTheHighByteFirst) {
  uint8_t bytes[4] = {};
  PutBe32(bytes, 0x01020304);
  EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(GetBe32(bytes), 0x01020304U);
  PutBe16(bytes, 0xFFFE);
  EXPECT_EQ(Bytes(bytes, bytes + 2), (Bytes{0xFF, 0xFE}));
  EXPECT_EQ(GetBe16(bytes), 0xFFFE);
}

TEST(FrameTest, LittleEndianPutsTheLowByteFirst) {
  uint8_t bytes[8] = {};
  PutLe64(bytes, 0xF102030405060708);
  EXPECT_EQ(Bytes(bytes, bytes + 8), (Bytes{8, 7, 6, 5, 4, 3, 2, 0xF1}));
  EXPECT_EQ(GetLe64(bytes), 0xF102030405060708U);
  PutLe32(bytes, 0xF1020304);
  EXPECT_EQ(GetLe32(bytes), 0xF1020304U);
  EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{4, 3, 2, 0xF1}));
  PutLe16(bytes, 0xFFFE);
  EXPECT_EQ(GetLe16(bytes), 0xFFFE);
  EXPECT_EQ(Bytes(bytes, bytes + 2), (Bytes{0xFE, 0xFF}));
}

TEST(FrameTest, TheOuterHeaderIsLittleEndian) {
  Bytes bytes(kZelHeaderSize, 0xEE);
  ZelHeader{0, 1, 0x0203, 0x04050607}.Write(bytes.data());
  EXPECT_EQ(bytes, (Bytes{0, 1, 3, 2, 7, 6, 5, 4}));
  const ZelHeader read = ZelHeader::Read(bytes.data());
  EXPECT_EQ(read.reserved, 0);
  EXPECT_EQ(read.version, 1);
  EXPECT_EQ(read.port, 0x0203);
  EXPECT_EQ(read.nMsgLen, 0x04050607U);
}

TEST(FrameTest, TheInnerHeaderIsBigEndian) {
  Bytes bytes(kZoeHeaderSize, 0xEE);
  ZoeHeader{0x01020304, 0x05060708, 0x090A}.Write(bytes.data());
  EXPECT_EQ(bytes, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0, 0, 0}));
  const auto read = ZoeHeader::Read(bytes);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->error, 0x01020304U);
  EXPECT_EQ(read->invokeId, 0x05060708U);
  EXPECT_EQ(read->Cmd, 0x090A);
}

TEST(FrameTest, AnInnerHeaderNeeds13Bytes) {
  const Bytes bytes(kZoeHeaderSize);
  for (size_t size = 0; size < kZoeHeaderSize; ++size)
    EXPECT_FALSE(ZoeHeader::Read({bytes.data(), size})) << size;
  EXPECT_TRUE(ZoeHeader::Read(bytes));
}

TEST(FrameTest, ARequestHasItsHeadersAndAddressInFront) {
  Bytes bytes(kRequestOverhead, 0xEE);
  WriteRequestHead(bytes.data(), 103, 0x01020304, {0x11121314, 0x21222324}, 42);
  EXPECT_EQ(bytes, (Bytes{0,    1,    103,  0,    63,   0,    0,    0,          // outer header
                          0,    0,    0,    0,    1,    2,    3,    4,   0, 9,  // error, identifier, command
                          0,    0,    0,                                        // reserved
                          0x11, 0x12, 0x13, 0x14, 0x21, 0x22, 0x23, 0x24}));
}

TEST(FrameTest, AnEmptyRequestAnnounces21Bytes) {
  EXPECT_EQ(kRequestOverhead, 29U);
  Bytes bytes(kRequestOverhead);
  WriteRequestHead(bytes.data(), 600, 1, {}, 0);
  EXPECT_EQ(ZelHeader::Read(bytes.data()).nMsgLen, 21U);
}

TEST(FrameTest, ATopicRecordIsWritten) {
  EXPECT_EQ(Example(), (Bytes{3,   0,   0,   0, 0,   0, 0,   0,            //
                              1,   0,   0,   0, 0,   0, 0,   0,            //
                              3,   0,   0,   0, 0,   0, 0,   0,            //
                              'p', 'u', 'b', 0, 'a', 0, 'x', 'y', 'z', 0,  //
                              1,   0,   0,   0, 2,   0, 0,   0}));
}

TEST(FrameTest, AnEmptyTopicRecordHas35Bytes) { EXPECT_EQ(Written({}).size(), 35U); }

TEST(FrameTest, ATopicRecordIsReadBack) {
  const Bytes bytes = Example();
  const auto record = ReadTopicRecord(bytes);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->verb, "pub");
  EXPECT_EQ(record->topic, "a");
  EXPECT_EQ(Bytes(record->data.begin(), record->data.end()), (Bytes{'x', 'y', 'z'}));
  EXPECT_EQ(record->IdGroup, 1U);
  EXPECT_EQ(record->IdOffset, 2U);
}

TEST(FrameTest, TextsEndAtTheirFirstNulButDataDoesNot) {
  using namespace std::string_view_literals;
  const Bytes bytes = Written({"p\0b"sv, "\0"sv, BytesOf("\0x\0"sv), 0, 0});
  const auto record = ReadTopicRecord(bytes);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->verb, "p");
  EXPECT_EQ(record->topic, "");
  EXPECT_EQ(Bytes(record->data.begin(), record->data.end()), (Bytes{0, 'x', 0}));
}

TEST(FrameTest, ARecordThatEndsBetweenFieldsLeavesTheRestEmpty) {
  const Bytes bytes = Example();
  for (const size_t size : {0U, 8U, 16U, 24U, 28U, 30U, 34U, 38U, 42U}) {
    const auto record = ReadTopicRecord({bytes.data(), size});
    ASSERT_TRUE(record) << size;
    EXPECT_EQ(record->verb, size >= 28 ? "pub" : "") << size;
    EXPECT_EQ(record->topic, size >= 30 ? "a" : "") << size;
    EXPECT_EQ(record->data.size(), size >= 34 ? 3U : 0U) << size;
    EXPECT_EQ(record->IdGroup, size >= 38 ? 1U : 0U) << size;
    EXPECT_EQ(record->IdOffset, size >= 42 ? 2U : 0U) << size;
  }
}

TEST(FrameTest, ARecordThatEndsInsideAFieldIsRefused) {
  const Bytes bytes = Example();
  for (size_t size = 0; size < bytes.size(); ++size) {
    const bool between = size == 0 || size == 8 || size == 16 || size == 24 || size == 28 || size == 30 ||
                         size == 34 || size == 38;
    // A copy of just that size, so that a reader that goes too far is seen.
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_EQ(ReadTopicRecord(cut).has_value(), between) << size;
  }
}

TEST(FrameTest, BytesBehindARecordAreIgnored) {
  Bytes bytes = Example();
  bytes.insert(bytes.end(), 100, 0xFF);
  const auto record = ReadTopicRecord(bytes);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->IdOffset, 2U);
}

TEST(FrameTest, LengthsBeyondTheMessageAreRefused) {
  for (const uint64_t length : {uint64_t{18}, uint64_t{42}, uint64_t{0x7FFFFFFF}, uint64_t{0xFFFFFFFF},
                                uint64_t{1} << 63, ~uint64_t{0}, ~uint64_t{0} - 1, ~uint64_t{0} - 23,
                                ~uint64_t{0} - 24, ~uint64_t{0} - 25, ~uint64_t{0} - 41}) {
    for (const size_t field : {0U, 8U, 16U}) {
      Bytes bytes = Example();
      PutLe64(bytes.data() + field, length);
      EXPECT_FALSE(ReadTopicRecord(bytes)) << field << ": " << length;
    }
  }
}

TEST(FrameTest, LengthsThatOverflowTogetherAreRefused) {
  Bytes bytes = Example();
  PutLe64(bytes.data(), uint64_t{1} << 63);
  PutLe64(bytes.data() + 8, uint64_t{1} << 63);
  PutLe64(bytes.data() + 16, 7);
  EXPECT_FALSE(ReadTopicRecord(bytes));
}

TEST(FrameTest, ADataLengthOneTooLongIsRefused) {
  const Bytes whole = Written({"pub", "a", BytesOf("xyz"), 0, 0});
  Bytes bytes(whole.begin(), whole.begin() + 34);  // ends with the data's NUL
  ASSERT_TRUE(ReadTopicRecord(bytes));
  PutLe64(bytes.data() + 16, 4);
  EXPECT_FALSE(ReadTopicRecord(bytes));
}

}  // namespace
}  // namespace libzel
