#include "zelcomm/RequestFrame.h"

#include <gtest/gtest.h>

#include <string>

#include "support/Wire.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::Text;

Bytes Joined(std::span<const platform::ConstBytes> pieces) {
  Bytes bytes;
  for (const auto& piece : pieces) bytes.insert(bytes.end(), piece.begin(), piece.end());
  return bytes;
}

Bytes Expected(uint16_t port, uint32_t invokeId, const Bytes& payload, uint16_t command = 9) {
  using namespace zeltest;
  return Message(1, port, InnerHeader(0, invokeId, command) + Be(1, 4) + Be(2, 4) + payload);
}

TEST(RequestFrameTest, SmallOnesAreOnePiece) {
  const Bytes payload = Text("question");
  const platform::ConstBytes piece = payload;
  const RequestFrame frame(600, 7, {1, 2}, {&piece, 1});
  EXPECT_EQ(frame.pieces().size(), 1U);
  EXPECT_EQ(Joined(frame.pieces()), Expected(600, 7, payload));
}

TEST(RequestFrameTest, LargeOnesGoOutFromWhereTheyAre) {
  const Bytes payload(100000, 'x');
  const platform::ConstBytes piece = payload;
  const RequestFrame frame(600, 7, {1, 2}, {&piece, 1}, 0x1234);
  ASSERT_EQ(frame.pieces().size(), 2U);
  EXPECT_EQ(frame.pieces()[1].data(), payload.data());
  EXPECT_EQ(Joined(frame.pieces()), Expected(600, 7, payload, 0x1234));
}

// Around the size up to which a frame is copied.
TEST(RequestFrameTest, EverySizeHasTheSameBytes) {
  for (size_t size = 8100; size < 8260; ++size) {
    const Bytes payload(size, 'x');
    const platform::ConstBytes piece = payload;
    ASSERT_EQ(Joined(RequestFrame(600, 7, {1, 2}, {&piece, 1}).pieces()), Expected(600, 7, payload)) << size;
  }
}

TEST(RequestFrameTest, TakesAnEmptyPayload) {
  const platform::ConstBytes none;
  EXPECT_EQ(Joined(RequestFrame(600, 7, {1, 2}, {&none, 1}).pieces()), Expected(600, 7, {}));
}

TEST(TopicRecordPiecesTest, AreTheRecord) {
  const Bytes data = Text("data");
  for (const size_t length : {size_t{1}, size_t{400}, size_t{500}, size_t{5000}}) {
    const std::string topic(length, 't');
    const TopicRecordPieces pieces(TopicRecord{"pub", topic, data, 3, 4});
    EXPECT_EQ(Joined(pieces.pieces()), zeltest::Record("pub", topic, data, 3, 4)) << length;
  }
}

}  // namespace
}  // namespace libzel
