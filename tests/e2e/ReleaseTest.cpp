// What goes on beside a release or the library's end: callbacks, creations, other instances.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/FileDevice.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"
#include "support/Wire.h"

namespace zeltest {
namespace {

using Events = std::vector<int32_t>;

int32_t PublishALot(ZelInstance instance) {
  static const Bytes data(10000000, 'd');
  return libzel_publish(instance, 1, 2, "topic", data.data(), static_cast<uint32_t>(data.size()));
}

bool IsLive(ZelInstance instance) { return libzel_reconnect_delay_set(instance, 3600) == 0; }

// The time that ending the library takes, in ms.
int64_t Destroy() {
  const ElapsedTime time;
  EXPECT_EQ(libzel_destory(), 0);
  const int64_t elapsedMs = time.AwakeMs();
  EXPECT_EQ(libzel_init(), 0);  // the later tests' start
  return elapsedMs;
}

class ReleaseTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  std::vector<std::string> Errors() const {
    std::vector<std::string> errors;
    for (const LogLine& line : log.Lines()) {
#ifdef _WIN32
      // Wine does not know this option, which is said at every connect.
      if (line.message.starts_with("socket set sock TCP_KEEPIDLE error")) continue;
#endif
      if (line.level == "ERROR") errors.push_back(line.message);
    }
    return errors;
  }

  const Deadline deadline{100};
  const CapturedLog log;
  ScriptedServer server;
};

// ---- Afterwards -------------------------------------------------------------------------------------------

TEST_F(ReleaseTest, LaterCallsGive8193) {
  Link link(server);
  const ZelInstance handle = link.instance;
  EXPECT_EQ(libzel_releaseInstance(handle), ZEL_E_HANDLE);
  uint8_t byte = 0;
  EXPECT_EQ(libzel_loop_start(handle), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_loop_stop(handle), ZEL_E_HANDLE);
  EXPECT_FALSE(libzel_reconnect(handle, 1000));
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_sync_send(handle, 600, 0, 0, &byte, 1, 10), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_sync_recv(handle, nullptr, &byte, 1, 10), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_publish(handle, 1, 2, "topic", &byte, 1), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_subscribe(handle, "topic", TopicRecorder::Callback, nullptr), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_unsubscribe(handle, "topic"), ZEL_E_HANDLE);
}

