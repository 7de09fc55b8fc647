#include "Frame.h"

#include <gtest/gtest.h>

#include "Support.h"

namespace zelsim {
namespace {

TEST(Frame, HeaderIsLittleEndian) {
  const Bytes bytes{0, 1, 0x65, 0x00, 0x15, 0x02, 0x00, 0x01};
  const Header header = ReadHeader(bytes);
  EXPECT_EQ(header.version, 1);
  EXPECT_EQ(header.port, 101);
  EXPECT_EQ(header.bodyLength, 0x01000215u);
}

TEST(Frame, RequestBodyIsBigEndian) {
  const Bytes bytes = test::BuildRequest({.port = 600,
                                          .invokeId = 0x01020304,
                                          .payload = {7, 8},
                                          .idGroup = 0x1000,
                                          .idOffset = 0x1001,
                                          .cmd = 2});
  const auto request = ParseRequest(ReadHeader(bytes), ByteView(bytes).subspan(8));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->port, 600);
  EXPECT_EQ(request->invokeId, 0x01020304u);
  EXPECT_EQ(request->cmd, 2);
  EXPECT_EQ(request->idGroup, 0x1000u);
  EXPECT_EQ(request->idOffset, 0x1001u);
  EXPECT_EQ(Bytes(request->payload.begin(), request->payload.end()), (Bytes{7, 8}));
}

TEST(Frame, RequestWithoutPayloadHasTwentyOneBodyBytes) {
  const Bytes body(21);
  const auto request = ParseRequest({.version = 1, .port = 1, .bodyLength = 21}, body);
  ASSERT_TRUE(request);
  EXPECT_TRUE(request->payload.empty());
}

TEST(Frame, ShorterRequestBodyIsRefused) {
  const Bytes body(20);
  EXPECT_FALSE(ParseRequest({.version = 1, .port = 1, .bodyLength = 20}, body));
}

TEST(Frame, RequestOfAnotherVersionIsRefused) {
  const Bytes body(21);
  EXPECT_FALSE(ParseRequest({.version = 0, .port = 1, .bodyLength = 21}, body));
  EXPECT_FALSE(ParseRequest({.version = 2, .port = 1, .bodyLength = 21}, body));
}

TEST(Frame, AnswerHasItsPayloadRightBehindTheInnerHeader) {
  const Bytes expected{0, 1, 0x58, 0x02, 15, 0, 0, 0, 0, 0,    0x10, 0x0A,
                       0, 0, 0,    9,    0,  2, 0, 0, 0, 0xAA, 0xBB};
  const Bytes payload{0xAA, 0xBB};
  EXPECT_EQ(EncodeAnswer({.port = 600, .error = 4106, .invokeId = 9, .cmd = 2}, payload), expected);
}

TEST(Frame, BareMessageIsHeaderAndPayload) {
  EXPECT_EQ(EncodeBare(600, Bytes{1, 2}), (Bytes{0, 0, 0x58, 0x02, 2, 0, 0, 0, 1, 2}));
}

}  // namespace
}  // namespace zelsim
