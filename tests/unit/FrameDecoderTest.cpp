#include "zelcomm/FrameDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "support/Wire.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::Message;
using zeltest::OuterHeader;
using zeltest::Text;
using zeltest::operator+;
using Verdict = FrameDecoder::Verdict;

// Feeds the stream in pieces of at most `most` bytes until there is a verdict; gives the bytes taken.
size_t Feed(FrameDecoder& decoder, const Bytes& stream, size_t most) {
  size_t at = 0;
  while (decoder.verdict() == Verdict::kMore && at < stream.size()) {
    const auto room = decoder.Room();
    const size_t count = std::min({room.size(), most, stream.size() - at});
    std::copy_n(stream.begin() + static_cast<ptrdiff_t>(at), count, room.begin());
    decoder.Took(count);
    at += count;
  }
  return at;
}

Bytes BodyOf(const FrameView& frame) { return {frame.body.begin(), frame.body.end()}; }

TEST(FrameDecoderTest, GivesAFrameHoweverItsBytesCome) {
  const Bytes stream = Message(1, 600, Text("sixteen thousand")) + Message(0, 700, Text("next"));
  for (size_t most = 1; most <= stream.size(); ++most) {
    FrameDecoder decoder;
    decoder.Begin({});
    ASSERT_EQ(Feed(decoder, stream, most), 24U);
    ASSERT_EQ(decoder.verdict(), Verdict::kFrame);
    EXPECT_EQ(decoder.frame().header.port, 600);
    EXPECT_EQ(BodyOf(decoder.frame()), Text("sixteen thousand"));
  }
}

TEST(FrameDecoderTest, TakesNoByteOfTheNextFrame) {
  FrameDecoder decoder;
  decoder.Begin({});
  EXPECT_EQ(decoder.Room().size(), kZelHeaderSize);
  (void)Feed(decoder, OuterHeader(1, 600, 5), 8);
  EXPECT_EQ(decoder.Room().size(), 5U);
}

TEST(FrameDecoderTest, BeginsAnewWithEveryFrame) {
  FrameDecoder decoder;
  for (const char* text : {"a long body", "b", "and a longer one"}) {
    decoder.Begin({});
    (void)Feed(decoder, Message(0, 600, Text(text)), 3);
    EXPECT_EQ(BodyOf(decoder.frame()), Text(text));
  }
}

TEST(FrameDecoderTest, LengthOf0IsBad) {
  FrameDecoder decoder;
  decoder.Begin({});
  (void)Feed(decoder, OuterHeader(1, 600, 0), 8);
  EXPECT_EQ(decoder.verdict(), Verdict::kBadLength);
}

TEST(FrameDecoderTest, LengthAboveTheLimitIsBad) {
  for (const uint32_t length : {99U, 100U, 101U, UINT32_MAX}) {
    FrameDecoder decoder;
    decoder.Begin({.longestBody = 100});
    (void)Feed(decoder, OuterHeader(1, 600, length), 8);
    EXPECT_EQ(decoder.verdict(), length <= 100 ? Verdict::kMore : Verdict::kBadLength) << length;
  }
}

TEST(FrameDecoderTest, WithoutALimitEveryLengthIsGood) {
  FrameDecoder decoder;
  decoder.Begin({});
  (void)Feed(decoder, OuterHeader(1, 600, UINT32_MAX), 8);
  EXPECT_EQ(decoder.verdict(), Verdict::kMore);
}

TEST(FrameDecoderTest, HeaderThatStaysShortIsJudgedWithZeros) {
  const Bytes header = OuterHeader(1, 600, 0x00000102);
  for (size_t size = 1; size <= 7; ++size) {
    FrameDecoder decoder;
    decoder.Begin({.longestBody = kMaxReceivedBody});
    (void)Feed(decoder, Bytes(header.begin(), header.begin() + static_cast<ptrdiff_t>(size)), 8);
    EXPECT_EQ(decoder.verdict(), Verdict::kMore);
    decoder.EndHeader();
    EXPECT_EQ(decoder.verdict(), size <= 4 ? Verdict::kBadLength : Verdict::kMore) << size;
    EXPECT_EQ(decoder.headerSize(), size);
  }
}

