// LIBZELX_HEADER_WAIT_MS, LIBZELX_BODY_WAIT_MS and LIBZELX_MAX_BODY: which frames are waited
// for, and which are taken.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <thread>

#include "support/Asking.h"
#include "support/CapturedLog.h"
#include "support/OptionLink.h"

namespace zeltest {
namespace {

constexpr int64_t kPatientMs = 30000;
constexpr int64_t kShortSilenceMs = 200;

// ---- Headers ----------------------------------------------------------------------------------------------

class HeaderWaitTest : public OptionLinkTest, public testing::WithParamInterface<size_t> {
 protected:
  HeaderWaitTest() {
    chosen.Set(LIBZELX_HEADER_WAIT_MS, kPatientMs);
    letter.Start();
    chosen.Start();
  }

  const CapturedLog log;
  const Bytes frame = Message(0, 600, Text("hello"));
};

TEST_F(HeaderWaitTest, ByTheLetterAHeaderWithAGapIsLostAndTheLinkWithIt) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 3).first));
  EXPECT_TRUE(letter.AwaitEvent5());
  EXPECT_EQ(letter.seen.Count(), 0U);
}

TEST_P(HeaderWaitTest, AHeaderIsWaitedFor) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 3).first));
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, GetParam()).first));
  EXPECT_TRUE(letter.AwaitEvent5());
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, GetParam()).second));
  EXPECT_TRUE(chosen.Delivers(Text("hello")));
}

INSTANTIATE_TEST_SUITE_P(Cuts, HeaderWaitTest, testing::Range<size_t>(1, 8));

TEST_F(HeaderWaitTest, BytesFarApartMakeAFrame) {
  chosen.Set(LIBZELX_BODY_WAIT_MS, kPatientMs);
  for (const uint8_t byte : frame) {
    EXPECT_TRUE(chosen.peer.Send({byte}));
    EXPECT_FALSE(chosen.peer.HasInput(30));  // longer than a gap by the letter
  }
  EXPECT_TRUE(chosen.Delivers(Text("hello")));
}

TEST_F(HeaderWaitTest, AFrameBehindIsReadAsOne) {
  const auto [begin, rest] = SplitAt(frame, 5);
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 3).first));
  EXPECT_TRUE(chosen.peer.Send(Message(0, 600, Text("first")) + begin));
  EXPECT_TRUE(letter.AwaitEvent5());
  EXPECT_TRUE(chosen.peer.Send(rest + Message(0, 600, Text("last"))));
  EXPECT_TRUE(chosen.seen.Await(3));
  EXPECT_EQ(chosen.seen.All()[1].payload, Text("hello"));
  EXPECT_EQ(chosen.seen.All()[2].payload, Text("last"));
}

TEST_P(HeaderWaitTest, BehindTheSilenceTheLinkEndsWithEvent5) {
  chosen.Set(LIBZELX_HEADER_WAIT_MS, kShortSilenceMs);
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, GetParam()).first));
  EXPECT_TRUE(chosen.AwaitEvent5());
  EXPECT_EQ(FailureOf(chosen.instance), "receive from " + chosen.server.host() + ":9999: short header");
  EXPECT_EQ(StatsOf(chosen.instance).shortHeaders, 1U);
}

TEST_F(HeaderWaitTest, AStopDoesNotWaitForIt) {
  // What was sent to the one before has ended its link by the letter: this one is in the
  // middle of its header.
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 3).first));
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 3).first));
  EXPECT_TRUE(letter.AwaitEvent5());
  const ElapsedTime time;
  EXPECT_EQ(libzel_loop_stop(chosen.instance), 0);
  EXPECT_LT(time.AwakeMs(), 1000);
  chosen.Start();
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 3).second));
  EXPECT_TRUE(chosen.Delivers(Text("hello")));
}

TEST_F(HeaderWaitTest, ARequestEndsInTimeMeanwhile) {
  OutcomeRecorder outcomes;
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 3).first));
  EXPECT_EQ(AskAsync(chosen.instance, RequestTo(700, {}, kShortMs), outcomes), ZEL_OK);
  EXPECT_TRUE(outcomes.Await(1));
  EXPECT_EQ(outcomes.All()[0].out.result, ZEL_E_TIMEOUT);
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 3).second));
  EXPECT_TRUE(chosen.Delivers(Text("hello")));
}

// ---- Bodies -----------------------------------------------------------------------------------------------

