#include "FrameReader.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Support.h"

namespace zelsim {
namespace {

using Status = FrameReader::Status;

void Feed(FrameReader& reader, ByteView bytes) {
  while (!bytes.empty()) {
    const auto space = reader.Space();
    const size_t count = std::min(space.size(), bytes.size());
    std::copy_n(bytes.begin(), count, space.begin());
    reader.Commit(count);
    bytes = bytes.subspan(count);
  }
}

TEST(FrameReader, FindsAFrameFedByteByByte) {
  const Bytes bytes = test::BuildRequest({.payload = test::FromText("hello")});
  FrameReader reader;
  for (size_t i = 0; i + 1 < bytes.size(); ++i) {
    Feed(reader, ByteView(bytes).subspan(i, 1));
    ASSERT_EQ(reader.Next(), Status::kNeedMore) << i;
  }
  Feed(reader, ByteView(bytes).last(1));
  ASSERT_EQ(reader.Next(), Status::kFrame);
  EXPECT_EQ(reader.CurrentBody().size(), 26u);
  EXPECT_FALSE(reader.HasMore());
}

TEST(FrameReader, FindsEveryFrameOfOneRead) {
  const Bytes one = test::BuildRequest({.invokeId = 1});
  FrameReader reader;
  Feed(reader, test::Join({one, one, Bytes{0, 1}}));
  EXPECT_EQ(reader.Next(), Status::kFrame);
  EXPECT_TRUE(reader.HasMore());
  EXPECT_EQ(reader.Next(), Status::kFrame);
  EXPECT_EQ(reader.Next(), Status::kNeedMore);
}

TEST(FrameReader, RefusesLengthZeroAndTooMuch) {
  for (const uint32_t length : {0u, kMaxBody + 1, 0xFFFFFFFFu}) {
    Bytes bytes(8);
    WriteHeader(bytes.data(), {.version = 1, .port = 1, .bodyLength = length});
    FrameReader reader;
    Feed(reader, bytes);
    EXPECT_EQ(reader.Next(), Status::kBadLength) << length;
  }
}

TEST(FrameReader, DoesNotAllocateWhatAHeaderAnnounces) {
  Bytes bytes(8);
  WriteHeader(bytes.data(), {.version = 1, .port = 1, .bodyLength = kMaxBody});
  FrameReader reader;
  Feed(reader, bytes);
  EXPECT_EQ(reader.Next(), Status::kNeedMore);
  EXPECT_LT(reader.Space().size(), 1024u * 1024);
}

TEST(FrameReader, TakesTheLargestFrame) {
  const Bytes bytes = test::BuildRequest({.payload = Bytes(kMaxBody - 21, 0x5A)});
  FrameReader reader;
  Feed(reader, bytes);
  ASSERT_EQ(reader.Next(), Status::kFrame);
  EXPECT_EQ(reader.CurrentBody().size(), kMaxBody);
  EXPECT_EQ(reader.CurrentBody().back(), 0x5A);
}

}  // namespace
}  // namespace zelsim
