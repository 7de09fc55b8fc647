// Children that a process forks off while it uses the library.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/FileDevice.h"
#include "support/ForkedChild.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OwnProcess.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

// Counts what is not as it should be.
class Wrongs {
 public:
  void Count(bool isRight) {
    ++checks_;
    if (!isRight && first_ == 0) first_ = checks_;
  }
  // The number of the first check that failed, 0 when none did.
  int first() const { return first_; }

 private:
  int checks_ = 0;
  int first_ = 0;
};

bool IsRefused(bool isFailure) { return isFailure && libzel_get_errno() == ZEL_E_HANDLE; }
bool IsRefused(int32_t code) { return IsRefused(code == ZEL_E_HANDLE); }

int CallEverything(ZelInstance instance) {
  uint8_t byte = 0;
  ZelDeviceId id{{127, 0, 0, 1, 0, 1}};
  ZelDeviceAddr address{id, 700};
  Wrongs wrongs;
  wrongs.Count(IsRefused(libzel_init() == -1));
  wrongs.Count(IsRefused(ZelInit() == -1));
  wrongs.Count(IsRefused(libzel_createInstance(&id, 0) == 0));
  wrongs.Count(IsRefused(libzel_createInstanceEx(&id, 0, 100, nullptr, nullptr) == 0));
  wrongs.Count(IsRefused(libzel_loop_start(instance)));
  wrongs.Count(IsRefused(libzel_loop_stop(instance)));
  wrongs.Count(IsRefused(!libzel_reconnect(instance, 100)));
  wrongs.Count(IsRefused(libzel_reconnect_delay_set(instance, 1)));
  wrongs.Count(IsRefused(libzel_registerZelScanEvent(nullptr, nullptr)));
  wrongs.Count(IsRefused(libzel_startZelScan()));
  wrongs.Count(IsRefused(libzel_stopZelScan()));
  wrongs.Count(IsRefused(libzel_sync_send(instance, 600, 1, 2, &byte, 1, 100) == -1));
  wrongs.Count(IsRefused(libzel_sync_recv(instance, nullptr, &byte, 1, 100) == -1));
  wrongs.Count(IsRefused(libzel_publish(instance, 1, 2, "t", &byte, 1)));
  wrongs.Count(IsRefused(libzel_subscribe(instance, "t", nullptr, nullptr)));
  wrongs.Count(IsRefused(libzel_unsubscribe(instance, "t")));
  wrongs.Count(IsRefused(libzel__registerRouterEvent(instance, 600, nullptr, nullptr)));
  wrongs.Count(IsRefused(libzel__unregisterRouterEvent(instance, 600)));
  wrongs.Count(IsRefused(libzel_makeZelDeviceId("1.2.3.4.5.6", &id)));
  wrongs.Count(IsRefused(libzel_makeZelDeviceAddr("1.2.3.4.5.6", 1, &address)));
  wrongs.Count(IsRefused(libzel_getLocalZelDeviceId(&id)));
  wrongs.Count(IsRefused(libzel_getRemoteZelDeviceId("127.0.0.1", 100, &id)));
  wrongs.Count(IsRefused(libzel_setRemoteZelDeviceId("127.0.0.1", "1.2.3.4.5.6", 100)));
  wrongs.Count(IsRefused(ZelSyncReadReq(&address, 1, 2, 0, nullptr, nullptr, 100) == 0xFFFFFFFF));
  (void)ZelFileTransfer(address, 0, 0, "/proc/self/status", "to", nullptr, nullptr);
  wrongs.Count(IsRefused(true));
  wrongs.Count(IsRefused(libzel_releaseInstance(instance)));
  wrongs.Count(IsRefused(libzel_destory()));
  return wrongs.first();
}

class ForkTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // Whether the link still carries a request and its answer, and has told of nothing but its start.
  static void ExpectUntouched(Link& link) {
    EXPECT_GT(link.instance.Send(600, Text("ask")), 0);
    const Request request = link.peer.Serve(Text("well"));
    EXPECT_EQ(request.payload, Text("ask"));
    EXPECT_EQ(request.invokeId, 1U);
    Bytes buffer(8);
    EXPECT_EQ(link.instance.Receive(buffer), 4);
    EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
  }

  const Deadline deadline{100};
  const CapturedLog log;
  ScriptedServer server;
};

