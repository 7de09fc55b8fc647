// Requests that end without an answer, and the threads that may ask.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/AskFixture.h"

namespace zeltest {
namespace {

class AskEndsTest : public AskFixture {};

// ---- Time-outs --------------------------------------------------------------------------------------------

TEST_F(AskEndsTest, NoAnswerInTimeIs4104) {
  const ElapsedTime time;
  const Asked asked = Ask(instance, 600, {}, kShortMs);
  EXPECT_GE(time.Ms(), kShortMs - 1);
  EXPECT_LT(time.AwakeMs(), 3000);
  EXPECT_EQ(asked.result, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.error, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.out.result, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.out.maySent, 1U);
}

TEST_F(AskEndsTest, LinkStaysAfterATimeout) {
  EXPECT_EQ(Ask(instance, 600, {}, 20).result, ZEL_E_TIMEOUT);
  EXPECT_TRUE(peer.ReadRequest().whole);
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(AskEndsTest, TimeoutOf0SendsAndDoesNotWait) {
  const ElapsedTime time;
  const Asked asked = Ask(instance, 600, Text("x"), 0);
  EXPECT_LT(time.AwakeMs(), 1000);
  EXPECT_EQ(asked.result, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.out.maySent, 1U);
  EXPECT_EQ(peer.ReadRequest().payload, Text("x"));
}

TEST_F(AskEndsTest, AnswersOfOthersDoNotLengthenTheWait) {
  std::atomic<bool> done{false};
  std::thread others([&] {
    while (!done && peer.Send(Answer(600, 0x7FFFFFFF, Bytes(100)))) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  const ElapsedTime time;
  EXPECT_EQ(Ask(instance, 600, {}, kShortMs).result, ZEL_E_TIMEOUT);
  EXPECT_LT(time.AwakeMs(), 3000);
  done = true;
  others.join();
}

// ---- A peer that does not read ----------------------------------------------------------------------------

TEST_F(AskEndsTest, OwnFrameHalfWrittenIs4104AndMayBeSent) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  const Asked asked = Ask(instance, 600, Huge(), kShortMs);
  EXPECT_EQ(asked.result, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.out.result, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.out.maySent, 1U);
}

TEST_F(AskEndsTest, OwnFrameHalfWrittenDropsTheLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  (void)Ask(instance, 600, Huge(), kShortMs);
  EXPECT_TRUE(peer.AwaitEnd());
  EXPECT_EQ(Ask(instance, 600).result, ZEL_E_DISCONNECTED);
}

TEST_F(AskEndsTest, OwnFrameHalfWrittenEndsTheOthersWith5) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  const OngoingAsk other(instance, RequestTo(600));
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  (void)Ask(instance, 600, Huge(), kShortMs);
  EXPECT_EQ(other.Get().result, ZEL_E_DISCONNECTED);
  EXPECT_EQ(other.Get().out.maySent, 1U);
}

// Another thread's frame fills the stream; it has much more time.
class BusyStreamTest : public AskEndsTest {
 protected:
  BusyStreamTest() {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    writer = std::make_unique<OngoingCall>([this] {
      return libzelx_publish(instance, 0, 0, "topic", Huge().data(), static_cast<uint32_t>(Huge().size()),
                             60000);
    });
    EXPECT_TRUE(peer.HasInput(kPatienceMs));
  }
  ~BusyStreamTest() override { link.instance.Release(); }

  std::unique_ptr<OngoingCall> writer;
};

TEST_F(BusyStreamTest, ARequestIsNotSentInTime) {
  const ElapsedTime time;
  const Asked asked = Ask(instance, 600, {}, kShortMs);
  EXPECT_EQ(asked.result, ZEL_E_TIMEOUT);
  EXPECT_EQ(asked.out.maySent, 0U);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(BusyStreamTest, KeepsTheLink) {
  (void)Ask(instance, 600, {}, kShortMs);
  EXPECT_EQ(peer.ReadRequest().payload.size(), Huge().size() + 24 + 3 + 5 + 1 + 1 + 9);
  EXPECT_TRUE(writer->Await());
  EXPECT_EQ(writer->end().result, 0);
  EXPECT_EQ(StatsOf(instance).losses, 0U);
}

TEST_F(BusyStreamTest, ATimeoutOf0IsNotSent) { EXPECT_EQ(Ask(instance, 600, {}, 0).out.maySent, 0U); }

TEST_F(BusyStreamTest, ARequestWithoutAWaitIsRefused) {
  OutcomeRecorder seen;
  EXPECT_EQ(AskAsync(instance, RequestTo(600, {}, kShortMs), seen), ZEL_E_TIMEOUT);
  link.instance.Release();
  EXPECT_EQ(seen.Count(), 0U);
}

TEST_F(BusyStreamTest, APublicationIsNotSentInTime) {
  EXPECT_EQ(libzelx_publish(instance, 0, 0, "other", nullptr, 0, kShortMs), ZEL_E_TIMEOUT);
}

TEST_F(BusyStreamTest, ReleaseCancelsARequestThatWaitsForItsTurn) {
  const OngoingAsk ask(instance, RequestTo(600));
  EXPECT_TRUE(Eventually([&] { return StatsOf(instance).inFlight == 1; }));
  link.instance.Release();
  EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ask.Get().out.maySent, 0U);
}

// ---- A lost link ------------------------------------------------------------------------------------------

class LostLinkTest : public AskEndsTest {
 protected:
  LostLinkTest() {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    EXPECT_TRUE(peer.ReadRequest().whole);
  }

  OngoingAsk ask{instance, RequestTo(600, {}, 60000)};
};

TEST_F(LostLinkTest, CloseEndsARequestWith5) {
  peer.Close();
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
  EXPECT_EQ(ask.Get().error, ZEL_E_DISCONNECTED);
  EXPECT_EQ(ask.Get().out.maySent, 1U);
}

TEST_F(LostLinkTest, ResetEndsARequestWith5) {
  peer.Reset();
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
}

TEST_F(LostLinkTest, BadLengthEndsARequestWith5) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 0)));
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
}

