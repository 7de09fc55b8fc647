#include "zelcomm/FrameBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace libzel {
namespace {

std::string ContentOf(const FrameBuffer& buffer) {
  return {buffer.content().begin(), buffer.content().end()};
}

void Prepend(FrameBuffer& buffer, const std::string& text) {
  buffer.prepend(reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size()));
}

TEST(FrameBufferTest, StartsEmpty) {
  const FrameBuffer buffer(10);
  EXPECT_EQ(buffer.capacity(), 10U);
  EXPECT_EQ(buffer.length(), 0U);
  EXPECT_TRUE(buffer.content().empty());
}

TEST(FrameBufferTest, StartsWithACopyOfItsInitialBytes) {
  std::string text = "abc";
  FrameBuffer buffer(3, reinterpret_cast<const uint8_t*>(text.data()));
  text = "xyz";
  EXPECT_EQ(ContentOf(buffer), "abc");
  EXPECT_EQ(buffer.capacity(), 3U);
  EXPECT_EQ(buffer.begin(), buffer.block());
}

TEST(FrameBufferTest, GrowsTowardsTheFront) {
  FrameBuffer buffer(8);
  Prepend(buffer, "load");
  EXPECT_EQ(buffer.begin(), buffer.block() + 4);
  Prepend(buffer, "head");
  EXPECT_EQ(ContentOf(buffer), "headload");
  EXPECT_EQ(buffer.capacity(), 8U);
  EXPECT_EQ(buffer.begin(), buffer.block());
}

TEST(FrameBufferTest, GetsRoomForWhatDoesNotFit) {
  FrameBuffer buffer(6);
  Prepend(buffer, "load");
  Prepend(buffer, "head");
  EXPECT_EQ(ContentOf(buffer), "headload");
  EXPECT_EQ(buffer.capacity(), 10U);
  EXPECT_EQ(buffer.length(), 8U);
  EXPECT_EQ(buffer.begin(), buffer.block() + 2);
  Prepend(buffer, "ab");
  EXPECT_EQ(ContentOf(buffer), "abheadload");
  EXPECT_EQ(buffer.capacity(), 10U);
}

TEST(FrameBufferTest, AFullBufferGrowsByWhatIsPrepended) {
  FrameBuffer buffer(1, reinterpret_cast<const uint8_t*>("c"));
  Prepend(buffer, "b");
  EXPECT_EQ(buffer.capacity(), 2U);
  Prepend(buffer, "a");
  EXPECT_EQ(buffer.capacity(), 3U);
  EXPECT_EQ(ContentOf(buffer), "abc");
}

TEST(FrameBufferTest, AnEmptyBlockGrowsToo) {
  FrameBuffer buffer(0);
  EXPECT_EQ(buffer.capacity(), 0U);
  Prepend(buffer, "");
  EXPECT_EQ(buffer.length(), 0U);
  Prepend(buffer, "abc");
  EXPECT_EQ(ContentOf(buffer), "abc");
}

TEST(FrameBufferTest, ManyPrependsKeepEveryByte) {
  FrameBuffer buffer(3);
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    const std::string piece(static_cast<size_t>(i % 7), static_cast<char>('a' + i % 26));
    Prepend(buffer, piece);
    expected.insert(0, piece);
  }
  EXPECT_EQ(ContentOf(buffer), expected);
  EXPECT_EQ(buffer.length(), expected.size());
}

}  // namespace
}  // namespace libzel