TEST_F(ReleaseTest, EverySenderOfABlockedLinkIsLetGo) {
  const int64_t quickestMs = QuickestMs([&] {
    Link link(server);
    std::vector<std::unique_ptr<OngoingCall>> senders;
    for (int i = 0; i < 4; ++i) {
      senders.push_back(std::make_unique<OngoingCall>(
          [handle = ZelInstance{link.instance}] { return PublishALot(handle); }));
    }
    EXPECT_TRUE(link.peer.HasInput(kPatienceMs));
    const auto start = std::chrono::steady_clock::now();
    link.instance.Release();
    int64_t lastMs = 0;
    for (const auto& sender : senders) {
      if (!sender->Await(1000)) link.peer.Close();
      EXPECT_TRUE(sender->Await());
      lastMs = std::max(lastMs, sender->end().MsSince(start));
    }
    return lastMs;
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(ReleaseTest, AReconnectThatWaitsForAnotherIsLetGo) {
  const int64_t quickestMs = QuickestMs([] {
    Instance instance(UnreachableDevice(0), 100);
    const ZelInstance handle = instance;
    const OngoingCall first([=] { return libzel_reconnect(handle, 3000); });
    EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
    const OngoingCall second([=] { return libzel_reconnect(handle, 3000); });
    (void)second.Await(50);  // it has no way to tell that it waits
    const auto start = std::chrono::steady_clock::now();
    instance.Release();
    EXPECT_TRUE(first.Await() && second.Await());
    EXPECT_EQ(second.end().result, 0);
    return std::max(first.end().MsSince(start), second.end().MsSince(start));
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

// ---- The receive thread -----------------------------------------------------------------------------------

TEST_F(ReleaseTest, AnIdleReceiveThreadLogsNoErrorAndTellsNothing) {
  Link link(server);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  link.instance.Release();
  EXPECT_TRUE(link.peer.AwaitEnd());
  EXPECT_EQ(Errors(), std::vector<std::string>{});
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

// A message that comes whole shows that the thread is about to read the half one.
void SendOneMessageAndAHalf(Link& link, MessageRecorder& seen) {
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x")) + OuterHeader(0, 600, 100000) + Bytes(50000)));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(ReleaseTest, AReceiveThreadInsideABodyLogsNoErrorAndTellsNothing) {
  MessageRecorder seen;
  Link link(server);
  SendOneMessageAndAHalf(link, seen);
  link.instance.Release();
  EXPECT_EQ(Errors(), std::vector<std::string>{});
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

TEST_F(ReleaseTest, AReceiveThreadInsideABodyHoldsUpNobody) {
  const int64_t quickestMs = QuickestMs([&] {
    MessageRecorder seen;
    Link link(server);
    SendOneMessageAndAHalf(link, seen);
    const ElapsedTime time;
    link.instance.Release();
    return time.Ms();
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(ReleaseTest, AReceiveThreadThatReconnectsTellsNothing) {
  Instance instance(UnreachableDevice(0), 100);
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
  instance.Release();
  EXPECT_EQ(instance.events.Numbers(), (Events{2, 6, 2}));
}

TEST_F(ReleaseTest, LoopStopCancelsNoReceive) {
  Link link(server);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  const OngoingCall call([&] {
    Bytes buffer(8);
    return link.instance.Receive(buffer);
  });
  EXPECT_EQ(libzel_loop_stop(link.instance), 0);
  EXPECT_TRUE(link.peer.Send(Answer(600, 77, Text("x"))));
  ASSERT_TRUE(log.Await("ERROR", "LastinvokeId:0 !=recv invokeId:77"));
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_EQ(libzel_loop_stop(link.instance), 0);
  EXPECT_TRUE(link.peer.Send(Answer(600, 0, Text("four"))));
  ASSERT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, 4);
}

TEST_F(ReleaseTest, LoopStopCancelsNoSend) {
  Link link(server);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  const OngoingCall call([&] { return PublishALot(link.instance); });
  EXPECT_TRUE(link.peer.HasInput(kPatienceMs));
  EXPECT_EQ(libzel_loop_stop(link.instance), 0);
  EXPECT_FALSE(call.Await(50));
  EXPECT_TRUE(link.peer.ReadRequest(60000).whole);
  ASSERT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, 0);
}

// ---- Event callbacks --------------------------------------------------------------------------------------

// Holds up the reconnect that the test makes, at one event.
struct Gate {
  ZelInstance instance = 0;
  int32_t event = ZEL_EVENT_PENDING;
  std::atomic<bool> isEntered{false};
  std::atomic<bool> isOpen{false};
  std::atomic<bool> isLeft{false};
  EventRecorder events;

  static void Callback(const ZelDeviceId* device, void* user, int32_t event) {
    auto& gate = *static_cast<Gate*>(user);
    EventRecorder::Callback(device, &gate.events, event);
    if (gate.instance == 0 || event != gate.event) return;
    gate.isEntered = true;
    EXPECT_TRUE(Eventually([&] { return gate.isOpen.load(); }));
    gate.isLeft = true;
  }
};

TEST_F(ReleaseTest, WaitsForAnEventCallbackOfAnotherThread) {
  Gate gate;
  gate.instance = libzel_createInstanceEx(&server.device(), 0, 1000, Gate::Callback, &gate);
  const OngoingCall reconnect([&] { return libzel_reconnect(gate.instance, 1000); });
  ASSERT_TRUE(Eventually([&] { return gate.isEntered.load(); }));
  const OngoingCall release([&] {
    (void)libzel_releaseInstance(gate.instance);
    return gate.isLeft.load();
  });
  EXPECT_FALSE(release.Await(50));
  gate.isOpen = true;
  ASSERT_TRUE(release.Await());
  EXPECT_EQ(release.end().result, 1);
}

TEST_F(ReleaseTest, EndsTheLinkBeforeItWaitsForAnEventCallback) {
  Gate gate;
  gate.instance = libzel_createInstanceEx(&server.device(), 0, 1000, Gate::Callback, &gate);
  Peer peer = server.Accept();
  const OngoingCall reconnect([&] { return libzel_reconnect(gate.instance, 1000); });
  ASSERT_TRUE(Eventually([&] { return gate.isEntered.load(); }));
  const OngoingCall release([&] { return libzel_releaseInstance(gate.instance); });
  EXPECT_TRUE(peer.AwaitEnd(2000));
  EXPECT_FALSE(gate.isLeft);
  gate.isOpen = true;
}

TEST_F(ReleaseTest, AnAttemptWhoseCallbackItWaitedForTellsNothingMore) {
  Gate gate;
  gate.instance = libzel_createInstanceEx(&server.device(), 0, 1000, Gate::Callback, &gate);
  const OngoingCall reconnect([&] { return libzel_reconnect(gate.instance, 1000); });
  ASSERT_TRUE(Eventually([&] { return gate.isEntered.load(); }));
  const OngoingCall release([&] { return libzel_releaseInstance(gate.instance); });
  ASSERT_TRUE(Eventually([&] { return !IsLive(gate.instance); }));
  gate.isOpen = true;
  ASSERT_TRUE(reconnect.Await() && release.Await());
  EXPECT_EQ(gate.events.Numbers(), (Events{2, 1, 2}));
  EXPECT_EQ(reconnect.end().result, 0);
  EXPECT_EQ(reconnect.end().error, ZEL_E_DISCONNECTED);
}

TEST_F(ReleaseTest, ASendInsideAnEventCallbackIsLetGo) {
  struct State {
    std::atomic<ZelInstance> instance{0};
    std::atomic<int32_t> result{0};
  } state;
  const auto callback = [](const ZelDeviceId*, void* user, int32_t event) {
    auto& mine = *static_cast<State*>(user);
    if (mine.instance != 0 && event == ZEL_EVENT_CONNECTED) mine.result = PublishALot(mine.instance);
  };
  state.instance = libzel_createInstanceEx(&server.device(), 0, 1000, callback, &state);
  Peer peer = server.Accept();
  const OngoingCall reconnect([&] { return libzel_reconnect(state.instance, 1000); });
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  const OngoingCall release([&] { return libzel_releaseInstance(state.instance); });
  EXPECT_TRUE(release.Await(2000) && reconnect.Await(2000));
  peer.Close();
  EXPECT_TRUE(reconnect.Await());
  EXPECT_EQ(state.result, ZEL_E_DISCONNECTED);
}

TEST_F(ReleaseTest, MayComeFromAnEventCallbackOfAnApplicationThread) {
  struct State {
    ZelInstance instance = 0;
    EventRecorder events;
  } state;
  const auto callback = [](const ZelDeviceId* device, void* user, int32_t event) {
    auto& mine = *static_cast<State*>(user);
    EventRecorder::Callback(device, &mine.events, event);
    if (mine.instance != 0) (void)libzel_releaseInstance(mine.instance);
  };
  state.instance = libzel_createInstanceEx(&server.device(), 0, 1000, callback, &state);
  const OngoingCall reconnect([&] { return libzel_reconnect(state.instance, 1000); });
  ASSERT_TRUE(reconnect.Await());
  EXPECT_EQ(reconnect.end().result, 0);
  EXPECT_EQ(state.events.Numbers(), (Events{2, 1, 2}));
}

TEST_F(ReleaseTest, NoEventComesAfterwards) {
  struct State {
    std::atomic<bool> isReleased{false};
    std::atomic<int> late{0};
  };
  const auto callback = [](const ZelDeviceId*, void* user, int32_t) {
    auto& mine = *static_cast<State*>(user);
    if (mine.isReleased) ++mine.late;
  };
  int late = 0;
  for (int round = 0; round < 50; ++round) {
    State state;
    const ZelInstance handle = libzel_createInstanceEx(&server.device(), 0, 1000, callback, &state);
    std::vector<std::unique_ptr<OngoingCall>> callers;
    for (int i = 0; i < 2; ++i) {
      callers.push_back(std::make_unique<OngoingCall>([=] {
        while (libzel_reconnect(handle, 1000)) {
        }
        return 0;
      }));
    }
    (void)callers[0]->Await(round % 4);
    (void)libzel_releaseInstance(handle);
    state.isReleased = true;
    callers.clear();
    late += state.late;
  }
  EXPECT_EQ(late, 0);
}

// ---- Callbacks of the receive thread ----------------------------------------------------------------------

TEST_F(ReleaseTest, ACallbackThatPublishesToAServerThatDoesNotReadIsLetGo) {
  struct State {
    ZelInstance instance;
    std::atomic<int32_t> result{0};
  };
  Link link(server);
  State state{link.instance};
  const auto callback = [](uint16_t, const uint8_t*, uint32_t, void* user) {
    auto& mine = *static_cast<State*>(user);
    mine.result = PublishALot(mine.instance);
  };
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, callback, &state), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x"))));
  EXPECT_TRUE(link.peer.HasInput(kPatienceMs));
  const OngoingCall release([&] { return libzel_releaseInstance(state.instance); });
  EXPECT_TRUE(release.Await(2000));
  link.peer.Close();
  EXPECT_TRUE(release.Await());
  EXPECT_EQ(state.result, ZEL_E_DISCONNECTED);
}

// A callback of the receive thread that goes on when its instance is no longer live.
struct Rest {
  ZelInstance instance = 0;
  std::function<void()> rest;
  std::atomic<bool> isEntered{false};
  std::atomic<bool> mayGoOn{false};
  std::atomic<bool> isDone{false};

  static void Callback(uint16_t, const uint8_t*, uint32_t, void* user) {
    auto& mine = *static_cast<Rest*>(user);
    mine.isEntered = true;
    EXPECT_TRUE(Eventually([&] { return mine.mayGoOn && !IsLive(mine.instance); }));
    mine.rest();
    mine.isDone = true;
  }

  // Has the callback run while another thread releases the instance, and waits for both.
  void RunBesideARelease(Link& link) {
    instance = link.instance;
    EXPECT_EQ(libzel__registerRouterEvent(instance, 600, Callback, this), 0);
    EXPECT_EQ(libzel_loop_start(instance), 0);
    EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x"))));
    EXPECT_TRUE(Eventually([&] { return isEntered.load(); }));
    mayGoOn = true;
    const OngoingCall release([&] { return libzel_releaseInstance(instance); });
    EXPECT_TRUE(release.Await());
    EXPECT_TRUE(isDone);
  }
};

TEST_F(ReleaseTest, ACallbackThatIsWaitedForHoldsUpNoOtherInstance) {
  ScriptedServer otherServer;
  Link link(server), other(otherServer);
  Rest rest;
  rest.rest = [&] {
    const OngoingCall call([&] {
      uint8_t byte = 0;
      return libzel_sync_send(other.instance, 600, 1, 2, &byte, 1, 1000) + libzel_loop_start(other.instance) +
             libzel_loop_stop(other.instance);
    });
    EXPECT_TRUE(call.Await(5000));
    EXPECT_EQ(call.end().result, 30);
  };
  rest.RunBesideARelease(link);
}

TEST_F(ReleaseTest, ACallbackMayAskADeviceMeanwhile) {
  ScriptedServer device;
  Link link(server);
  Rest rest;
  rest.rest = [&] {
    const ZelDeviceAddr target{device.device(), 600};
    EXPECT_EQ(ZelSyncReadReq(&target, 1, 2, 0, nullptr, nullptr, 100), 0xFFFFFFFFU);
  };
  rest.RunBesideARelease(link);
  EXPECT_TRUE(device.Accept().ReadRequest().whole);
}

TEST_F(ReleaseTest, ACallbackMayStartAFileTransferMeanwhile) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  const FileDevice device;
  static ProgressRecorder progress;
  Link link(server);
  Rest rest;
  rest.rest = [&] {
    (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "to", ProgressRecorder::Callback, &progress);
  };
  rest.RunBesideARelease(link);
  EXPECT_TRUE(
      progress.AwaitThat([](const auto& steps) { return !steps.empty() && steps.back().state == 2; }));
}

// ---- The library's end ------------------------------------------------------------------------------------

TEST_F(ReleaseTest, DestroyEndsTwentyReconnectsAtOnce) {
  constexpr int kInstances = 20;
  std::vector<std::unique_ptr<Instance>> instances(kInstances);
  std::vector<std::thread> creators;
  for (int i = 0; i < kInstances; ++i) {
    auto& instance = instances[static_cast<size_t>(i)];
    creators.emplace_back(
        [&instance, i] { instance = std::make_unique<Instance>(UnreachableDevice(i), 100); });
  }
  for (std::thread& creator : creators) creator.join();
  for (const auto& instance : instances) {
    EXPECT_EQ(libzel_reconnect_delay_set(*instance, 0), 0);
    EXPECT_EQ(libzel_loop_start(*instance), 0);
  }
  for (const auto& instance : instances) EXPECT_TRUE(instance->events.AwaitEvent(ZEL_EVENT_PENDING, 2));
  EXPECT_LT(Destroy(), 1000);
}

// An instance whose creation is under way when the library is ended.
class DestroyedCreationTest : public ReleaseTest {
 protected:
  DestroyedCreationTest() {
    const OngoingCall creation([this] {
      const ZelDeviceId device = UnreachableDevice(0);
      return static_cast<int64_t>(
          libzel_createInstanceEx(&device, 0, 2500, EventRecorder::Callback, &events));
    });
    EXPECT_TRUE(events.AwaitEvent(ZEL_EVENT_PENDING));
    const auto start = std::chrono::steady_clock::now();
    (void)Destroy();
    EXPECT_TRUE(creation.Await());
    instance = static_cast<ZelInstance>(creation.end().result);
    elapsedMs = creation.end().MsSince(start);
  }

  EventRecorder events;
  ZelInstance instance = 0;
  int64_t elapsedMs = 0;
};

TEST_F(DestroyedCreationTest, GivesItsHandle) { EXPECT_NE(instance, 0U); }

TEST_F(DestroyedCreationTest, GivesAHandleThatIsNotLive) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 1), ZEL_E_HANDLE);
}

TEST_F(DestroyedCreationTest, StartsNoReceiveThread) { EXPECT_EQ(libzel_loop_start(instance), ZEL_E_HANDLE); }

TEST_F(DestroyedCreationTest, TellsNothingMore) { EXPECT_EQ(events.Numbers(), (Events{2})); }

TEST_F(DestroyedCreationTest, EndsAtOnce) { EXPECT_LT(elapsedMs, 1000); }

bool IsConnecting(const CapturedLog& log, const std::string& host) {
  return log.Await("INFO",
                   "tcpclient ready connect  HostName:" + host + ",port:9999,timeoutms:1500,isDomain:0");
}

TEST_F(ReleaseTest, DestroyEndsAReadRequestThatConnects) {
  int round = 0;
  const int64_t quickestMs = QuickestMs([&] {
    const ZelDeviceId device = UnreachableDevice(30 + ++round);
    const ZelDeviceAddr target{device, 600};
    const OngoingCall call([&] { return ZelSyncReadReq(&target, 1, 2, 0, nullptr, nullptr, 100); });
    EXPECT_TRUE(IsConnecting(log, HostOf(device)));
    const auto start = std::chrono::steady_clock::now();
    (void)Destroy();
    EXPECT_TRUE(call.Await());
    EXPECT_EQ(call.end().result, 0xFFFFFFFF);
    return call.end().MsSince(start);
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

// Lives as long as the process: the transfers that use it are over some time later.
ProgressRecorder& NewProgress() {
  static auto& kept = *new std::list<ProgressRecorder>;
  return kept.emplace_back();
}

bool HasFailed(const ProgressRecorder& progress, int timeoutMs = kRecorderPatienceMs) {
  return progress.AwaitThat(
      [](const auto& steps) {
        return !steps.empty() && steps.back().state == 3 && steps.back().error == ZEL_E_FILE_TRANSFER;
      },
      timeoutMs);
}

TEST_F(ReleaseTest, DestroyEndsAFileTransferThatConnects) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  int round = 0;
  const int64_t quickestMs = QuickestMs([&] {
    const ZelDeviceAddr target{UnreachableDevice(60 + ++round), 700};
    ProgressRecorder& progress = NewProgress();
    const OngoingCall call([&] {
      return ZelFileTransfer(target, 0, 0, path.c_str(), "to", ProgressRecorder::Callback, &progress);
    });
    EXPECT_TRUE(IsConnecting(log, HostOf(target.id)));
    const auto start = std::chrono::steady_clock::now();
    (void)Destroy();
    EXPECT_TRUE(call.Await());
    EXPECT_TRUE(HasFailed(progress));
    return call.end().MsSince(start);
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_F(ReleaseTest, DestroyEndsAFileTransferThatWaitsForItsAnswer) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  const int64_t quickestMs = QuickestMs([&] {
    const FileDevice device([](const Bytes&, size_t) { return Bytes{}; });
    ProgressRecorder& progress = NewProgress();
    (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "to", ProgressRecorder::Callback, &progress);
    EXPECT_TRUE(device.messages.Await(1));
    const ElapsedTime time;
    (void)Destroy();
    EXPECT_TRUE(HasFailed(progress));
    return time.Ms();
  });
  EXPECT_LT(quickestMs, kPromptMs);
}

}  // namespace
}  // namespace zeltest
