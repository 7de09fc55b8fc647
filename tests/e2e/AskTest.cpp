// Requests whose callers wait for their answers: what goes out, what counts as an answer, what is refused.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/AskFixture.h"

namespace zeltest {
namespace {

class AskTest : public AskFixture {};

// ---- What goes out ----------------------------------------------------------------------------------------

TEST_F(AskTest, SendsTheRequestAsTheOldCallDoes) {
  const Bytes data = Text("question");
  libzelx_Request request = RequestTo(600, data);
  request.group = 0x01020304;
  request.offset = 0x05060708;
  const OngoingAsk ask(instance, request);
  const Bytes frame = peer.Read(29 + data.size());
  EXPECT_EQ(frame, Message(1, 600, InnerHeader(0, 1, 9) + Be(0x01020304, 4) + Be(0x05060708, 4) + data));
  EXPECT_TRUE(peer.Send(Answer(600, 1, {})));
}

TEST_F(AskTest, SendsTheCommandThatIsAskedFor) {
  libzelx_Request request = RequestTo(600);
  request.command = 0x1234;
  const OngoingAsk ask(instance, request);
  EXPECT_EQ(peer.Serve({}).command, 0x1234);
}

TEST_F(AskTest, ShortFormSendsCommand9) {
  OngoingCall call(
      [&] { return libzelx_request(instance, 600, 3, 4, "ab", 2, nullptr, 0, kAskPatienceMs, nullptr); });
  const Request request = peer.Serve({});
  EXPECT_EQ(request.command, 9);
  EXPECT_EQ(request.idGroup, 3U);
  EXPECT_EQ(request.idOffset, 4U);
  EXPECT_EQ(request.payload, Text("ab"));
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, 0);
}

TEST_F(AskTest, ReachesReservedPorts) {
  const OngoingAsk ask(instance, RequestTo(0));
  EXPECT_EQ(peer.Serve({}).port, 0);
  EXPECT_EQ(ask.Get().result, 0);
}

TEST_F(AskTest, LongestRequestIsSent) {
  const Bytes data(10485731, 'x');
  const OngoingAsk ask(instance, RequestTo(600, data));
  EXPECT_EQ(peer.Serve(Text("y")).payload.size(), data.size());
  EXPECT_EQ(ask.Get().result, 0);
}

TEST_F(AskTest, LongerRequestIsRefusedUnsent) {
  const Bytes data(10485732, 'x');
  const Asked asked = Ask(instance, 600, data);
  EXPECT_EQ(asked.result, LIBZELX_E_TOO_LONG);
  EXPECT_EQ(asked.error, LIBZELX_E_TOO_LONG);
  EXPECT_EQ(asked.out.result, LIBZELX_E_TOO_LONG);
  EXPECT_EQ(asked.out.maySent, 0U);
  EXPECT_FALSE(peer.HasInput(20));
}

// ---- Answers ----------------------------------------------------------------------------------------------

TEST_F(AskTest, GivesTheAnswer) {
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_EQ(ask.Get().error, 0);
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(AskTest, FillsTheOutcomeOfAnAnswer) {
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve(Text("answer"));
  const libzelx_Outcome out = ask.Get().out;
  EXPECT_EQ(out.size, sizeof out);
  EXPECT_EQ(out.result, 0);
  EXPECT_EQ(out.deviceError, 0U);
  EXPECT_EQ(out.answerLength, 6U);
  EXPECT_EQ(out.maySent, 1U);
}

TEST_F(AskTest, EmptyAnswerIsAnAnswer) {
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve({});
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_EQ(ask.Get().out.answerLength, 0U);
}

TEST_F(AskTest, DevicesErrorWordIsInTheOutcomeAlone) {
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve({}, 4105);
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_EQ(ask.Get().error, 0);
  EXPECT_EQ(ask.Get().out.deviceError, 4105U);
}

TEST_F(AskTest, DevicesErrorMayComeWithAnAnswer) {
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve(Text("why"), 0xFFFFFFFF);
  EXPECT_EQ(ask.Get().out.deviceError, 0xFFFFFFFFU);
  EXPECT_EQ(ask.Get().answer, Text("why"));
}

TEST_F(AskTest, LongerAnswerFillsTheBufferAndTellsItsLength) {
  const OngoingAsk ask(instance, RequestTo(600), 4);
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().answer, Text("answ"));
  EXPECT_EQ(ask.Get().out.answerLength, 6U);
}

TEST_F(AskTest, NothingIsWrittenBehindTheBuffer) {
  Bytes buffer(8, 0xEE);
  OngoingCall call([&] {
    return libzelx_request(instance, 600, 0, 0, nullptr, 0, buffer.data(), 4, kAskPatienceMs, nullptr);
  });
  (void)peer.Serve(Text("answer"));
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(buffer, Text("answ") + Bytes(4, 0xEE));
}

TEST_F(AskTest, NoBufferIsNeeded) {
  const OngoingAsk ask(instance, RequestTo(600), 0);
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_EQ(ask.Get().out.answerLength, 6U);
}

TEST_F(AskTest, LargeAnswerComesWhole) {
  Bytes large(5000000);
  for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i * 7 >> 3);
  const OngoingAsk ask(instance, RequestTo(600), 5000001);
  (void)peer.Serve(large);
  EXPECT_EQ(ask.Get().answer, large);
}