TEST_F(LostLinkTest, AnswerThatIsCutEndsARequestWith5) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 100) + Bytes(20)));
  peer.Close();
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
}

TEST_F(LostLinkTest, AnswerThatStoodBeforeTheEndCounts) {
  EXPECT_TRUE(peer.Send(Answer(600, 1, Text("answer"))));
  peer.EndSending();
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(LostLinkTest, ReconnectOfAnotherThreadEndsARequestWith5) {
  peer.EndSending();
  (void)libzel_reconnect(instance, 1000);
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
}

TEST_F(AskEndsTest, LostLinkEndsARequestAtOnce) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const int64_t quickestMs = QuickestMs([&] {
    const OngoingAsk ask(instance, RequestTo(600, {}, 60000));
    EXPECT_TRUE(peer.ReadRequest().whole);
    const auto start = std::chrono::steady_clock::now();
    peer.Close();
    EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
    peer = server.Accept();
    return ask.end().MsSince(start);
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

// ---- A link that is down ----------------------------------------------------------------------------------

class DownLinkTest : public AskEndsTest {
 protected:
  DownLinkTest() {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    peer.Close();
    Bytes buffer(8);
    EXPECT_EQ(link.instance.Receive(buffer), -1);
  }
};

TEST_F(DownLinkTest, ARequestBeforeItsTurnIs5AndNotSent) {
  const ElapsedTime time;
  const Asked asked = Ask(instance, 600);
  EXPECT_LT(time.AwakeMs(), 3000);
  EXPECT_EQ(asked.result, ZEL_E_DISCONNECTED);
  EXPECT_EQ(asked.error, ZEL_E_DISCONNECTED);
  EXPECT_EQ(asked.out.maySent, 0U);
  EXPECT_FALSE(server.IsCalled(20));
}

TEST_F(DownLinkTest, ARequestRestoresTheLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const OngoingAsk ask(instance, RequestTo(600));
  Peer again = server.Accept();
  (void)again.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(DownLinkTest, ARequestMakesOneAttempt) {
  server.StopListening();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(Ask(instance, 600).result, ZEL_E_DISCONNECTED);
  EXPECT_EQ(StatsOf(instance).failedConnects, 1U);
}

TEST_F(DownLinkTest, ATimeoutOf0MakesNoAttempt) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(Ask(instance, 600, {}, 0).result, ZEL_E_DISCONNECTED);
  EXPECT_FALSE(server.IsCalled(20));
  EXPECT_EQ(link.instance.events.Count(), 3U);  // 2, 1, 5
}

TEST_F(DownLinkTest, AConnectThatNobodyAnswersIsBounded) {
  server.Stall();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const ElapsedTime time;
  EXPECT_EQ(Ask(instance, 600, {}, kShortMs).result, ZEL_E_DISCONNECTED);
  EXPECT_LT(time.AwakeMs(), 3000);
}

// The new link takes the subscription's first part and no more.
TEST_F(DownLinkTest, AReSubscriptionThatNobodyReadsIsBounded) {
  const std::string topic(10000000, 't');
  EXPECT_EQ(libzel_subscribe(instance, topic.c_str(), TopicRecorder::Callback, nullptr), ZEL_E_DISCONNECTED);
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const OngoingAsk ask(instance, RequestTo(600, {}, 1000));
  Peer again = server.Accept();
  EXPECT_TRUE(ask.Await(8000));
  link.instance.Release();
  EXPECT_EQ(ask.Get().result, ZEL_E_DISCONNECTED);
  EXPECT_EQ(ask.Get().out.maySent, 0U);
}

TEST_F(DownLinkTest, ARequestBesideAnotherThreadsAttemptIs5) {
  server.Stall();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const OngoingCall attempt([&] { return libzel_reconnect(instance, 3000); });
  EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
  EXPECT_EQ(Ask(instance, 600, {}, kShortMs).result, ZEL_E_DISCONNECTED);
  link.instance.Release();
}

// ---- Stop and release -------------------------------------------------------------------------------------

TEST_F(AskEndsTest, StartsTheReceiveThread) {
  MessageRecorder seen;
  EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(Ask(instance, 600, {}, 0).result, ZEL_E_TIMEOUT);
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("x"))));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(AskEndsTest, LoopStopCancels) {
  const OngoingAsk ask(instance, RequestTo(600, {}, 60000));
  EXPECT_TRUE(peer.ReadRequest().whole);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ask.Get().error, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ask.Get().out.result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ask.Get().out.maySent, 1U);
}

