// Messages on the ports of an application.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

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

class RouterTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  ~RouterTest() override { link.instance.Release(); }

  int32_t Register(uint16_t port) {
    return libzel__registerRouterEvent(instance, port, MessageRecorder::Callback, &seen);
  }
  void Run() { EXPECT_EQ(libzel_loop_start(instance), 0); }

  ScriptedServer server;
  MessageRecorder seen;
  Link link{server};
  ZelInstance instance = link.instance;
  Peer& peer = link.peer;
};

TEST_F(RouterTest, ReservedPortsAreRefusedBeforeTheHandleIsLookedAt) {
  for (const uint16_t port : std::initializer_list<uint16_t>{0, 1, 103, 500}) {
    for (const ZelInstance handle : {ZelInstance{0}, instance}) {
      EXPECT_EQ(libzel__registerRouterEvent(handle, port, MessageRecorder::Callback, &seen),
                ZEL_E_RESERVED_PORT);
      EXPECT_EQ(libzel_get_errno(), ZEL_E_RESERVED_PORT);
    }
  }
}

TEST_F(RouterTest, UnknownHandleIsRefusedOnAFreePort) {
  EXPECT_EQ(libzel__registerRouterEvent(0, 501, MessageRecorder::Callback, &seen), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(RouterTest, PortTakesOneCallback) {
  const CapturedLog log;
  EXPECT_EQ(Register(501), 0);
  EXPECT_EQ(Register(501), ZEL_E_ROUTER);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_ROUTER);
  EXPECT_TRUE(log.Has("ERROR", "port:501 router is already register..."));
}

TEST_F(RouterTest, LastPortIsFree) { EXPECT_EQ(Register(65535), 0); }

TEST_F(RouterTest, SecondRegistrationKeepsTheFirstCallback) {
  MessageRecorder second;
  EXPECT_EQ(Register(600), 0);
  EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &second), ZEL_E_ROUTER);
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("x"))));
  EXPECT_TRUE(seen.Await(1));
  EXPECT_EQ(second.Count(), 0U);
}

TEST_F(RouterTest, RemovalOfAFreePortFailsWith4103) {
  const CapturedLog log;
  EXPECT_EQ(libzel__unregisterRouterEvent(instance, 600), ZEL_E_ROUTER);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_ROUTER);
  EXPECT_TRUE(log.Has("ERROR", "port:600 router is not register..."));
}

TEST_F(RouterTest, RemovalWorksOnce) {
  EXPECT_EQ(Register(600), 0);
  EXPECT_EQ(libzel__unregisterRouterEvent(instance, 600), 0);
  EXPECT_EQ(libzel__unregisterRouterEvent(instance, 600), ZEL_E_ROUTER);
}

TEST_F(RouterTest, RemovalOnAnUnknownHandleFailsWith8193) {
  EXPECT_EQ(libzel__unregisterRouterEvent(0, 600), ZEL_E_HANDLE);
}

TEST_F(RouterTest, RemovalDoesNotKeepTheTopicPort) {
  EXPECT_EQ(libzel__unregisterRouterEvent(instance, 103), 0);
}

// ---- Delivery ---------------------------------------------------------------------------------------------

TEST_F(RouterTest, BareMessageIsDeliveredWhole) {
  ASSERT_EQ(Register(600), 0);
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("hello"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].port, 600);
  EXPECT_EQ(seen.All()[0].payload, Text("hello"));
  EXPECT_NE(seen.All()[0].thread, std::this_thread::get_id());
}

