// Requests one after the other, whose callers read the stream themselves after a while: long answers, and what may end
// them.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <thread>

#include "support/AskFixture.h"

namespace zeltest {
namespace {

constexpr size_t kLong = 300000;

Bytes LongAnswer(uint8_t seed) {
  Bytes bytes(kLong);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>((i * 7 >> 3) + seed);
  return bytes;
}

class AskInTurnTest : public AskFixture {
 protected:
  AskInTurnTest() {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    constexpr int kRequests = 30;
    std::thread serving([this] {
      for (int i = 0; i < kRequests; ++i) (void)peer.Serve(Text("x"));
    });
    for (int i = 0; i < kRequests; ++i) EXPECT_EQ(Ask(instance, 600).result, 0);
    serving.join();
  }

  // Reads a request and sends the first half of its long answer.
  void AnswerHalf() {
    const Bytes answer = Answer(600, peer.ReadRequest().invokeId, LongAnswer(1));
    EXPECT_TRUE(peer.Send({answer.begin(), answer.begin() + kLong / 2}));
  }
};

TEST_F(AskInTurnTest, LongAnswersComeWhole) {
  constexpr int kRequests = 40;
  std::thread serving([this] {
    for (int i = 0; i < kRequests; ++i) (void)peer.Serve(LongAnswer(static_cast<uint8_t>(i)));
  });
  for (int i = 0; i < kRequests; ++i) {
    const Asked asked = Ask(instance, RequestTo(600), kLong);
    ASSERT_EQ(asked.result, 0) << i;
    ASSERT_TRUE(asked.answer == LongAnswer(static_cast<uint8_t>(i))) << i;
  }
  serving.join();
}

TEST_F(AskInTurnTest, AnswerThatIsBehindALongOneOfAnothersFindsItsRequest) {
  const OngoingAsk first(instance, RequestTo(600), kLong);
  const uint32_t one = peer.ReadRequest().invokeId;
  const OngoingAsk second(instance, RequestTo(600));
  const uint32_t two = peer.ReadRequest().invokeId;
  EXPECT_TRUE(peer.Send(Answer(600, one, LongAnswer(1)) + Answer(600, two, Text("two"))));
  EXPECT_TRUE(first.Get().answer == LongAnswer(1));
  EXPECT_EQ(second.Get().answer, Text("two"));
}

TEST_F(AskInTurnTest, LinkThatEndsInALongAnswerEndsTheRequestAtOnce) {
  const ElapsedTime time;
  const OngoingAsk ask(instance, RequestTo(600));
  AnswerHalf();
  peer.Close();
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(AskInTurnTest, LongAnswerThatStopsIsCountedAndTakesNoMoreThanTheTime) {
  const ElapsedTime time;
  const OngoingAsk ask(instance, RequestTo(600, {}, 1500));
  AnswerHalf();
  EXPECT_EQ(ask.Get().result, ZEL_E_TIMEOUT);
  EXPECT_LT(time.AwakeMs(), 4000);
  EXPECT_EQ(StatsOf(instance).shortBodies, 1U);
}

TEST_F(AskInTurnTest, ShortTimeIsNotLengthenedByALongAnswer) {
  const ElapsedTime time;
  const OngoingAsk ask(instance, RequestTo(600, {}, 200));
  AnswerHalf();
  EXPECT_EQ(ask.Get().result, ZEL_E_TIMEOUT);
  EXPECT_LT(time.AwakeMs(), 900);
}

TEST_F(AskInTurnTest, ReleaseEndsAWaitForTheRestOfALongAnswer) {
  const OngoingAsk ask(instance, RequestTo(600));
  AnswerHalf();
  const ElapsedTime time;
  link.instance.Release();
  EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
  EXPECT_LT(time.AwakeMs(), 800);
}

}  // namespace
}  // namespace zeltest
