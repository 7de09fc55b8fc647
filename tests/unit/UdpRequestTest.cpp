#include "zelclient/UdpRequest.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/CapturedLog.h"
#include "support/Wire.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

const UdpRequest kRequest{10000, 9, {0x1001, 3}, {}};

TEST(UdpRequestTest, AnAnswerToAnotherRequestFillsTheBufferAllTheSame) {
  std::array<uint8_t, 6> answer{};
  const auto datagram = zeltest::Answer(10000, 8, {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(ReadUdpAnswer(datagram, kRequest, 7, answer), static_cast<uint32_t>(ZEL_E_INVOKE_ID));
  EXPECT_EQ(answer, (std::array<uint8_t, 6>{1, 2, 3, 4, 5, 6}));
}

TEST(UdpRequestTest, AnAnswersErrorLeavesTheBufferAlone) {
  std::array<uint8_t, 2> answer{9, 9};
  EXPECT_EQ(ReadUdpAnswer(zeltest::Answer(10000, 8, {1, 2}, 77), kRequest, 7, answer), 77U);
  EXPECT_EQ(answer, (std::array<uint8_t, 2>{9, 9}));
}

TEST(UdpRequestTest, AsMuchAsFitsIsCopied) {
  std::array<uint8_t, 3> answer{9, 9, 9};
  EXPECT_EQ(ReadUdpAnswer(zeltest::Answer(10000, 7, {1, 2}), kRequest, 7, answer), 0U);
  EXPECT_EQ(answer, (std::array<uint8_t, 3>{1, 2, 9}));
  EXPECT_EQ(ReadUdpAnswer(zeltest::Answer(10000, 7, {5, 6, 7, 8}), kRequest, 7, answer), 0U);
  EXPECT_EQ(answer, (std::array<uint8_t, 3>{5, 6, 7}));
}

TEST(UdpRequestTest, SuccessIsLoggedOneValueOutOfStep) {
  const zeltest::CapturedLog log;
  EXPECT_EQ(ReadUdpAnswer(zeltest::Answer(10000, 7, {}), kRequest, 7, {}), 0U);
  EXPECT_TRUE(log.Has("DEBUG", "CmdId:4097 success,IdGroup:3,IdOffset:3"));
}

}  // namespace
}  // namespace libzel