TEST(FrameDecoderTest, BodyIsHeldUpToItsLimitAndReadToItsEnd) {
  Bytes body(100000);
  for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<uint8_t>(i * 7);
  FrameDecoder decoder;
  decoder.Begin({.heldBody = 1000});
  const Bytes stream = Message(0, 600, body);
  EXPECT_EQ(Feed(decoder, stream + Text("rest"), 5000), stream.size());
  EXPECT_EQ(decoder.verdict(), Verdict::kFrame);
  EXPECT_EQ(decoder.bodySize(), 100000U);
  EXPECT_EQ(BodyOf(decoder.frame()), Bytes(body.begin(), body.begin() + 1000));
}

TEST(FrameDecoderTest, BodyMayBeHeldNotAtAll) {
  FrameDecoder decoder;
  decoder.Begin({.heldBody = 0});
  (void)Feed(decoder, Message(0, 600, Bytes(50000)), 50000);
  EXPECT_EQ(decoder.verdict(), Verdict::kFrame);
  EXPECT_TRUE(decoder.frame().body.empty());
}

TEST(FrameDecoderTest, RoomGrowsWithWhatCameNotWithWhatIsAnnounced) {
  FrameDecoder decoder;
  decoder.Begin({});
  (void)Feed(decoder, OuterHeader(1, 600, 0xF0000000), 8);
  size_t came = 0;
  for (int i = 0; i < 8; ++i) {
    const size_t room = decoder.Room().size();
    EXPECT_LE(room, std::max(came, size_t{128} * 1024));
    decoder.Took(room);
    came += room;
  }
}

TEST(FrameDecoderTest, LongBodyKeepsItsBytesWhileItGrows) {
  Bytes body(700000);
  for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<uint8_t>(i * 31 + i / 251);
  FrameDecoder decoder;
  decoder.Begin({});
  (void)Feed(decoder, Message(0, 600, body), 60001);
  EXPECT_EQ(BodyOf(decoder.frame()), body);
}

TEST(FrameDecoderTest, WorksOnAfterATrim) {
  FrameDecoder decoder;
  decoder.Begin({});
  (void)Feed(decoder, Message(0, 600, Text("one")), 99);
  decoder.Trim();
  decoder.Begin({});
  (void)Feed(decoder, Message(0, 600, Text("two")), 99);
  EXPECT_EQ(BodyOf(decoder.frame()), Text("two"));
}

TEST(FrameDecoderTest, WholeFrameIsFoundWhereItLies) {
  const Bytes stream = Message(1, 600, Text("body")) + Bytes{9, 9};
  const auto frame = FrameDecoder::Whole(stream, 100);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->header.port, 600);
  EXPECT_EQ(frame->body.data(), stream.data() + kZelHeaderSize);
  EXPECT_EQ(frame->body.size(), 4U);
}

TEST(FrameDecoderTest, FrameThatIsNotAllThereIsNotWhole) {
  const Bytes stream = Message(1, 600, Text("body"));
  for (size_t size = 0; size < stream.size(); ++size) {
    EXPECT_FALSE(FrameDecoder::Whole(std::span(stream).first(size), 100)) << size;
  }
}

TEST(FrameDecoderTest, FrameOfABadLengthIsNotWhole) {
  EXPECT_FALSE(FrameDecoder::Whole(OuterHeader(1, 600, 0), 100));
  EXPECT_FALSE(FrameDecoder::Whole(Message(1, 600, Bytes(101)), 100));
  EXPECT_TRUE(FrameDecoder::Whole(Message(1, 600, Bytes(100)), 100));
}

}  // namespace
}  // namespace libzel
