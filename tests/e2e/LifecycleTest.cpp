// The library's frame and the life of an instance.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

class LifecycleTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  static std::string ReadyLine(const std::string& host, const std::string& timeoutMs) {
    return "tcpclient ready connect  HostName:" + host + ",port:9999,timeoutms:" + timeoutMs + ",isDomain:0";
  }
};

// ---- Start ------------------------------------------------------------------------------------------------

TEST_F(LifecycleTest, InitTellsItsVersionFirst) {
  const auto& log = StartLibrary().log;
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log[0].level, "NOTICE");
  EXPECT_EQ(log[0].message, "libzelclient Version 0.2.3");
}

TEST_F(LifecycleTest, InitTellsItsBuildTime) {
  const auto& log = StartLibrary().log;
  ASSERT_GE(log.size(), 2U);
  EXPECT_EQ(log[1].level, "NOTICE");
  const std::regex expected(R"(libzelclient Compile Time:\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})");
  EXPECT_TRUE(std::regex_match(log[1].message, expected)) << log[1].message;
}

TEST_F(LifecycleTest, InitHidesTraceLinesAndShowsDebugLines) {
  ScriptedServer server;
  const CapturedLog log;
  const Instance instance(server.device());
  int traces = 0;
  for (const LogLine& line : log.Lines()) traces += line.level == "TRACE" ? 1 : 0;
  EXPECT_EQ(traces, 0);
  EXPECT_TRUE(log.Has("DEBUG", "Create  TCP Socket,Ready HostName:" + server.host() + ",port:9999"));
}

// ---- Creation ---------------------------------------------------------------------------------------------

TEST_F(LifecycleTest, CreateRefusesTheTypes1To4) {
  ScriptedServer server;
  for (const uint32_t type : {1U, 2U, 3U, 4U}) {
    EXPECT_EQ(libzel_createInstance(&server.device(), type), 0U);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_PROTOCOL);
  }
  EXPECT_FALSE(server.IsCalled(50));
}

TEST_F(LifecycleTest, CreateTakesEveryOtherTypeForTcp) {
  ScriptedServer server;
  for (const uint32_t type : {0U, 5U, 0xFFFFFFFFU}) {
    const ZelInstance instance = libzel_createInstance(&server.device(), type);
    EXPECT_NE(instance, 0U);
    EXPECT_EQ(libzel_get_errno(), 0);
    EXPECT_TRUE(server.Accept().IsOpen());
    (void)libzel_releaseInstance(instance);
  }
}

TEST_F(LifecycleTest, CreateRefusesANullIdentifier) {
  EXPECT_EQ(libzel_createInstance(nullptr, 0), 0U);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DEVICE_ID);
}

TEST_F(LifecycleTest, CreateLooksAtTheTypeBeforeTheIdentifier) {
  EXPECT_EQ(libzel_createInstance(nullptr, 3), 0U);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PROTOCOL);
}

TEST_F(LifecycleTest, CreateGivesAnInstanceAlsoWhenNobodyListens) {
  const ZelDeviceId device = DeviceWithoutServer();
  const ZelInstance instance = libzel_createInstance(&device, 0);
  EXPECT_NE(instance, 0U);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  (void)libzel_releaseInstance(instance);
}

TEST_F(LifecycleTest, CreateWaits1500Milliseconds) {
  const ZelDeviceId device = DeviceWithoutServer();
  const CapturedLog log;
  (void)libzel_releaseInstance(libzel_createInstance(&device, 0));
  EXPECT_TRUE(log.Has("INFO", ReadyLine(HostOf(device), "1500")));
}

TEST_F(LifecycleTest, CreateExWaitsAtLeast100Milliseconds) {
  struct Row {
    int32_t given;
    const char* used;
  };
  for (const Row row : {Row{0, "100"}, Row{-5, "100"}, Row{INT32_MIN, "100"}, Row{99, "100"}, Row{100, "100"},
                        Row{101, "101"}, Row{3000, "3000"}}) {
    const ZelDeviceId device = DeviceWithoutServer();
    const CapturedLog log;
    const Instance instance(device, row.given);
    EXPECT_TRUE(log.Has("INFO", ReadyLine(HostOf(device), row.used))) << row.given;
  }
}

TEST_F(LifecycleTest, CreateExGivesUpInTime) {
  ScriptedServer server;
  server.Stall();
  const ElapsedTime time;
  const Instance instance(server.device(), 300);
  EXPECT_GE(time.Ms(), 295);
  EXPECT_LT(time.AwakeMs(), 1500);
  EXPECT_EQ(instance.events.Numbers(), (std::vector<int32_t>{ZEL_EVENT_PENDING, ZEL_EVENT_FAILED}));
}

