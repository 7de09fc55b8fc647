// Losing the server and finding it again.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/Wire.h"

namespace zeltest {
namespace {

using Events = std::vector<int32_t>;

class ReconnectTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  static int64_t MsBetween(const SeenEvent& first, const SeenEvent& second) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(second.when - first.when).count();
  }

  ScriptedServer server;
};

// ---- The paced reconnect ----------------------------------------------------------------------------------

TEST_F(ReconnectTest, SendAfterAFailedCreationFailsWith5UntilTheIntervalHasPassed) {
  server.StopListening();
  const ElapsedTime time;
  const Instance instance(server.device());
  server.Listen();
  while (time.Ms() < 1500) ASSERT_EQ(instance.Send(600, {}), -1) << time.Ms();
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
  EXPECT_EQ(instance.events.Numbers(), (Events{2, 6}));
  EXPECT_TRUE(Eventually([&] { return instance.Send(600, {}) == 29; }));
  EXPECT_GE(time.Ms(), 2000);
  EXPECT_EQ(instance.events.Numbers(), (Events{2, 6, 2, 1}));
}

TEST_F(ReconnectTest, IntervalOf0LetsTheNextSendReconnect) {
  server.StopListening();
  const Instance instance(server.device());
  server.Listen();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(instance.Send(600, {}), 29);
}

TEST_F(ReconnectTest, PacedAttemptIsLogged) {
  server.StopListening();
  const Instance instance(server.device());
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const CapturedLog log;
  EXPECT_EQ(instance.Send(600, {}), -1);
  EXPECT_TRUE(log.HasStart(
      "DEBUG", "trigger Reconnect  HostName:" + server.host() + ",port:9999,isDomain:0,IntercalSec:0."));
}

TEST_F(ReconnectTest, PacedAttemptOfASendWaitsForItsTimeout) {
  server.StopListening();
  const Instance instance(server.device());
  server.Stall();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const ElapsedTime time;
  EXPECT_EQ(instance.Send(600, {}, 250), -1);
  EXPECT_GE(time.Ms(), 245);
  EXPECT_LT(time.AwakeMs(), 1400);
}

TEST_F(ReconnectTest, RecvReconnectsToo) {
  server.StopListening();
  const Instance instance(server.device());
  server.Listen();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  Bytes buffer(8);
  EXPECT_EQ(instance.Receive(buffer, 100), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  EXPECT_EQ(instance.events.Numbers(), (Events{2, 6, 2, 1}));
}

TEST_F(ReconnectTest, ReceiveThreadTriesAtTheInterval) {
  server.StopListening();
  const Instance instance(server.device());
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 1), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  ASSERT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 4));
  std::vector<SeenEvent> attempts;
  for (const SeenEvent& seen : instance.events.All()) {
    if (seen.event == ZEL_EVENT_PENDING) attempts.push_back(seen);
  }
  for (size_t i = 1; i < 4; ++i) {
    // An attempt is reported a little after its interval began.
    EXPECT_GE(MsBetween(attempts[i - 1], attempts[i]), 800);
    EXPECT_NE(attempts[i].thread, std::this_thread::get_id());
  }
}

TEST_F(ReconnectTest, ReceiveThreadFindsTheServerAgain) {
  Link link(server);
  EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 0), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  MessageRecorder seen;
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
  link.peer.Close();
  Peer again = server.Accept();
  EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_CONNECTED, 2));
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1, 5, 2, 1}));
  EXPECT_TRUE(again.Send(Message(0, 600, Text("x"))));
  EXPECT_TRUE(seen.Await(1));
  link.instance.Release();
}

TEST_F(ReconnectTest, ReconnectOnRequestDoesNotRestartTheTimer) {
  server.StopListening();
  const Instance instance(server.device());
  const ElapsedTime time;
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 1), 0);
  ASSERT_TRUE(Eventually([&] { return time.Ms() >= 900; }));
  EXPECT_FALSE(libzel_reconnect(instance, 100));
  ASSERT_TRUE(Eventually([&] { return time.Ms() >= 1100; }));
  server.Listen();
  EXPECT_EQ(instance.Send(600, {}), 29);
}

TEST_F(ReconnectTest, DelaySetChangesTheInterval) {
  server.StopListening();
  const Instance instance(server.device());
  server.Listen();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_FALSE(server.IsCalled(2500));
}

// ---- Order ------------------------------------------------------------------------------------------------

TEST_F(ReconnectTest, SubscriptionsFollowTheConnectEventInTheOrderOfTheirTopics) {
  struct State {
    ScriptedServer& server;
    EventRecorder events;
    Peer again;
    bool armed = false;
    bool early = false;
  } state{server, {}, {}};
  const auto callback = [](const ZelDeviceId* device, void* user, int32_t event) {
    auto& mine = *static_cast<State*>(user);
    EventRecorder::Callback(device, &mine.events, event);
    if (!mine.armed || event != ZEL_EVENT_CONNECTED) return;
    mine.again = mine.server.Accept();
    mine.early = mine.again.HasInput(50);
  };
  const ZelInstance instance = libzel_createInstanceEx(&server.device(), 0, 1000, callback, &state);
  Peer first = server.Accept();
  for (const char* topic : {"b", "c", "a", "B"}) {
    EXPECT_EQ(libzel_subscribe(instance, topic, TopicRecorder::Callback, nullptr), 0);
    EXPECT_TRUE(first.ReadRequest().whole);
  }
  first.Close();
  Bytes buffer(8);
  (void)libzel_sync_recv(instance, nullptr, buffer.data(), 8, 1000);
  state.armed = true;
  EXPECT_TRUE(libzel_reconnect(instance, 1000));
  EXPECT_FALSE(state.early);
  for (const char* topic : {"B", "a", "b", "c"}) {
    EXPECT_EQ(state.again.ReadRequest().payload, Record("sub", topic, {}));
  }
  EXPECT_EQ(state.events.Numbers(), (Events{2, 1, 5, 2, 1}));
  (void)libzel_releaseInstance(instance);
}