TEST_F(AskTest, AnswerInPiecesComesWhole) {
  const OngoingAsk ask(instance, RequestTo(600));
  const Request request = peer.ReadRequest();
  const Bytes answer = Answer(600, request.invokeId, Text("answer"));
  for (const uint8_t byte : answer) EXPECT_TRUE(peer.Send({byte}));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(AskTest, AnswersMayComeInAnyOrder) {
  const OngoingAsk first(instance, 600, Text("1"));
  const Request one = peer.ReadRequest();
  const OngoingAsk second(instance, 600, Text("2"));
  const Request two = peer.ReadRequest();
  EXPECT_TRUE(peer.Send(Answer(600, two.invokeId, two.payload) + Answer(600, one.invokeId, one.payload)));
  EXPECT_EQ(first.Get().answer, Text("1"));
  EXPECT_EQ(second.Get().answer, Text("2"));
}

TEST_F(AskTest, ManyInARowAreAnswered) {
  constexpr int kRequests = 500;
  std::thread serving([&] {
    for (int i = 0; i < kRequests; ++i) EXPECT_TRUE(peer.Serve(Le(static_cast<uint64_t>(i), 4)).whole);
  });
  for (int i = 0; i < kRequests; ++i) {
    const Asked asked = Ask(instance, 600);
    ASSERT_EQ(asked.result, 0) << i;
    ASSERT_EQ(asked.answer, Le(static_cast<uint64_t>(i), 4)) << i;
  }
  serving.join();
}

// A publication that comes between the requests finds its way, whoever reads at that time.
TEST_F(AskTest, PublicationsAmongManyAnswersAreDelivered) {
  constexpr int kRequests = 300;
  TopicRecorder seen;
  EXPECT_EQ(libzel_subscribe(instance, "topic", TopicRecorder::Callback, &seen), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  std::thread serving([&] {
    for (int i = 0; i < kRequests; ++i) {
      const Request request = peer.ReadRequest();
      const Bytes answer = Answer(600, request.invokeId, Text("answer"));
      const Bytes topic = TopicMessage("topic", Le(static_cast<uint64_t>(i), 4));
      Bytes both = answer;
      if (i % 40 == 38) both = topic + answer;
      if (i % 40 == 39) both = answer + topic;
      EXPECT_TRUE(peer.Send(both));
    }
  });
  for (int i = 0; i < kRequests; ++i) ASSERT_EQ(Ask(instance, 600).answer, Text("answer")) << i;
  serving.join();
  ASSERT_TRUE(seen.Await(14));
  EXPECT_EQ(seen.All()[13].data, Le(279, 4));
}

// Nobody asks any more when it comes.
TEST_F(AskTest, APublicationAfterManyAnswersIsDelivered) {
  TopicRecorder seen;
  EXPECT_EQ(libzel_subscribe(instance, "topic", TopicRecorder::Callback, &seen), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  std::thread serving([&] {
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(peer.Serve({}).whole);
  });
  for (int i = 0; i < 100; ++i) ASSERT_EQ(Ask(instance, 600).result, 0);
  serving.join();
  EXPECT_TRUE(peer.Send(TopicMessage("topic", Text("x"))));
  EXPECT_TRUE(seen.Await(1));
}

// ---- What is no answer ------------------------------------------------------------------------------------

// Sends a frame with the pending identifier before the answer; gives what the request got.
template <typename MakeFrame>
Asked AskBehind(ZelInstance instance, Peer& peer, uint16_t port, MakeFrame makeFrame) {
  const OngoingAsk ask(instance, RequestTo(port));
  const Request request = peer.ReadRequest();
  EXPECT_TRUE(peer.Send(makeFrame(request.invokeId)));
  EXPECT_TRUE(peer.Send(Answer(port, request.invokeId, Text("answer"))));
  return ask.Get();
}

TEST_F(AskTest, OtherIdentifiersAreNoAnswer) {
  const Asked asked =
      AskBehind(instance, peer, 600, [](uint32_t id) { return Answer(600, id + 1, Text("wrong")); });
  EXPECT_EQ(asked.answer, Text("answer"));
}

TEST_F(AskTest, Version0IsNoAnswer) {
  const Asked asked = AskBehind(
      instance, peer, 600, [](uint32_t id) { return Message(0, 600, InnerHeader(0, id) + Text("wrong")); });
  EXPECT_EQ(asked.answer, Text("answer"));
}

TEST_F(AskTest, LaterVersionsAreNoAnswer) {
  const Asked asked = AskBehind(
      instance, peer, 600, [](uint32_t id) { return Message(2, 600, InnerHeader(0, id) + Text("wrong")); });
  EXPECT_EQ(asked.answer, Text("answer"));
}

TEST_F(AskTest, BodyShorterThanItsInnerHeaderIsNoAnswer) {
  const Asked asked = AskBehind(instance, peer, 600,
                                [](uint32_t id) { return Message(1, 600, Be(0, 4) + Be(id, 4) + Bytes(4)); });
  EXPECT_EQ(asked.answer, Text("answer"));
}

TEST_F(AskTest, PublicationWithThePendingIdentifierIsNoAnswer) {
  TopicRecorder seen;
  EXPECT_EQ(libzel_subscribe(instance, "topic", TopicRecorder::Callback, &seen), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  const Asked asked = AskBehind(
      instance, peer, 600, [](uint32_t id) { return Answer(103, id, Record("pub", "topic", Text("news"))); });
  EXPECT_EQ(asked.answer, Text("answer"));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].data, Text("news"));
}

TEST_F(AskTest, RequestToPort103IsAnsweredThere) {
  const OngoingAsk ask(instance, RequestTo(103));
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(AskTest, AnswerFromAnotherPortCounts) {
  const OngoingAsk ask(instance, RequestTo(600));
  EXPECT_TRUE(peer.Send(Answer(601, peer.ReadRequest().invokeId, Text("answer"))));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

TEST_F(AskTest, MessagesOfOtherIdentifiersAreRouted) {
  MessageRecorder seen;
  EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &seen), 0);
  (void)AskBehind(instance, peer, 600, [](uint32_t id) { return Answer(600, id + 1, Text("routed")); });
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, Text("routed"));
}

TEST_F(AskTest, AnswersAreNotRouted) {
  MessageRecorder seen;
  EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &seen), 0);
  const OngoingAsk ask(instance, RequestTo(600));
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("mark"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, Text("mark"));
}