TEST_F(LifecycleTest, CreateExReportsTheConnectOnTheCallingThread) {
  ScriptedServer server;
  const Instance instance(server.device());
  EXPECT_EQ(instance.events.Numbers(), (std::vector<int32_t>{ZEL_EVENT_PENDING, ZEL_EVENT_CONNECTED}));
  for (const SeenEvent& seen : instance.events.All()) {
    EXPECT_EQ(seen.thread, std::this_thread::get_id());
    EXPECT_EQ(HostOf(seen.device), server.host());
  }
}

TEST_F(LifecycleTest, CreateExReportsARefusedConnect) {
  const Instance instance(DeviceWithoutServer());
  EXPECT_EQ(instance.events.Numbers(), (std::vector<int32_t>{ZEL_EVENT_PENDING, ZEL_EVENT_FAILED}));
}

TEST_F(LifecycleTest, CreateExWorksWithoutACallback) {
  ScriptedServer server;
  const ZelInstance instance = libzel_createInstanceEx(&server.device(), 0, 1000, nullptr, nullptr);
  EXPECT_NE(instance, 0U);
  (void)libzel_releaseInstance(instance);
}

TEST_F(LifecycleTest, ConnectLogsEachStep) {
  ScriptedServer server;
  const CapturedLog log;
  const Instance instance(server.device(), 700);
  std::vector<std::string> seen;
  for (const LogLine& line : log.Lines()) {
    if (line.level == "INFO")
      seen.push_back(std::regex_replace(line.message, std::regex(R"(\d+ byte)"), "N byte"));
  }
  EXPECT_EQ(seen,
            (std::vector<std::string>{
                ReadyLine(server.host(), "700"), "TcpSocket connect Success", "socket set send buffer N byte",
                "socket set recv buffer N byte", "socket set TCP_NODELAY Success",
                "Connect HostName:" + server.host() + ",port:9999 Success,isDomain:0"}));
}

TEST_F(LifecycleTest, RefusedConnectLogsTheReason) {
  const ZelDeviceId device = DeviceWithoutServer();
  const CapturedLog log;
  const Instance instance(device);
  EXPECT_TRUE(log.HasStart("ERROR", "TcpSocket connect failed,errno:"));
}

// ---- Release ----------------------------------------------------------------------------------------------

TEST_F(LifecycleTest, ReleaseAlwaysGives8193) {
  ScriptedServer server;
  const ZelInstance instance = libzel_createInstance(&server.device(), 0);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(libzel_releaseInstance(instance), ZEL_E_HANDLE);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
  }
}

TEST_F(LifecycleTest, ReleasedHandleIsNoLongerLive) {
  ScriptedServer server;
  const ZelInstance instance = libzel_createInstance(&server.device(), 0);
  (void)libzel_releaseInstance(instance);
  EXPECT_EQ(libzel_loop_start(instance), ZEL_E_HANDLE);
}

TEST_F(LifecycleTest, NextSuccessClearsTheErrorNumber) {
  ScriptedServer server;
  const Instance instance(server.device());
  EXPECT_EQ(libzel_loop_stop(0), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(LifecycleTest, ReleaseAbortsTheConnection) {
  ScriptedServer server;
  Link link(server);
  link.instance.Release();
  EXPECT_TRUE(link.peer.AwaitReset());
}

TEST_F(LifecycleTest, ReleaseStopsTheReceiveThread) {
  ScriptedServer server;
  Link link(server);
  const CapturedLog log;
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  link.instance.Release();
  EXPECT_EQ(log.Count("DEBUG", "Stop Loop Success"), 1);
}

TEST_F(LifecycleTest, DestoryReleasesEveryInstance) {
  ScriptedServer server;
  std::vector<ZelInstance> instances;
  for (int i = 0; i < 3; ++i) {
    instances.push_back(libzel_createInstance(&server.device(), 0));
    EXPECT_EQ(libzel_loop_start(instances.back()), 0);
  }
  EXPECT_EQ(libzel_destory(), 0);
  for (const ZelInstance instance : instances) {
    EXPECT_EQ(libzel_loop_stop(instance), ZEL_E_HANDLE);
    EXPECT_TRUE(server.Accept().AwaitEnd());
  }
  // The systems' socket library was shut down; later tests need it again.
  ASSERT_EQ(libzel_init(), 0);
}

// ---- Receive thread ---------------------------------------------------------------------------------------

TEST_F(LifecycleTest, LoopStartTwiceKeepsOneThread) {
  ScriptedServer server;
  const Instance instance(server.device());
  const CapturedLog log;
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  EXPECT_EQ(log.Count("DEBUG", "Stop Loop Success"), 1);
}

TEST_F(LifecycleTest, LoopStopWithoutAThreadGives0) {
  ScriptedServer server;
  const Instance instance(server.device());
  EXPECT_EQ(libzel_loop_stop(instance), 0);
}

TEST_F(LifecycleTest, LoopStartsAgainAfterAStop) {
  ScriptedServer server;
  Link link(server);
  MessageRecorder messages;
  ASSERT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &messages), 0);
  for (size_t i = 1; i <= 2; ++i) {
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
    EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x"))));
    EXPECT_TRUE(messages.Await(i));
    EXPECT_EQ(libzel_loop_stop(link.instance), 0);
  }
}