TEST_F(ReconnectTest, SubscriptionsAreSentAgainOnALiveLink) {
  Link link(server);
  EXPECT_EQ(libzel_subscribe(link.instance, "a", TopicRecorder::Callback, nullptr), 0);
  EXPECT_TRUE(libzel_reconnect(link.instance, 1000));
  for (uint32_t id = 1; id <= 2; ++id) {
    const Request request = link.peer.ReadRequest();
    EXPECT_EQ(request.invokeId, id);
    EXPECT_EQ(request.payload, Record("sub", "a", {}));
  }
}

TEST_F(ReconnectTest, EndedSubscriptionIsNotSentAgain) {
  Link link(server);
  EXPECT_EQ(libzel_subscribe(link.instance, "a", TopicRecorder::Callback, nullptr), 0);
  EXPECT_EQ(libzel_unsubscribe(link.instance, "a"), 0);
  for (int i = 0; i < 2; ++i) (void)link.peer.ReadRequest();
  EXPECT_TRUE(libzel_reconnect(link.instance, 1000));
  EXPECT_FALSE(link.peer.HasInput(50));
}

// The events of a lost link and the end of the connection, in the order in which they happened.
struct LossOrder {
  Peer* peer = nullptr;
  std::atomic<bool> reported{false};
  std::atomic<bool> endedBefore{false};

  static void Callback(const ZelDeviceId*, void* user, int32_t event) {
    auto& mine = *static_cast<LossOrder*>(user);
    if (event != ZEL_EVENT_DISCONNECTED) return;
    mine.endedBefore = mine.peer->AwaitEnd(300);
    mine.reported = true;
  }
};

TEST_F(ReconnectTest, PeersCloseIsReportedBeforeTheLinkIsShutDown) {
  LossOrder order;
  const ZelInstance instance =
      libzel_createInstanceEx(&server.device(), 0, 1000, LossOrder::Callback, &order);
  Peer peer = server.Accept();
  order.peer = &peer;
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  peer.EndSending();
  ASSERT_TRUE(Eventually([&] { return order.reported.load(); }));
  EXPECT_FALSE(order.endedBefore);
  EXPECT_TRUE(peer.AwaitEnd());
  (void)libzel_releaseInstance(instance);
}

TEST_F(ReconnectTest, BadLengthIsReportedAfterTheLinkIsShutDown) {
  LossOrder order;
  const ZelInstance instance =
      libzel_createInstanceEx(&server.device(), 0, 1000, LossOrder::Callback, &order);
  Peer peer = server.Accept();
  order.peer = &peer;
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 0)));
  ASSERT_TRUE(Eventually([&] { return order.reported.load(); }));
  EXPECT_TRUE(order.endedBefore);
  (void)libzel_releaseInstance(instance);
}

TEST_F(ReconnectTest, ReconnectInsideAnEventOfItsOwnAttemptTellsHowThingsStand) {
  struct State {
    ZelInstance instance = 0;
    std::vector<std::pair<int32_t, bool>> results;
  } state;
  const auto callback = [](const ZelDeviceId*, void* user, int32_t event) {
    auto& mine = *static_cast<State*>(user);
    if (mine.instance != 0) mine.results.emplace_back(event, libzel_reconnect(mine.instance, 1000));
  };
  server.StopListening();
  state.instance = libzel_createInstanceEx(&server.device(), 0, 1000, callback, &state);
  EXPECT_FALSE(libzel_reconnect(state.instance, 1000));
  server.Listen();
  EXPECT_TRUE(libzel_reconnect(state.instance, 1000));
  const std::vector<std::pair<int32_t, bool>> wanted = {{2, false}, {6, false}, {2, false}, {1, true}};
  EXPECT_EQ(state.results, wanted);
  (void)libzel_releaseInstance(state.instance);
}

TEST_F(ReconnectTest, LinkThatWasResetUnnoticedIsMadeAnew) {
  Link link(server);
  link.peer.Reset();
  EXPECT_TRUE(Eventually([&] {
    // Until the reset has arrived, the link counts as a live one.
    EXPECT_TRUE(libzel_reconnect(link.instance, 1000));
    return server.IsCalled(10);
  }));
  EXPECT_TRUE(server.Accept().IsOpen());
}

TEST_F(ReconnectTest, CallbackMaySendWhileTheLinkIsBeingMade) {
  struct State {
    std::atomic<ZelInstance> instance{0};
    std::atomic<int32_t> pending{0};
    std::atomic<int32_t> connected{0};
  } state;
  const auto callback = [](const ZelDeviceId*, void* user, int32_t event) {
    auto& mine = *static_cast<State*>(user);
    if (mine.instance == 0) return;
    const int32_t sent = libzel_sync_send(mine.instance, 600, 0, 0, nullptr, 0, 100);
    if (event == ZEL_EVENT_PENDING) mine.pending = sent;
    if (event == ZEL_EVENT_CONNECTED) mine.connected = sent;
  };
  server.StopListening();
  const ZelInstance instance = libzel_createInstanceEx(&server.device(), 0, 1000, callback, &state);
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  server.Listen();
  state.instance = instance;
  EXPECT_TRUE(libzel_reconnect(instance, 1000));
  EXPECT_EQ(state.pending, -1);
  EXPECT_EQ(state.connected, 29);
  (void)libzel_releaseInstance(instance);
}

}  // namespace
}  // namespace zeltest
