// Requests whose outcomes come by callback, and their cancellation.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/Asking.h"
#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

class AskAsyncTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  // The recorder must outlive the instance's callbacks.
  ~AskAsyncTest() override { link.instance.Release(); }

  SeenOutcome Only() {
    EXPECT_TRUE(seen.Await(1));
    const auto all = seen.All();
    return all.empty() ? SeenOutcome{} : all[0];
  }
  // A request that is sent and stays open.
  uint64_t Open(uint32_t timeoutMs = 60000) {
    uint64_t ticket = 0;
    EXPECT_EQ(AskAsync(instance, RequestTo(600, {}, timeoutMs), seen, &ticket), 0);
    return ticket;
  }

  const Deadline deadline{100};
  const CapturedLog log;
  OutcomeRecorder seen;
  ScriptedServer server;
  Link link{server};
  Peer& peer = link.peer;
  ZelInstance instance = link.instance;
};

// ---- Outcomes ---------------------------------------------------------------------------------------------

TEST_F(AskAsyncTest, GivesTheAnswerToTheCallback) {
  const uint64_t ticket = Open();
  (void)peer.Serve(Text("answer"));
  EXPECT_EQ(Only().answer, Text("answer"));
  EXPECT_EQ(Only().ticket, ticket);
}

TEST_F(AskAsyncTest, FillsTheOutcome) {
  (void)Open();
  (void)peer.Serve(Text("answer"), 4105);
  const libzelx_Outcome out = Only().out;
  EXPECT_EQ(out.size, sizeof out);
  EXPECT_EQ(out.result, 0);
  EXPECT_EQ(out.deviceError, 4105U);
  EXPECT_EQ(out.answerLength, 6U);
  EXPECT_EQ(out.maySent, 1U);
}

TEST_F(AskAsyncTest, EmptyAnswerIsAnAnswer) {
  (void)Open();
  (void)peer.Serve({});
  EXPECT_TRUE(Only().hasAnswer);
  EXPECT_EQ(Only().out.answerLength, 0U);
}

TEST_F(AskAsyncTest, LargeAnswerComesWhole) {
  (void)Open();
  const Bytes large(5000000, 'a');
  (void)peer.Serve(large);
  EXPECT_EQ(Only().answer, large);
}

TEST_F(AskAsyncTest, SendsTheCommandThatIsAskedFor) {
  const Bytes data = Text("data");
  libzelx_Request request = RequestTo(600, data);
  request.command = 77;
  EXPECT_EQ(AskAsync(instance, request, seen), 0);
  EXPECT_EQ(peer.ReadRequest().command, 77);
}

TEST_F(AskAsyncTest, CopiesTheData) {
  Bytes data(5000000, 'a');
  std::thread reading([&] { EXPECT_EQ(peer.Serve({}).payload, Bytes(5000000, 'a')); });
  EXPECT_EQ(AskAsync(instance, RequestTo(600, data), seen), 0);
  data.assign(data.size(), 'b');
  reading.join();
}

TEST_F(AskAsyncTest, LateOutcomeIs4104) {
  const ElapsedTime time;
  (void)Open(100);
  EXPECT_EQ(Only().out.result, ZEL_E_TIMEOUT);
  EXPECT_GE(time.Ms(), 99);
  EXPECT_LT(time.AwakeMs(), 3000);
  EXPECT_FALSE(Only().hasAnswer);
  EXPECT_EQ(Only().out.maySent, 1U);
}

// The thread sleeps with nothing to do when the request comes.
TEST_F(AskAsyncTest, TimeoutEndsTheSleepOfAQuietLink) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  (void)Open(60000);
  EXPECT_TRUE(peer.ReadRequest().whole);
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // it sleeps for longer after a quiet second
  const ElapsedTime time;
  (void)Open(50);
  EXPECT_TRUE(seen.Await(1));
  EXPECT_LT(time.AwakeMs(), 900);
}

TEST_F(AskAsyncTest, TimeoutOf0SendsAndEndsAtOnce) {
  (void)Open(0);
  EXPECT_EQ(Only().out.result, ZEL_E_TIMEOUT);
  EXPECT_TRUE(peer.ReadRequest().whole);
}