TEST_F(ForkTest, EveryFunctionRefusesToWorkInAChild) {
  const Link link(server);
  EXPECT_EQ(StatusOfChild([&] { return CallEverything(link.instance); }), 0);
}

TEST_F(ForkTest, AChildTellsItsFileTransfersThatNothingComesOfThem) {
  struct Told {
    int calls = 0;
    uint32_t error = 0;
    uint8_t state = 0;
  };
  const auto callback = [](const ZelDeviceId*, uint32_t, float, uint32_t error, uint8_t state, void* user) {
    auto& told = *static_cast<Told*>(user);
    told = {told.calls + 1, error, state};
    return int32_t{0};
  };
  const int status = StatusOfChild([&] {
    Told told;
    (void)ZelFileTransfer({server.device(), 700}, 0, 0, "/proc/self/status", "to", callback, &told);
    return told.calls == 1 && told.error == ZEL_E_HANDLE && told.state == 3 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ForkTest, WhatNeedsNothingWorksInAChild) {
  const int status = StatusOfChild([] {
    uint32_t major = 9, minor = 9, patch = 9;
    Wrongs wrongs;
    wrongs.Count(libzel_startZelScan() == ZEL_E_HANDLE);
    wrongs.Count(libzel_get_errno() == ZEL_E_HANDLE);
    wrongs.Count(std::strcmp(libzel_strerror(ZEL_E_HANDLE), "invaild handler") == 0);
    wrongs.Count(libzel_get_errno() == ZEL_E_HANDLE);
    wrongs.Count(libzel_version(&major, &minor, &patch) == 0 && major == 0 && minor == 2 && patch == 3);
    wrongs.Count(libzel_get_errno() == 0);
    return wrongs.first();
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ForkTest, AChildsCallsLeaveTheParentsLinkAlone) {
  Link link(server);
  EXPECT_EQ(StatusOfChild([&] { return CallEverything(link.instance); }), 0);
  ExpectUntouched(link);
}

TEST_F(ForkTest, AChildsEndLeavesTheParentsLinkAlone) {
  Link link(server);
  EXPECT_EQ(StatusOfChild([] { return 0; }), 0);
  ExpectUntouched(link);
}

TEST_F(ForkTest, AChildsChildIsRefusedToo) {
  const Link link(server);
  EXPECT_EQ(StatusOfChild([&] { return StatusOfChild([&] { return CallEverything(link.instance); }); }), 0);
}

TEST_F(ForkTest, NoChildOfABusyProcessHangs) {
  Link link(server);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_EQ(libzel_startZelScan(), 0);
  std::atomic<bool> done{false};
  // Every reconnect writes a dozen lines of the log.
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!done) (void)libzel_reconnect(link.instance, 1000);
    });
  }
  int wrong = 0;
  for (int i = 0; i < 100; ++i) {
    wrong += StatusOfChild([&] { return CallEverything(link.instance); }) != 0 ? 1 : 0;
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(libzel_stopZelScan(), 0);
  EXPECT_EQ(wrong, 0);
}

TEST_F(ForkTest, AParentMayGoOnWhileAChildLives) {
  Link link(server);
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  std::thread forker([&] {
    EXPECT_EQ(StatusOfChild([&] {
                char byte = 0;
                return read(pipe[0], &byte, 1) == 1 ? 0 : 1;
              }),
              0);
  });
  ExpectUntouched(link);
  link.instance.Release();
  EXPECT_TRUE(link.peer.AwaitEnd());
  EXPECT_EQ(write(pipe[1], "x", 1), 1);
  forker.join();
  close(pipe[0]);
  close(pipe[1]);
}

// ---- Before the first call --------------------------------------------------------------------------------

class EarlyForkTest : public testing::Test {
 protected:
  void SetUp() override { UseFreshProcesses(); }
};

TEST_F(EarlyForkTest, AChildOfAProcessThatHasCalledNothingMayUseTheLibrary) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    const int status = StatusOfChild([] {
      if (libzel_init() != 0) return 1;
      ScriptedServer server;
      Link link(server);
      return link.instance.Send(600, {}) == 29 ? 0 : 2;
    });
    EXPECT_EQ(status, 0);
  });
}

}  // namespace
}  // namespace zeltest