// ---- Late answers -----------------------------------------------------------------------------------------

class LateAnswerTest : public AskTest {
 protected:
  LateAnswerTest() {
    EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &seen), 0);
    EXPECT_EQ(Ask(instance, 600, {}, 20).result, ZEL_E_TIMEOUT);
    late = peer.ReadRequest().invokeId;
  }
  ~LateAnswerTest() override { link.instance.Release(); }

  // What the port gets up to a mark.
  std::vector<std::string> RoutedUpTo(const Bytes& frames) {
    EXPECT_TRUE(peer.Send(frames + Message(0, 600, Text("mark"))));
    EXPECT_TRUE(
        seen.AwaitThat([](const auto& all) { return !all.empty() && all.back().payload == Text("mark"); }));
    std::vector<std::string> payloads;
    for (const SeenMessage& one : seen.All()) payloads.emplace_back(one.payload.begin(), one.payload.end());
    return payloads;
  }

  MessageRecorder seen;
  uint32_t late = 0;
};

TEST_F(LateAnswerTest, IsNotRouted) {
  EXPECT_EQ(RoutedUpTo(Answer(600, late, Text("late"))), (std::vector<std::string>{"mark"}));
}

TEST_F(LateAnswerTest, IsCounted) {
  (void)RoutedUpTo(Answer(600, late, Text("late")));
  EXPECT_EQ(StatsOf(instance).lateAnswers, 1U);
}

TEST_F(LateAnswerTest, IsNobodyElsesAnswer) {
  const OngoingAsk ask(instance, RequestTo(600));
  const Request request = peer.ReadRequest();
  EXPECT_TRUE(peer.Send(Answer(600, late, Text("late")) + Answer(600, request.invokeId, Text("answer"))));
  EXPECT_EQ(ask.Get().answer, Text("answer"));
}