TEST_F(AskAsyncTest, ShorterTimeEndsFirst) {
  (void)Open(60000);
  const uint64_t shorter = Open(50);
  EXPECT_EQ(Only().ticket, shorter);
}

TEST_F(AskAsyncTest, LostLinkIs5AtOnce) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const int64_t quickestMs = QuickestMs([&] {
    const size_t before = seen.Count();
    (void)Open();
    EXPECT_TRUE(peer.ReadRequest().whole);
    const ElapsedTime time;
    peer.Close();
    EXPECT_TRUE(seen.Await(before + 1));
    const int64_t elapsedMs = time.Ms();
    EXPECT_EQ(seen.All()[before].out.result, ZEL_E_DISCONNECTED);
    peer = server.Accept();
    return elapsedMs;
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(AskAsyncTest, RunsOnTheReceiveThread) {
  TopicRecorder topics;
  EXPECT_EQ(libzel_subscribe(instance, "topic", TopicRecorder::Callback, &topics), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  (void)Open();
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(peer.Send(TopicMessage("topic", {})));
  ASSERT_TRUE(topics.Await(1));
  EXPECT_EQ(Only().thread, topics.All()[0].thread);
  link.instance.Release();
}

TEST_F(AskAsyncTest, MixedWithWaitingCallersEachGetsItsOwn) {
  std::thread serving([&] {
    for (int i = 0; i < 400; ++i) {
      const Request request = peer.ReadRequest();
      EXPECT_TRUE(peer.Send(Answer(600, request.invokeId, request.payload)));
    }
  });
  for (uint64_t i = 0; i < 200; ++i) {
    EXPECT_EQ(AskAsync(instance, RequestTo(600, Le(i, 4)), seen), 0);
    EXPECT_EQ(Ask(instance, 600, Le(i + 1000, 4)).answer, Le(i + 1000, 4));
  }
  serving.join();
  ASSERT_TRUE(seen.Await(200));
  for (uint64_t i = 0; i < 200; ++i) EXPECT_EQ(seen.All()[i].answer, Le(i, 4));
}

// ---- Tickets ----------------------------------------------------------------------------------------------

TEST_F(AskAsyncTest, TicketsCountUp) {
  const uint64_t first = Open();
  EXPECT_GE(first, 1U);
  EXPECT_EQ(Open(), first + 1);
}

TEST_F(AskAsyncTest, TicketsAreOfTheProcess) {
  Link other(server);
  const uint64_t first = Open();
  uint64_t second = 0;
  OutcomeRecorder others;
  EXPECT_EQ(AskAsync(other.instance, 600, others, &second), 0);
  EXPECT_EQ(second, first + 1);
  other.instance.Release();
}

TEST_F(AskAsyncTest, NoPlaceForTheTicketIsNeeded) {
  EXPECT_EQ(AskAsync(instance, 600, seen, nullptr), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_NE(Only().ticket, 0U);
}

TEST_F(AskAsyncTest, TicketIsSetBeforeTheCallbackRuns) {
  struct Place {
    static void Callback(uint64_t ticket, const libzelx_Outcome*, const void*, void* user) {
      auto* const place = static_cast<Place*>(user);
      place->same.Add(place->ticket == ticket);
    }
    uint64_t ticket = 0;
    Recorder<bool> same;
  } place;
  const libzelx_Request request = RequestTo(600, {}, 0);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Place::Callback, &place, &place.ticket), 0);
  ASSERT_TRUE(place.same.Await(1));
  EXPECT_TRUE(place.same.All()[0]);
}

TEST_F(AskAsyncTest, AFailedCallGivesNoTicket) {
  const Bytes tooLong(10485732);
  uint64_t ticket = 77;
  EXPECT_EQ(AskAsync(instance, RequestTo(600, tooLong), seen, &ticket), LIBZELX_E_TOO_LONG);
  EXPECT_EQ(ticket, 0U);
}

// ---- Failures of the call ---------------------------------------------------------------------------------

TEST_F(AskAsyncTest, RefusesAnInstanceThatIsNotLive) {
  EXPECT_EQ(AskAsync(1, 600, seen), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(AskAsyncTest, RefusesNoCallback) {
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, nullptr, nullptr, nullptr), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

TEST_F(AskAsyncTest, RefusesNoRequest) {
  EXPECT_EQ(libzelx_requestAsync(instance, nullptr, OutcomeRecorder::Callback, &seen, nullptr), ZEL_E_PARAM);
}

TEST_F(AskAsyncTest, RefusesABadSize) {
  libzelx_Request request = RequestTo(600);
  request.size = 39;
  EXPECT_EQ(AskAsync(instance, request, seen), ZEL_E_PARAM);
}

TEST_F(AskAsyncTest, RefusesNullDataWithALength) {
  libzelx_Request request = RequestTo(600);
  request.length = 1;
  EXPECT_EQ(AskAsync(instance, request, seen), ZEL_E_PARAM);
}

TEST_F(AskAsyncTest, RefusesWhatIsTooLong) {
  const Bytes tooLong(10485732);
  EXPECT_EQ(AskAsync(instance, RequestTo(600, tooLong), seen), LIBZELX_E_TOO_LONG);
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(AskAsyncTest, RefusesOnADownLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(AskAsync(instance, 600, seen), ZEL_E_DISCONNECTED);
}

TEST_F(AskAsyncTest, RestoresTheLink) {
  peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(AskAsync(instance, 600, seen), 0);
  peer = server.Accept();
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_EQ(Only().out.result, 0);
}

TEST_F(AskAsyncTest, FailedCallsRunNoCallback) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  const Bytes huge(10000000);
  EXPECT_EQ(AskAsync(instance, RequestTo(600, huge, 100), seen), ZEL_E_TIMEOUT);
  EXPECT_EQ(AskAsync(instance, 600, seen), ZEL_E_DISCONNECTED);
  link.instance.Release();
  EXPECT_EQ(seen.Count(), 0U);
}

TEST_F(AskAsyncTest, AFrameHalfWrittenDropsTheLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  const Bytes huge(10000000);
  EXPECT_EQ(AskAsync(instance, RequestTo(600, huge, 100), seen), ZEL_E_TIMEOUT);
  EXPECT_TRUE(peer.AwaitEnd());
}

// ---- Calls in callbacks -----------------------------------------------------------------------------------

// Asks again from its own callback until it has been answered often enough.
struct Chain {
  static void Callback(uint64_t, const libzelx_Outcome*, const void*, void* user) {
    auto* const chain = static_cast<Chain*>(user);
    chain->results.Add(chain->left > 0 ? (--chain->left, chain->Next()) : LIBZELX_E_CANCELLED);
  }
  int32_t Next() {
    const libzelx_Request request = RequestTo(600);
    return libzelx_requestAsync(instance, &request, Callback, this, nullptr);
  }

  ZelInstance instance;
  int left;
  Recorder<int32_t> results;
};

TEST_F(AskAsyncTest, CallbacksMayAskAgain) {
  Chain chain{instance, 100, {}};
  EXPECT_EQ(chain.Next(), 0);
  for (int i = 0; i <= 100; ++i) EXPECT_TRUE(peer.Serve({}).whole);
  ASSERT_TRUE(chain.results.Await(101));
  for (size_t i = 0; i < 100; ++i) EXPECT_EQ(chain.results.All()[i], 0);
  link.instance.Release();
}

TEST_F(AskAsyncTest, CallbacksOfAStopMayAskInVain) {
  Chain chain{instance, 1, {}};
  EXPECT_EQ(chain.Next(), 0);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  EXPECT_EQ(chain.results.All(), (std::vector<int32_t>{LIBZELX_E_CANCELLED}));
}

TEST_F(AskAsyncTest, TopicCallbacksMayAsk) {
  struct Asker {
    static void OnTopic(uint32_t, uint32_t, const char*, const uint8_t*, uint32_t, void* user) {
      auto* const self = static_cast<Asker*>(user);
      EXPECT_EQ(AskAsync(self->instance, 600, self->seen), 0);
    }
    ZelInstance instance;
    OutcomeRecorder& seen;
  } asker{instance, seen};
  EXPECT_EQ(libzel_subscribe(instance, "topic", Asker::OnTopic, &asker), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(TopicMessage("topic", {})));
  EXPECT_TRUE(peer.Serve(Text("answer")).whole);
  EXPECT_EQ(Only().answer, Text("answer"));
  link.instance.Release();
}

// ---- Cancel -----------------------------------------------------------------------------------------------

TEST_F(AskAsyncTest, CancelGives0AndTheCallbackNeverRuns) {
  const uint64_t ticket = Open();
  const Request request = peer.ReadRequest();
  EXPECT_EQ(libzelx_cancel(instance, ticket), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
  EXPECT_TRUE(peer.Send(Answer(600, request.invokeId, {})));
  (void)Open();
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(seen.Await(1));
  EXPECT_NE(Only().ticket, ticket);
}

TEST_F(AskAsyncTest, CancelOfAnEndedOneGives1WithoutAnError) {
  const uint64_t ticket = Open();
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(seen.Await(1));
  EXPECT_EQ(libzelx_cancel(instance, ticket), 1);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(AskAsyncTest, CancelAgainGives1) {
  const uint64_t ticket = Open();
  EXPECT_EQ(libzelx_cancel(instance, ticket), 0);
  EXPECT_EQ(libzelx_cancel(instance, ticket), 1);
}

TEST_F(AskAsyncTest, CancelRefusesTicketsThatNobodyGot) {
  const uint64_t ticket = Open();
  for (const uint64_t other : {uint64_t{0}, ticket + 1, UINT64_MAX}) {
    EXPECT_EQ(libzelx_cancel(instance, other), ZEL_E_PARAM) << other;
    EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
  }
}

TEST_F(AskAsyncTest, CancelRefusesAnInstanceThatIsNotLive) {
  EXPECT_EQ(libzelx_cancel(1, Open()), ZEL_E_HANDLE);
}

// 1 would say that the callback has run.
TEST_F(AskAsyncTest, CancelRefusesAnotherInstancesTicket) {
  Link other(server);
  const uint64_t ticket = Open();
  EXPECT_EQ(libzelx_cancel(other.instance, ticket), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_cancel(instance, ticket), 0);
}

// What its callback does is up to the test.
struct Busy {
  static void Callback(uint64_t ticket, const libzelx_Outcome*, const void*, void* user) {
    auto* const busy = static_cast<Busy*>(user);
    busy->began.Add(ticket);
    busy->work(ticket);
    busy->ended = true;
  }

  std::function<void(uint64_t)> work;
  Recorder<uint64_t> began;
  std::atomic<bool> ended{false};
};

TEST_F(AskAsyncTest, CancelWaitsForARunningCallback) {
  Recorder<int> mayEnd;
  Busy busy{[&](uint64_t) { (void)mayEnd.Await(1); }, {}, {}};
  const libzelx_Request request = RequestTo(600);
  uint64_t ticket = 0;
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Busy::Callback, &busy, &ticket), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(busy.began.Await(1));
  bool hadEnded = false;
  const OngoingCall cancel([&] {
    const int32_t result = libzelx_cancel(instance, ticket);
    hadEnded = busy.ended;
    return result;
  });
  EXPECT_FALSE(cancel.Await(50));
  mayEnd.Add(1);
  EXPECT_TRUE(cancel.Await());
  EXPECT_EQ(cancel.end().result, 1);
  EXPECT_TRUE(hadEnded);
  link.instance.Release();
}

TEST_F(AskAsyncTest, CancelInItsOwnCallbackGives1) {
  Recorder<int32_t> results;
  Busy busy{[&](uint64_t ticket) { results.Add(libzelx_cancel(instance, ticket)); }, {}, {}};
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Busy::Callback, &busy, nullptr), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  ASSERT_TRUE(results.Await(1));
  EXPECT_EQ(results.All()[0], 1);
  link.instance.Release();
}

TEST_F(AskAsyncTest, CancelOfAnotherOneInACallbackGives0) {
  const uint64_t other = Open();
  EXPECT_TRUE(peer.ReadRequest().whole);
  Recorder<int32_t> results;
  Busy busy{[&](uint64_t) { results.Add(libzelx_cancel(instance, other)); }, {}, {}};
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Busy::Callback, &busy, nullptr), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  ASSERT_TRUE(results.Await(1));
  EXPECT_EQ(results.All()[0], 0);
  link.instance.Release();
  EXPECT_EQ(seen.Count(), 0U);
}

TEST_F(AskAsyncTest, CancelOfACallbackThatIsDueGives0) {
  uint64_t due = 0;
  Recorder<int32_t> results;
  Recorder<int> mayGoOn;
  Busy busy{[&](uint64_t) {
              (void)mayGoOn.Await(1);
              results.Add(libzelx_cancel(instance, due));
            },
            {},
            {}};
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Busy::Callback, &busy, nullptr), 0);
  due = Open();
  const Request first = peer.ReadRequest();
  const Request second = peer.ReadRequest();
  EXPECT_TRUE(peer.Send(Answer(600, first.invokeId, {}) + Answer(600, second.invokeId, {})));
  EXPECT_TRUE(busy.began.Await(1));
  mayGoOn.Add(1);
  ASSERT_TRUE(results.Await(1));
  EXPECT_EQ(results.All()[0], 0);
  link.instance.Release();
  EXPECT_EQ(seen.Count(), 0U);
}

// ---- Stop and release -------------------------------------------------------------------------------------

TEST_F(AskAsyncTest, LoopStopCancelsBeforeItReturns) {
  (void)Open();
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  ASSERT_EQ(seen.Count(), 1U);
  EXPECT_EQ(Only().out.result, LIBZELX_E_CANCELLED);
  EXPECT_FALSE(Only().hasAnswer);
}

TEST_F(AskAsyncTest, ReleaseCancelsBeforeItReturns) {
  for (int i = 0; i < 100; ++i) (void)Open();
  link.instance.Release();
  ASSERT_EQ(seen.Count(), 100U);
  for (const SeenOutcome& one : seen.All()) ASSERT_EQ(one.out.result, LIBZELX_E_CANCELLED);
}

TEST_F(AskAsyncTest, DestroyCancelsBeforeItReturns) {
  (void)Open();
  EXPECT_EQ(libzel_destory(), 0);
  EXPECT_EQ(seen.Count(), 1U);
  EXPECT_EQ(libzel_init(), 0);
}

TEST_F(AskAsyncTest, ReleaseWaitsForARunningCallback) {
  Recorder<int> mayEnd;
  Busy busy{[&](uint64_t) { (void)mayEnd.Await(1); }, {}, {}};
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Busy::Callback, &busy, nullptr), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(busy.began.Await(1));
  bool hadEnded = false;
  const OngoingCall release([&] {
    (void)libzel_releaseInstance(instance);
    hadEnded = busy.ended;
    return 0;
  });
  EXPECT_FALSE(release.Await(50));
  mayEnd.Add(1);
  EXPECT_TRUE(release.Await());
  EXPECT_TRUE(hadEnded);
}

TEST_F(AskAsyncTest, ReleaseRunsTheOthersBehindARunningCallback) {
  Recorder<int> mayEnd;
  Busy busy{[&](uint64_t) { (void)mayEnd.Await(1); }, {}, {}};
  const libzelx_Request request = RequestTo(600);
  EXPECT_EQ(libzelx_requestAsync(instance, &request, Busy::Callback, &busy, nullptr), 0);
  EXPECT_TRUE(peer.Serve({}).whole);
  EXPECT_TRUE(busy.began.Await(1));
  for (int i = 0; i < 10; ++i) (void)Open();
  const OngoingCall release([&] {
    (void)libzel_releaseInstance(instance);
    return static_cast<int64_t>(seen.Count());
  });
  EXPECT_FALSE(release.Await(20));
  mayEnd.Add(1);
  EXPECT_TRUE(release.Await());
  EXPECT_EQ(release.end().result, 10);
}

TEST_F(AskAsyncTest, CountsWhatIsInFlight) {
  for (int i = 0; i < 3; ++i) (void)Open();
  EXPECT_EQ(StatsOf(instance).inFlight, 3U);
  EXPECT_GE(StatsOf(0).inFlight, 3U);
}

}  // namespace
}  // namespace zeltest