// Those that were answered before have been read by their own callers.
TEST_F(AskEndsTest, LoopStopCancelsAtOnce) {
  const int64_t quickestMs = QuickestMs([&] {
    std::thread serving([&] {
      for (int i = 0; i < 100; ++i) EXPECT_TRUE(peer.Serve({}).whole);
    });
    for (int i = 0; i < 100; ++i) EXPECT_EQ(Ask(instance, 600).result, 0);
    serving.join();
    const OngoingAsk ask(instance, RequestTo(600, {}, 60000));
    EXPECT_TRUE(peer.ReadRequest().whole);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(libzel_loop_stop(instance), 0);
    EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
    return ask.end().MsSince(start);
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(AskEndsTest, RequestsGoOnAfterALoopStop) {
  EXPECT_EQ(Ask(instance, 600, {}, 0).result, ZEL_E_TIMEOUT);
  EXPECT_TRUE(peer.ReadRequest().whole);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(AskEndsTest, ReleaseCancels) {
  const OngoingAsk ask(instance, RequestTo(600, {}, 60000));
  EXPECT_TRUE(peer.ReadRequest().whole);
  link.instance.Release();
  EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
}

TEST_F(AskEndsTest, ReleaseCancelsAWriteThatNobodyReads) {
  const OngoingAsk ask(instance, RequestTo(600, Huge(), 60000));
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  link.instance.Release();
  EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ask.Get().out.maySent, 1U);
}

TEST_F(AskEndsTest, DestroyCancels) {
  const OngoingAsk ask(instance, RequestTo(600, {}, 60000));
  EXPECT_TRUE(peer.ReadRequest().whole);
  EXPECT_EQ(libzel_destory(), 0);
  EXPECT_EQ(libzel_init(), 0);
  EXPECT_EQ(ask.Get().result, LIBZELX_E_CANCELLED);
}

TEST_F(AskEndsTest, ReleaseIsNoLoss) {
  const uint64_t before = StatsOf(0).losses;
  const OngoingAsk ask(instance, RequestTo(600, Huge(), 60000));
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  link.instance.Release();
  EXPECT_TRUE(ask.Await());
  EXPECT_EQ(StatsOf(0).losses, before);
}

// ---- From callbacks ---------------------------------------------------------------------------------------

// Asks from within a callback, once.
struct CallbackAsker {
  static void OnTopic(uint32_t, uint32_t, const char*, const uint8_t*, uint32_t, void* user) { Run(user); }
  static void OnMessage(uint16_t, const uint8_t*, uint32_t, void* user) { Run(user); }
  static void OnEvent(const ZelDeviceId*, void* user, int32_t event) {
    auto* const self = static_cast<CallbackAsker*>(user);
    if (event == self->event) Run(user);
  }
  static void OnAnswer(uint64_t, const libzelx_Outcome*, const void*, void* user) { Run(user); }
  static void Run(void* user) {
    auto* const self = static_cast<CallbackAsker*>(user);
    self->asked.Add(Ask(self->instance, 600, {}, 60000));
  }

  std::atomic<ZelInstance> instance{0};
  std::atomic<int32_t> event{0};
  Recorder<Asked> asked;
};

class AskFromCallbackTest : public AskEndsTest {
 protected:
  AskFromCallbackTest() { asker.instance = instance; }
  ~AskFromCallbackTest() override { link.instance.Release(); }

  void ExpectWouldBlock() {
    ASSERT_TRUE(asker.asked.Await(1));
    const Asked asked = asker.asked.All()[0];
    EXPECT_EQ(asked.result, LIBZELX_E_WOULD_BLOCK);
    EXPECT_EQ(asked.error, LIBZELX_E_WOULD_BLOCK);
    EXPECT_EQ(asked.out.result, LIBZELX_E_WOULD_BLOCK);
    EXPECT_EQ(asked.out.maySent, 0U);
  }

  CallbackAsker asker;
};

TEST_F(AskFromCallbackTest, ATopicCallbackWouldBlock) {
  EXPECT_EQ(libzel_subscribe(instance, "topic", CallbackAsker::OnTopic, &asker), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(TopicMessage("topic", {})));
  ExpectWouldBlock();
}

TEST_F(AskFromCallbackTest, AMessageCallbackWouldBlock) {
  EXPECT_EQ(libzel__registerRouterEvent(instance, 600, CallbackAsker::OnMessage, &asker), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(Message(0, 600, {1})));
  ExpectWouldBlock();
}

TEST_F(AskFromCallbackTest, AnAnswerCallbackWouldBlock) {
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, CallbackAsker::OnAnswer, &asker, nullptr), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  ExpectWouldBlock();
}

TEST_F(AskFromCallbackTest, AnEventOnTheReceiveThreadWouldBlock) {
  asker.instance = libzelx_createInstance(&server.device(), CallbackAsker::OnEvent, &asker);
  Peer other = server.Accept();
  asker.event = ZEL_EVENT_DISCONNECTED;
  other.Close();
  ExpectWouldBlock();
  (void)libzel_releaseInstance(asker.instance);
}

TEST_F(AskFromCallbackTest, AnEventOnAnotherThreadIsAnswered) {
  CallbackAsker other;
  const ZelInstance made = libzel_createInstanceEx(&server.device(), 0, 1500, CallbackAsker::OnEvent, &other);
  Peer first = server.Accept();
  other.instance = made;
  other.event = ZEL_EVENT_CONNECTED;
  first.EndSending();
  EXPECT_EQ(libzel_loop_start(made), 0);
  EXPECT_EQ(libzel_loop_stop(made), 0);
  std::thread serving([&] {
    Peer second = server.Accept();
    EXPECT_TRUE(second.Serve(Text("answer")).whole);
    (void)second.AwaitEnd();
  });
  EXPECT_TRUE(libzel_reconnect(made, 1000));
  EXPECT_EQ(other.asked.All().at(0).result, 0);
  (void)libzel_releaseInstance(made);
  serving.join();
}

TEST_F(AskFromCallbackTest, AnotherInstancesThreadMayWait) {
  Link second(server);
  asker.instance = second.instance;
  EXPECT_EQ(libzel_subscribe(instance, "topic", CallbackAsker::OnTopic, &asker), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(TopicMessage("topic", {})));
  EXPECT_TRUE(second.peer.Serve({}).whole);
  ASSERT_TRUE(asker.asked.Await(1));
  EXPECT_EQ(asker.asked.All()[0].result, 0);
}

// ---- Instances that connect by themselves -----------------------------------------------------------------

TEST_F(AskEndsTest, CreatedInstanceConnectsInTheBackground) {
  EventRecorder events;
  const ZelInstance made = libzelx_createInstance(&server.device(), EventRecorder::Callback, &events);
  EXPECT_NE(made, 0);
  EXPECT_TRUE(server.Accept().IsOpen());
  EXPECT_TRUE(events.AwaitEvent(ZEL_EVENT_CONNECTED));
  EXPECT_NE(events.All()[0].thread, std::this_thread::get_id());
  (void)libzel_releaseInstance(made);
}

TEST_F(AskEndsTest, CreationWaitsForNoServer) {
  const int64_t quickestMs = QuickestMs([&] {
    const ElapsedTime time;
    const ZelDeviceId device = UnreachableDevice(1);
    const ZelInstance made = libzelx_createInstance(&device, nullptr, nullptr);
    const int64_t elapsedMs = time.Ms();
    EXPECT_NE(made, 0);
    (void)libzel_releaseInstance(made);
    return elapsedMs;
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(AskEndsTest, CreationRefusesNoDevice) {
  EXPECT_EQ(libzelx_createInstance(nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DEVICE_ID);
}

TEST_F(AskEndsTest, CreatedInstanceFindsItsServerLater) {
  server.StopListening();
  EventRecorder events;
  const ZelInstance made = libzelx_createInstance(&server.device(), EventRecorder::Callback, &events);
  EXPECT_EQ(libzel_reconnect_delay_set(made, 0), 0);
  EXPECT_TRUE(events.AwaitEvent(ZEL_EVENT_FAILED));
  server.Listen();
  EXPECT_TRUE(events.AwaitEvent(ZEL_EVENT_CONNECTED));
  (void)libzel_releaseInstance(made);
}

}  // namespace
}  // namespace zeltest
