// Several threads that want the same link made.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/Wire.h"

namespace zeltest {
namespace {

using Events = std::vector<int32_t>;

class AttemptTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // What one thread was told.
  static Events Of(const EventRecorder& events, std::thread::id thread) {
    Events numbers;
    for (const SeenEvent& seen : events.All()) {
      if (seen.thread == thread) numbers.push_back(seen.event);
    }
    return numbers;
  }
  static std::chrono::steady_clock::time_point LastOf(const EventRecorder& events, std::thread::id thread) {
    std::chrono::steady_clock::time_point when{};
    for (const SeenEvent& seen : events.All()) {
      if (seen.thread == thread) when = seen.when;
    }
    return when;
  }

  static std::chrono::steady_clock::time_point FirstOf(const EventRecorder& events, std::thread::id thread) {
    for (const SeenEvent& seen : events.All()) {
      if (seen.thread == thread) return seen.when;
    }
    return {};
  }

  const Deadline deadline{100};
  const CapturedLog log;
};

// ---- The paced attempt ------------------------------------------------------------------------------------

// How long a call takes at most while another thread's attempt lasts, in ms.
template <typename Call>
int64_t MsBesideAnAttempt(Call call) {
  Instance instance(UnreachableDevice(0), 100);
  const ZelInstance handle = instance;
  EXPECT_EQ(libzel_reconnect_delay_set(handle, 0), 0);
  const OngoingCall attempt([=] { return libzel_reconnect(handle, 2500); });
  EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
  const int64_t quickestMs = QuickestMs([&] {
    const ElapsedTime time;
    call(instance);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
    return time.Ms();
  });
  instance.Release();
  return quickestMs;
}

TEST_F(AttemptTest, ASendFailsAtOnceWhileAnotherThreadConnects) {
  const int64_t quickestMs =
      MsBesideAnAttempt([](const Instance& instance) { EXPECT_EQ(instance.Send(600, {}, 700), -1); });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(AttemptTest, AReceiveFailsAtOnceWhileAnotherThreadConnects) {
  const int64_t quickestMs = MsBesideAnAttempt([](const Instance& instance) {
    Bytes buffer(8);
    EXPECT_EQ(instance.Receive(buffer, 700), -1);
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(AttemptTest, APublicationFailsAtOnceWhileAnotherThreadConnects) {
  const int64_t quickestMs = MsBesideAnAttempt([](const Instance& instance) {
    EXPECT_EQ(libzel_publish(instance, 1, 2, "topic", nullptr, 0), ZEL_E_DISCONNECTED);
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(AttemptTest, APacedSuccessIsLoggedWithItsCallersTimeout) {
  ScriptedServer server;
  server.StopListening();
  const Instance instance(server.device(), 100);
  server.Listen();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(instance.Send(600, {}, 700), 29);
  EXPECT_TRUE(log.Has(
      "INFO", "Reconnect  HostName:" + server.host() + ",port:9999 Success,isDomain:0,timeout:700 ms"));
}

// ---- The requested attempt --------------------------------------------------------------------------------

// A second request beside one whose attempt fails after 300 ms.
struct AfterAFailure {
  explicit AfterAFailure(int32_t timeoutMs) {
    const OngoingCall first([&] {
      firstThread = std::this_thread::get_id();
      return libzel_reconnect(instance, 300);
    });
    EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
    (void)first.Await(50);  // nothing tells that its connect has begun
    const OngoingCall second([&] {
      secondThread = std::this_thread::get_id();
      return libzel_reconnect(instance, timeoutMs);
    });
    EXPECT_TRUE(first.Await() && second.Await());
    result = second.end().result;
  }

  // Of its own: where an address has been asked for a while, the system gives up and the next
  // connect fails at once.
  static int NextNumber() {
    static int number = 50;
    return ++number;
  }

  const Instance instance{UnreachableDevice(NextNumber()), 100};
  std::thread::id firstThread;
  std::thread::id secondThread;
  int64_t result = -1;
};

TEST_F(AttemptTest, ARequestBesideAnAttemptThatFailsMakesItsOwn) {
  const AfterAFailure seen(1000);
  EXPECT_EQ(seen.result, 0);
  EXPECT_EQ(Of(seen.instance.events, seen.secondThread), (Events{2, 6}));
}

// The second thread may be the first to connect, as nobody sees when a connect begins:
// then it has not waited.
TEST_F(AttemptTest, ARequestsOwnAttemptHasItsFullTime) {
  int64_t longestMs = 0;
  for (int round = 0; round < 8 && longestMs < 1290; ++round) {
    const AfterAFailure seen(1000);
    const auto sinceTheFirstBegan =
        LastOf(seen.instance.events, seen.secondThread) - FirstOf(seen.instance.events, seen.firstThread);
    longestMs = std::chrono::duration_cast<std::chrono::milliseconds>(sinceTheFirstBegan).count();
    EXPECT_GE(longestMs, 990);
  }
  EXPECT_GE(longestMs, 1290);
}

TEST_F(AttemptTest, AShortRequestMakesItsOwnAttemptToo) {
  const AfterAFailure seen(50);
  EXPECT_EQ(Of(seen.instance.events, seen.secondThread), (Events{2, 6}));
}

TEST_F(AttemptTest, ARequestWaitsNoLongerThanItsTimeForAnAttempt) {
  const Instance instance(UnreachableDevice(0), 100);
  const OngoingCall first([&] { return libzel_reconnect(instance, 2500); });
  EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
  const ElapsedTime time;
  EXPECT_FALSE(libzel_reconnect(instance, 200));
  EXPECT_LT(time.AwakeMs(), 1500);
}

// A second request beside one whose attempt succeeds when the server comes back.
struct AfterASuccess {
  AfterASuccess() {
    server.StopListening();
    server.Stall();
    instance = std::make_unique<Instance>(server.device(), 100);
    const OngoingCall first([&] { return libzel_reconnect(*instance, 8000); });
    EXPECT_TRUE(instance->events.AwaitEvent(ZEL_EVENT_PENDING, 2));
    const OngoingCall second([&] {
      thread = std::this_thread::get_id();
      return libzel_reconnect(*instance, 7000);
    });
    (void)second.Await(50);  // it has no way to tell that it waits
    server.StopListening();
    server.Listen();
    EXPECT_TRUE(first.Await() && second.Await());
    EXPECT_EQ(first.end().result, 1);
    result = second.end().result;
  }

  ScriptedServer server;
  std::unique_ptr<Instance> instance;
  std::thread::id thread;
  int64_t result = -1;
};

TEST_F(AttemptTest, ARequestBesideAnAttemptThatSucceedsIsSatisfied) {
  AfterASuccess seen;
  EXPECT_EQ(seen.result, 1);
  EXPECT_TRUE(seen.server.Accept().IsOpen());
  EXPECT_FALSE(seen.server.IsCalled(50));
}

TEST_F(AttemptTest, ARequestBesideAnAttemptThatSucceedsIsToldSo) {
  const AfterASuccess seen;
  EXPECT_EQ(Of(seen.instance->events, seen.thread), (Events{2, 1}));
}

// Every attempt finds a server that listens, and loses the link again.
TEST_F(AttemptTest, ShortRequestsSucceedWhileOthersSendAndConnect) {
  constexpr int kConnections = 200;
  ScriptedServer server;
  const Instance instance(server.device());
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  std::atomic<int> connections{0};
  std::vector<std::thread> others;
  for (int i = 0; i < 3; ++i) {
    others.emplace_back([&] {
      while (connections < kConnections) (void)instance.Send(600, Bytes(100), 50);
    });
  }
  others.emplace_back([&] {
    for (; connections < kConnections; ++connections) {
      Peer peer = server.Accept();
      (void)peer.Read(29, 1000);  // until the link is in use: a slow machine must have seen that it is up
      peer.Reset();
    }
  });
  int failures = 0;
  while (connections < kConnections) {
    const ElapsedTime time;
    const bool isConnected = libzel_reconnect(instance, 200);
    // On a machine that stood still an attempt may have taken too long.
    failures += isConnected || time.Ms() > time.AwakeMs() ? 0 : 1;
  }
  for (std::thread& other : others) other.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace zeltest