// One request has one answer: what comes again under its identifier is a message like others.
TEST_F(LateAnswerTest, ComesOnce) {
  const Bytes message = Answer(600, late, Text("late"));
  EXPECT_EQ(RoutedUpTo(message + message), (std::vector<std::string>{"late", "mark"}));
}

TEST_F(LateAnswerTest, DoesNotComeOnAnotherLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  peer.Close();
  EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_CONNECTED, 2));
  link.peer = server.Accept();
  EXPECT_EQ(RoutedUpTo(Answer(600, late, Text("other"))), (std::vector<std::string>{"other", "mark"}));
}

// ---- The old calls beside ---------------------------------------------------------------------------------

TEST_F(AskTest, LastIdentifierOfTheOldCallsStays) {
  EXPECT_EQ(link.instance.Send(600, Text("old")), 29 + 3);
  const Request old = peer.ReadRequest();
  const OngoingAsk ask(instance, RequestTo(600));
  EXPECT_TRUE(peer.Serve(Text("answer")).whole);
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  EXPECT_TRUE(peer.Send(Answer(600, old.invokeId, Text("old answer"))));
  Bytes buffer(64);
  EXPECT_EQ(link.instance.Receive(buffer), 10);
}

TEST_F(AskTest, IdentifiersAreSharedWithTheOldCalls) {
  const OngoingAsk ask(instance, RequestTo(600));
  EXPECT_EQ(peer.Serve({}).invokeId, 1U);
  EXPECT_EQ(ask.Get().result, 0);
  EXPECT_EQ(link.instance.Send(600, {}), 29);
  EXPECT_EQ(peer.ReadRequest().invokeId, 2U);
}

// A request and a synchronous receive of another thread, which has room for 4 bytes and
// waits for somebody else's.
class AskBesideReceiveTest : public AskTest {
 protected:
  AskBesideReceiveTest() {
    receiver = std::make_unique<OngoingCall>([this] {
      Bytes buffer(4);
      const int32_t received = link.instance.Receive(buffer);
      got = buffer;
      return received;
    });
  }
  ~AskBesideReceiveTest() override { (void)peer.Send(Message(0, 600, Text("done"))); }

  Bytes got;
  std::unique_ptr<OngoingCall> receiver;
};

// Either of the two readers may be the one that reads an answer.
TEST_F(AskBesideReceiveTest, AnswersComeWhole) {
  const Bytes answer(3000, 'a');
  for (int i = 0; i < 100; ++i) {
    const OngoingAsk ask(instance, RequestTo(600), 4000);
    EXPECT_TRUE(peer.Serve(answer).whole);
    ASSERT_EQ(ask.Get().out.answerLength, answer.size()) << i;
    ASSERT_EQ(ask.Get().answer, answer) << i;
  }
}

TEST_F(AskBesideReceiveTest, AnswersForCallbacksComeWhole) {
  const Bytes answer(3000, 'a');
  for (int i = 0; i < 100; ++i) {
    OutcomeRecorder seen;
    ASSERT_EQ(AskAsync(instance, 600, seen), 0);
    EXPECT_TRUE(peer.Serve(answer).whole);
    ASSERT_TRUE(seen.Await(1));
    ASSERT_EQ(seen.All()[0].answer, answer) << i;
  }
}

TEST_F(AskBesideReceiveTest, EmptyAnswersForCallbacksAreAnswers) {
  for (int i = 0; i < 100; ++i) {
    OutcomeRecorder seen;
    ASSERT_EQ(AskAsync(instance, 600, seen), 0);
    EXPECT_TRUE(peer.Serve({}).whole);
    ASSERT_TRUE(seen.Await(1));
    ASSERT_TRUE(seen.All()[0].hasAnswer) << i;
  }
}

TEST_F(AskBesideReceiveTest, CallbacksRunOnOneThread) {
  OutcomeRecorder seen;
  for (size_t i = 0; i < 50; ++i) {
    ASSERT_EQ(AskAsync(instance, 600, seen), 0);
    EXPECT_TRUE(peer.Serve({}).whole);
    ASSERT_TRUE(seen.Await(i + 1));
  }
  for (const SeenOutcome& one : seen.All()) EXPECT_EQ(one.thread, seen.All()[0].thread);
}

// ---- Refusals ---------------------------------------------------------------------------------------------

