// Requests one after the other, whose callers read the stream themselves after a while: long answers, and
// what may end them.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <algorithm>
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

  void ExpectLongAnswers() {
    constexpr int kRequests = 40;
    std::thread serving([this] {
      for (int i = 0; i < kRequests; ++i) (void)peer.Serve(LongAnswer(static_cast<uint8_t>(i)));
    });
    for (int i = 0; i < kRequests; ++i) {
      const Asked asked = Ask(instance, RequestTo(600), kLong);
      EXPECT_EQ(asked.result, 0) << i;
      EXPECT_TRUE(asked.answer == LongAnswer(static_cast<uint8_t>(i))) << i;
    }
    serving.join();
  }

  // Reads a request and sends the first half of its long answer.
  void AnswerHalf() {
    const Bytes answer = Answer(600, peer.ReadRequest().invokeId, LongAnswer(1));
    EXPECT_TRUE(peer.Send({answer.begin(), answer.begin() + kLong / 2}));
  }
};

TEST_F(AskInTurnTest, LongAnswersComeWhole) { ExpectLongAnswers(); }

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

// ---- Where silence alone ends a body ----------------------------------------------------------------------

class PatientAskInTurnTest : public AskInTurnTest {
 protected:
  PatientAskInTurnTest() { EXPECT_EQ(libzelx_setOption(instance, LIBZELX_BODY_WAIT_MS, 30000), 0); }
};

TEST_F(PatientAskInTurnTest, LongAnswersComeWhole) { ExpectLongAnswers(); }

TEST_F(PatientAskInTurnTest, RestOfALongAnswerMayComeLater) {
  const OngoingAsk ask(instance, RequestTo(600), kLong);
  const Bytes answer = Answer(600, peer.ReadRequest().invokeId, LongAnswer(1));
  for (size_t i = 0; i < answer.size(); i += 50000) {
    std::this_thread::sleep_for(
        std::chrono::milliseconds(60));  // longer than a caller keeps the turn to read
    EXPECT_TRUE(
        peer.Send({answer.begin() + static_cast<std::ptrdiff_t>(i),
                   answer.begin() + static_cast<std::ptrdiff_t>(std::min(i + 50000, answer.size()))}));
  }
  EXPECT_TRUE(ask.Get().answer == LongAnswer(1));
}

TEST_F(PatientAskInTurnTest, ATimeoutLeavesTheFramingWhole) {
  uint32_t invokeId = 0;
  {
    const OngoingAsk ask(instance, RequestTo(600, {}, 200));
    invokeId = peer.ReadRequest().invokeId;
    const Bytes answer = Answer(600, invokeId, LongAnswer(1));
    EXPECT_TRUE(peer.Send({answer.begin(), answer.begin() + kLong / 2}));
    EXPECT_EQ(ask.Get().result, ZEL_E_TIMEOUT);
    EXPECT_TRUE(peer.Send({answer.begin() + kLong / 2, answer.end()}));
  }
  const OngoingAsk next(instance, RequestTo(600));
  (void)peer.Serve(Text("next"));
  EXPECT_EQ(next.Get().answer, Text("next"));
  EXPECT_EQ(StatsOf(instance).lateAnswers, 1U);
}

}  // namespace
}  // namespace zeltest