class BodyWaitTest : public OptionLinkTest {
 protected:
  BodyWaitTest() {
    chosen.Set(LIBZELX_BODY_WAIT_MS, kPatientMs);
    letter.Start();
    chosen.Start();
  }
  bool LetterHasLostIt() const {
    return log.Await("ERROR", "recv size!=header.nMsgLen:100,but recv size:50");
  }

  const CapturedLog log;
  const Bytes payload = Bytes(100, 0xFF);
  const Bytes frame = Message(0, 600, payload);
};

TEST_F(BodyWaitTest, ByTheLetterABodyThatTakesMoreThanASecondIsLostAndTheLinkWithIt) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(LetterHasLostIt());
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 58).second));
  EXPECT_TRUE(letter.AwaitEvent5());
  EXPECT_EQ(letter.seen.Count(), 0U);
}

TEST_F(BodyWaitTest, ABodyIsWaitedFor) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(LetterHasLostIt());
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).second));
  EXPECT_TRUE(chosen.Delivers(payload));
}

TEST_F(BodyWaitTest, ABodyOfWhichNothingHasComeIsWaitedFor) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 8).first));
  EXPECT_TRUE(LetterHasLostIt());
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 8).second));
  EXPECT_TRUE(chosen.Delivers(payload));
}

TEST_F(BodyWaitTest, OnlySilenceCounts) {
  chosen.Set(LIBZELX_BODY_WAIT_MS, 1000);
  const ElapsedTime time;
  EXPECT_TRUE(chosen.peer.Send(OuterHeader(0, 600, 100)));
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(chosen.peer.Send({0xFF}));
    EXPECT_FALSE(chosen.peer.HasInput(20));
  }
  EXPECT_GT(time.Ms(), 1500);
  EXPECT_TRUE(chosen.Delivers(payload));
}

TEST_F(BodyWaitTest, BehindTheSilenceTheLinkEndsWithEvent5) {
  chosen.Set(LIBZELX_BODY_WAIT_MS, kShortSilenceMs);
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(chosen.AwaitEvent5());
  EXPECT_EQ(FailureOf(chosen.instance), "receive from " + chosen.server.host() + ":9999: short body");
  EXPECT_EQ(StatsOf(chosen.instance).shortBodies, 1U);
}

TEST_F(BodyWaitTest, WhatComesInPiecesIsCountedOnce) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).first));
  EXPECT_TRUE(LetterHasLostIt());
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).second));
  EXPECT_TRUE(chosen.Delivers(payload));
  EXPECT_EQ(StatsOf(chosen.instance).framesIn, 1U);
  EXPECT_EQ(StatsOf(chosen.instance).bytesIn, frame.size());
}

TEST_F(BodyWaitTest, AnEndInsideABodyEndsTheLink) {
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).first));
  chosen.peer.Close();
  EXPECT_TRUE(chosen.AwaitEvent5());
  EXPECT_EQ(chosen.seen.Count(), 0U);
}

TEST_F(BodyWaitTest, AReleaseInsideABodyIsPrompt) {
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 58).first));
  const ElapsedTime time;
  chosen.link.instance.Release();
  EXPECT_LT(time.AwakeMs(), 1000);
}

// ---- The synchronous receive ------------------------------------------------------------------------------

class SyncSilenceTest : public OptionLinkTest, public testing::WithParamInterface<size_t> {
 protected:
  SyncSilenceTest() {
    chosen.Set(LIBZELX_HEADER_WAIT_MS, kPatientMs);
    chosen.Set(LIBZELX_BODY_WAIT_MS, kPatientMs);
    for (OptionLink* one : {&letter, &chosen}) {
      EXPECT_GT(one->link.instance.Send(600, Text("ask")), 0);
      EXPECT_TRUE(one->peer.ReadRequest().whole);
    }
  }

  Bytes buffer = Bytes(64);
  const Bytes answer = Answer(600, 1, Text("hello"));
};