TEST_F(AskTest, RefusesAnInstanceThatIsNotLive) {
  const Asked asked = Ask(1, 600);
  EXPECT_EQ(asked.result, ZEL_E_HANDLE);
  EXPECT_EQ(asked.error, ZEL_E_HANDLE);
  EXPECT_EQ(asked.out.result, ZEL_E_HANDLE);
}

TEST_F(AskTest, RefusesAReleasedInstance) {
  link.instance.Release();
  EXPECT_EQ(Ask(instance, 600).result, ZEL_E_HANDLE);
}

TEST_F(AskTest, RefusesNoRequest) {
  libzelx_Outcome out{sizeof out, -1, 0, 0, 9};
  EXPECT_EQ(libzelx_requestEx(instance, nullptr, nullptr, 0, &out), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
  EXPECT_EQ(out.result, ZEL_E_PARAM);
  EXPECT_EQ(out.maySent, 0U);
}

TEST_F(AskTest, RefusesNullDataWithALength) {
  libzelx_Request request = RequestTo(600);
  request.length = 1;
  EXPECT_EQ(Ask(instance, request).result, ZEL_E_PARAM);
}

TEST_F(AskTest, RefusesANullBufferWithASize) {
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestEx(instance, &request, nullptr, 1, nullptr), ZEL_E_PARAM);
}

TEST_F(AskTest, RefusalsSendNothing) {
  const libzelx_Request request = RequestTo(600);
  (void)libzelx_requestEx(instance, &request, nullptr, 1, nullptr);
  EXPECT_FALSE(peer.HasInput(20));
}

// ---- Sizes of structures ----------------------------------------------------------------------------------

TEST_F(AskTest, RefusesASmallerRequest) {
  libzelx_Request request = RequestTo(600);
  for (const size_t size : {size_t{0}, sizeof request - 1}) {
    request.size = size;
    EXPECT_EQ(Ask(instance, request).result, ZEL_E_PARAM) << size;
  }
}

struct LaterRequest {
  libzelx_Request request;
  uint64_t unknown[2];
};

TEST_F(AskTest, TakesALargerRequestWhoseRestIs0) {
  LaterRequest later{RequestTo(600), {0, 0}};
  later.request.size = sizeof later;
  OngoingCall call([&] { return libzelx_requestEx(instance, &later.request, nullptr, 0, nullptr); });
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, 0);
}

TEST_F(AskTest, RefusesALargerRequestWithSomethingUnknown) {
  LaterRequest later{RequestTo(600), {0, uint64_t{1} << 63}};
  later.request.size = sizeof later;
  EXPECT_EQ(libzelx_requestEx(instance, &later.request, nullptr, 0, nullptr), ZEL_E_PARAM);
}

// A size that was never set is most often far too large: nothing is read or written by it.
TEST_F(AskTest, RefusesSizesThatNoStructureHas) {
  libzelx_Request request = RequestTo(600);
  for (const size_t size : {SIZE_MAX, size_t{1} << 40, sizeof request + 1}) {
    request.size = size;
    EXPECT_EQ(libzelx_requestEx(instance, &request, nullptr, 0, nullptr), ZEL_E_PARAM) << size;
  }
}

TEST_F(AskTest, RefusesASmallerOutcomeAndLeavesIt) {
  const libzelx_Request request = RequestTo(600);
  libzelx_Outcome out{sizeof out - 8, 77, 77, 77, 77};
  EXPECT_EQ(libzelx_requestEx(instance, &request, nullptr, 0, &out), ZEL_E_PARAM);
  EXPECT_EQ(out.result, 77);
}

TEST_F(AskTest, RefusesAnOutcomeThatIsFarTooLargeAndLeavesIt) {
  const libzelx_Request request = RequestTo(600);
  libzelx_Outcome out{SIZE_MAX, 77, 77, 77, 77};
  EXPECT_EQ(libzelx_requestEx(instance, &request, nullptr, 0, &out), ZEL_E_PARAM);
  EXPECT_EQ(out.result, 77);
}

TEST_F(AskTest, FillsALargerOutcomeWith0) {
  struct {
    libzelx_Outcome out;
    uint64_t unknown;
    uint64_t behind;
  } later{{0, 0, 0, 0, 0}, 77, 88};
  later.out.size = sizeof later.out + 8;
  OngoingCall call([&] {
    return libzelx_request(instance, 600, 0, 0, nullptr, 0, nullptr, 0, kAskPatienceMs, &later.out);
  });
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(later.unknown, 0U);
  EXPECT_EQ(later.behind, 88U);
  EXPECT_EQ(later.out.size, sizeof later.out + 8);
}

}  // namespace
}  // namespace zeltest