TEST_F(LifecycleTest, LoopStopWakesAWaitingThread) {
  ScriptedServer server;
  const Instance instance(server.device());
  const ElapsedTime time;
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(libzel_loop_start(instance), 0);
    EXPECT_EQ(libzel_loop_stop(instance), 0);
  }
  EXPECT_LT(time.AwakeMs(), 4000);
}

TEST_F(LifecycleTest, LoopStopWakesAThreadWhoseLinkIsDown) {
  const Instance instance(DeviceWithoutServer());
  const ElapsedTime time;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(libzel_loop_start(instance), 0);
    EXPECT_EQ(libzel_loop_stop(instance), 0);
  }
  EXPECT_LT(time.AwakeMs(), 4000);
}

TEST_F(LifecycleTest, LoopStopFinishesTheRunningCallback) {
  struct State {
    std::atomic<bool> entered{false};
    std::atomic<bool> left{false};
    std::atomic<bool> goOn{false};
  } state;
  ScriptedServer server;
  Link link(server);
  const auto callback = [](uint16_t, const uint8_t*, uint32_t, void* user) {
    auto& seen = *static_cast<State*>(user);
    seen.entered = true;
    (void)Eventually([&] { return seen.goOn.load(); });
    seen.left = true;
  };
  ASSERT_EQ(libzel__registerRouterEvent(link.instance, 600, callback, &state), 0);
  ASSERT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x"))));
  ASSERT_TRUE(Eventually([&] { return state.entered.load(); }));
  std::thread stopper([&] {
    EXPECT_EQ(libzel_loop_stop(link.instance), 0);
    EXPECT_TRUE(state.left);
  });
  state.goOn = true;
  stopper.join();
}

TEST_F(LifecycleTest, TwoHundredInstancesStartAndStopQuickly) {
  ScriptedServer server;
  const ElapsedTime time;
  std::vector<std::unique_ptr<Instance>> instances;
  for (int i = 0; i < 200; ++i) {
    instances.push_back(std::make_unique<Instance>(server.device()));
    EXPECT_EQ(libzel_loop_start(*instances.back()), 0);
    EXPECT_EQ(instances.back()->events.Numbers(), (std::vector<int32_t>{2, 1})) << i;
  }
  instances.clear();
  EXPECT_LT(time.AwakeMs(), 20000);
}

// ---- Reconnect on request ---------------------------------------------------------------------------------

TEST_F(LifecycleTest, ReconnectWaitsAtLeast50Milliseconds) {
  struct Row {
    int32_t given;
    const char* used;
  };
  ScriptedServer server;
  const Instance instance(server.device());
  for (const Row row :
       {Row{0, "50"}, Row{-1, "50"}, Row{10, "50"}, Row{50, "50"}, Row{51, "51"}, Row{900, "900"}}) {
    const CapturedLog log;
    EXPECT_TRUE(libzel_reconnect(instance, row.given));
    EXPECT_TRUE(log.Has("INFO", "Reconnect  HostName:" + server.host() +
                                    ",port:9999 Success,isDomain:0,timeout:" + row.used + " ms"))
        << row.given;
  }
}

TEST_F(LifecycleTest, ReconnectOfALiveLinkReportsAgain) {
  ScriptedServer server;
  const Instance instance(server.device());
  EXPECT_TRUE(libzel_reconnect(instance, 1000));
  EXPECT_EQ(instance.events.Numbers(), (std::vector<int32_t>{2, 1, 2, 1}));
}

TEST_F(LifecycleTest, ReconnectFailsWhenNobodyListens) {
  const Instance instance(DeviceWithoutServer());
  EXPECT_FALSE(libzel_reconnect(instance, 1000));
  EXPECT_EQ(libzel_get_errno(), 0);
  EXPECT_EQ(instance.events.Numbers(), (std::vector<int32_t>{2, 6, 2, 6}));
}

// ---- Misuse -----------------------------------------------------------------------------------------------

void StopFromCallback() {
  ScriptedServer server;
  Link link(server);
  const auto callback = [](uint16_t, const uint8_t*, uint32_t, void* user) {
    (void)libzel_loop_stop(*static_cast<const ZelInstance*>(user));
  };
  ZelInstance handle = link.instance;
  (void)libzel__registerRouterEvent(handle, 600, callback, &handle);
  (void)libzel_loop_start(handle);
  (void)link.peer.Send(Message(0, 600, Text("x")));
  (void)link.peer.AwaitEnd();
}

TEST_F(LifecycleTest, StoppingTheLoopFromACallbackEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(StopFromCallback(), "");
}

}  // namespace
}  // namespace zeltest