TEST_F(SyncSilenceTest, ByTheLetterATimeOutInsideAnAnswerLosesIt) {
  EXPECT_TRUE(letter.peer.Send(SplitAt(answer, 3).first));
  EXPECT_EQ(letter.link.instance.Receive(buffer, kShortMs), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_TRUE(letter.peer.Send(SplitAt(answer, 3).second));
  EXPECT_NE(letter.link.instance.Receive(buffer, kShortMs), 5);
}

TEST_P(SyncSilenceTest, ATimeOutInsideAnAnswerLosesNothing) {
  EXPECT_TRUE(chosen.peer.Send(SplitAt(answer, GetParam()).first));
  EXPECT_EQ(chosen.link.instance.Receive(buffer, kShortMs), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  EXPECT_TRUE(chosen.peer.Send(SplitAt(answer, GetParam()).second));
  EXPECT_EQ(chosen.link.instance.Receive(buffer), 5);
  EXPECT_EQ(libzel_get_errno(), 0);
}

INSTANTIATE_TEST_SUITE_P(Cuts, SyncSilenceTest, testing::Values(1, 4, 5, 7, 8, 9, 20, 25));

TEST_F(SyncSilenceTest, TheReceiveThreadGoesOnWithIt) {
  const Bytes frame = Message(0, 600, Text("hello"));
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 10).first));
  EXPECT_EQ(chosen.link.instance.Receive(buffer, kShortMs), -1);
  chosen.Start();
  EXPECT_TRUE(chosen.peer.Send(SplitAt(frame, 10).second));
  EXPECT_TRUE(chosen.Delivers(Text("hello")));
}

TEST_F(SyncSilenceTest, BehindTheSilenceTheLinkEndsWithEvent5) {
  chosen.Set(LIBZELX_HEADER_WAIT_MS, kShortSilenceMs);
  EXPECT_TRUE(chosen.peer.Send(SplitAt(answer, 3).first));
  EXPECT_EQ(chosen.link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_EQ(chosen.events(), (EventNumbers{2, 1, 5}));
}

// ---- The longest body -------------------------------------------------------------------------------------

class MaxBodyTest : public OptionLinkTest {
 protected:
  static constexpr int64_t kMost = 1000;

  MaxBodyTest() { chosen.Set(LIBZELX_MAX_BODY, kMost); }
  static Bytes FrameOf(size_t size) { return Message(0, 600, Bytes(size, 'x')); }
};

TEST_F(MaxBodyTest, ByTheLetterALongerOneIsTaken) {
  letter.Start();
  EXPECT_TRUE(letter.peer.Send(FrameOf(kMost + 1)));
  EXPECT_TRUE(letter.Delivers(Bytes(kMost + 1, 'x')));
}

TEST_F(MaxBodyTest, TheLongestIsTaken) {
  chosen.Start();
  EXPECT_TRUE(chosen.peer.Send(FrameOf(kMost)));
  EXPECT_TRUE(chosen.Delivers(Bytes(kMost, 'x')));
}

TEST_F(MaxBodyTest, ALongerOneEndsTheLinkWithEvent5) {
  chosen.Start();
  EXPECT_TRUE(chosen.peer.Send(FrameOf(kMost + 1)));
  EXPECT_TRUE(chosen.AwaitEvent5());
  EXPECT_EQ(FailureOf(chosen.instance), "receive from " + chosen.server.host() + ":9999: bad length 1001");
  EXPECT_EQ(chosen.seen.Count(), 0U);
}

TEST_F(MaxBodyTest, ByTheLetterASynchronousReceiveTakesAnyLength) {
  Bytes buffer(10485760);
  std::thread sender([this] { EXPECT_TRUE(letter.peer.Send(FrameOf(10485760))); });
  EXPECT_EQ(letter.link.instance.Receive(buffer), 10485760);
  sender.join();
}

TEST_F(MaxBodyTest, ALongerOneEndsTheLinkOfASynchronousReceive) {
  Bytes buffer(64);
  EXPECT_TRUE(chosen.peer.Send(OuterHeader(0, 600, kMost + 1)));
  EXPECT_EQ(chosen.link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_EQ(chosen.events(), (EventNumbers{2, 1, 5}));
}

TEST_F(MaxBodyTest, ALongerAnswerIsTakenByNobody) {
  OutcomeRecorder outcomes;
  EXPECT_EQ(AskAsync(chosen.instance, 600, outcomes), ZEL_OK);
  const Request request = chosen.peer.ReadRequest();
  EXPECT_TRUE(chosen.peer.Send(Answer(600, request.invokeId, Bytes(kMost, 'x'))));
  EXPECT_TRUE(outcomes.Await(1));
  EXPECT_EQ(outcomes.All()[0].out.result, ZEL_E_DISCONNECTED);
}

}  // namespace
}  // namespace zeltest