TEST_F(RouterTest, InnerHeaderIsTakenOff) {
  ASSERT_EQ(Register(600), 0);
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(Message(1, 600, InnerHeader(3, 70000, 12) + Text("hello"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, Text("hello"));
  EXPECT_TRUE(log.Has("DEBUG", "ZoeHeader:error:3,invokeId:70000,Cmd:12"));
}

TEST_F(RouterTest, BodyOf13BytesIsDeliveredEmpty) {
  ASSERT_EQ(Register(600), 0);
  Run();
  EXPECT_TRUE(peer.Send(Message(1, 600, InnerHeader(0, 1))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_TRUE(seen.All()[0].payload.empty());
}

TEST_F(RouterTest, BodyOf12BytesIsDropped) {
  ASSERT_EQ(Register(600), 0);
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(Message(1, 600, Bytes(12)) + Message(0, 600, Text("next"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, Text("next"));
  EXPECT_TRUE(log.Has("ERROR", "zel version 1,dataLen 12 < 13"));
}

TEST_F(RouterTest, UnknownVersionsAreDroppedWithoutAWord) {
  ASSERT_EQ(Register(600), 0);
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(Message(2, 600, Text("two")) + Message(7, 600, Text("seven")) +
                        Message(255, 600, Text("x")) + Message(0, 600, Text("next"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, Text("next"));
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RouterTest, MessageOnAFreePortIsLoggedAndDropped) {
  ASSERT_EQ(Register(600), 0);
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(Message(0, 601, Text("x")) + Message(0, 600, Text("next"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_TRUE(log.Has("ERROR", "port:601 router is not register..."));
}

TEST_F(RouterTest, ReservedByteIsNotLookedAt) {
  ASSERT_EQ(Register(600), 0);
  Run();
  Bytes message = Message(0, 600, Text("hello"));
  message[0] = 0xFF;
  EXPECT_TRUE(peer.Send(message));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(RouterTest, NullCallbackIsSkipped) {
  ASSERT_EQ(Register(600), 0);
  ASSERT_EQ(libzel__registerRouterEvent(instance, 601, nullptr, nullptr), 0);
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 601, Text("x")) + Message(0, 600, Text("next"))));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(RouterTest, LongestMessageIsDelivered) {
  ASSERT_EQ(Register(600), 0);
  Run();
  const Bytes body(10485759, 3);
  EXPECT_TRUE(peer.Send(Message(0, 600, body)));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, body);
}

// ---- From inside a callback -------------------------------------------------------------------------------

struct Inside {
  ZelInstance instance = 0;
  MessageRecorder* next = nullptr;
  std::atomic<int> calls{0};
};

TEST_F(RouterTest, CallbackMayRemoveItsOwnPort) {
  const auto callback = [](uint16_t port, const uint8_t*, uint32_t, void* user) {
    auto& inside = *static_cast<Inside*>(user);
    ++inside.calls;
    EXPECT_EQ(libzel__unregisterRouterEvent(inside.instance, port), 0);
  };
  Inside inside{instance};
  ASSERT_EQ(libzel__registerRouterEvent(instance, 600, callback, &inside), 0);
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("x")) + Message(0, 600, Text("y"))));
  EXPECT_TRUE(log.Await("ERROR", "port:600 router is not register..."));
  EXPECT_EQ(inside.calls, 1);
  link.instance.Release();
}

TEST_F(RouterTest, CallbackMayHandItsPortToAnother) {
  const auto callback = [](uint16_t port, const uint8_t*, uint32_t, void* user) {
    auto& inside = *static_cast<Inside*>(user);
    EXPECT_EQ(libzel__unregisterRouterEvent(inside.instance, port), 0);
    EXPECT_EQ(libzel__registerRouterEvent(inside.instance, port, MessageRecorder::Callback, inside.next), 0);
  };
  Inside inside{instance, &seen};
  ASSERT_EQ(libzel__registerRouterEvent(instance, 600, callback, &inside), 0);
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("x")) + Message(0, 600, Text("y"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].payload, Text("y"));
  link.instance.Release();
}

TEST_F(RouterTest, CallbackMaySend) {
  const auto callback = [](uint16_t port, const uint8_t* data, uint32_t length, void* user) {
    EXPECT_GT(libzel_sync_send(static_cast<Inside*>(user)->instance, port, 0, 0, data, length, 100), 0);
  };
  Inside inside{instance};
  ASSERT_EQ(libzel__registerRouterEvent(instance, 600, callback, &inside), 0);
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("echo"))));
  EXPECT_EQ(peer.ReadRequest().payload, Text("echo"));
  link.instance.Release();
}

TEST_F(RouterTest, CallbackMaySubscribe) {
  const auto callback = [](uint16_t, const uint8_t*, uint32_t, void* user) {
    EXPECT_EQ(libzel_subscribe(static_cast<Inside*>(user)->instance, "new", nullptr, nullptr), 0);
  };
  Inside inside{instance};
  ASSERT_EQ(libzel__registerRouterEvent(instance, 600, callback, &inside), 0);
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("x"))));
  EXPECT_EQ(peer.ReadRequest().payload, Record("sub", "new", {}));
  link.instance.Release();
}

}  // namespace
}  // namespace zeltest
