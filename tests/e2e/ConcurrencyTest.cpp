// Several threads on one instance.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <atomic>
#include <map>
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

class ConcurrencyTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const CapturedLog log;  // keeps tens of thousands of lines off the test's own output
  ScriptedServer server;
};

TEST_F(ConcurrencyTest, FramesOfFourSendersArriveWhole) {
  constexpr int kSenders = 4;
  constexpr int kFrames = 50;
  Link link(server);
  std::vector<std::thread> senders;
  for (int sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([&, sender] {
      const Bytes data(65536, static_cast<uint8_t>('a' + sender));
      for (int i = 0; i < kFrames; ++i) EXPECT_EQ(link.instance.Send(600, data), 65536 + 29);
    });
  }
  std::map<uint8_t, int> counts;
  for (int i = 0; i < kSenders * kFrames; ++i) {
    const Request request = link.peer.ReadRequest();
    ASSERT_TRUE(request.whole);
    ASSERT_EQ(request.payload, Bytes(65536, request.payload.at(0)));
    ++counts[request.payload[0]];
  }
  for (std::thread& sender : senders) sender.join();
  EXPECT_EQ(counts, (std::map<uint8_t, int>{{'a', kFrames}, {'b', kFrames}, {'c', kFrames}, {'d', kFrames}}));
}

TEST_F(ConcurrencyTest, TopicsMayChangeWhileTheyAreDelivered) {
  TopicRecorder steady, changing;
  Link link(server);
  EXPECT_EQ(libzel_subscribe(link.instance, "steady", TopicRecorder::Callback, &steady), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  std::atomic<bool> done{false};
  std::thread drain([&] {
    while (!done) (void)link.peer.ReadRequest(50);
  });
  // The server's sending side and its reading side are used by one thread each.
  std::thread publisher([&] {
    for (int i = 0; i < 1000; ++i) {
      EXPECT_TRUE(link.peer.Send(TopicMessage("steady", Text("x")) + TopicMessage("changing", Text("y"))));
    }
  });
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(libzel_subscribe(link.instance, "changing", TopicRecorder::Callback, &changing), 0);
    EXPECT_EQ(libzel_unsubscribe(link.instance, "changing"), 0);
  }
  publisher.join();
  EXPECT_TRUE(steady.Await(1000));
  done = true;
  drain.join();
  link.instance.Release();
}

TEST_F(ConcurrencyTest, PortsMayChangeWhileMessagesAreDelivered) {
  MessageRecorder steady, changing;
  Link link(server);
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &steady), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  std::thread publisher([&] {
    for (int i = 0; i < 1000; ++i) {
      EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x")) + Message(0, 601, Text("y"))));
    }
  });
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(libzel__registerRouterEvent(link.instance, 601, MessageRecorder::Callback, &changing), 0);
    EXPECT_EQ(libzel__unregisterRouterEvent(link.instance, 601), 0);
  }
  publisher.join();
  EXPECT_TRUE(steady.Await(1000));
  link.instance.Release();
}

// The receive thread and a synchronous receive share the stream out, frame by frame.
TEST_F(ConcurrencyTest, TwoReadersConsumeEachFrameOnce) {
  constexpr int kFrames = 3000;
  MessageRecorder routed;
  Link link(server);
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &routed), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  std::vector<int> counts(kFrames);
  std::atomic<int> received{0};
  std::atomic<bool> done{false};
  std::thread reader([&] {
    Bytes buffer(64);
    while (!done) {
      if (link.instance.Receive(buffer, 50) != 4) continue;
      ++counts[ReadLe(buffer, 0, 4)];
      ++received;
    }
  });
  std::thread sender([&] {
    for (int i = 0; i < kFrames; ++i) {
      EXPECT_TRUE(link.peer.Send(Message(0, 600, Le(static_cast<uint64_t>(i), 4))));
    }
  });
  sender.join();
  EXPECT_TRUE(Eventually([&] { return static_cast<int>(routed.Count()) + received == kFrames; }));
  done = true;
  reader.join();
  link.instance.Release();
  for (const SeenMessage& message : routed.All()) ++counts[ReadLe(message.payload, 0, 4)];
  EXPECT_EQ(counts, std::vector<int>(kFrames, 1));
  EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
}

TEST_F(ConcurrencyTest, SendsGoOnWhileAnotherThreadReconnects) {
  Link link(server);
  std::atomic<bool> done{false};
  std::vector<std::thread> senders;
  for (int i = 0; i < 2; ++i) {
    senders.emplace_back([&] {
      while (!done) (void)link.instance.Send(600, Bytes(2000), 100);
    });
  }
  Peer peer = std::move(link.peer);
  for (int i = 0; i < 30; ++i) {
    (void)peer.ReadRequest();
    peer.Reset();
    EXPECT_TRUE(Eventually([&] {
      (void)libzel_reconnect(link.instance, 1000);
      peer = server.Accept(20);
      return peer.IsOpen();
    }));
  }
  done = true;
  std::thread drain([&] { (void)peer.AwaitEnd(); });
  for (std::thread& sender : senders) sender.join();
  link.instance.Release();
  drain.join();
}

TEST_F(ConcurrencyTest, ReconnectsOfManyThreadsLeaveOneConnection) {
  Link link(server);
  link.peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] { EXPECT_TRUE(libzel_reconnect(link.instance, 1000)); });
  }
  for (std::thread& thread : threads) thread.join();
  Peer peer = server.Accept();
  EXPECT_TRUE(peer.IsOpen());
  EXPECT_FALSE(server.IsCalled(50));
}

TEST_F(ConcurrencyTest, TwoReadersTellTheEndOnce) {
  for (const Bytes& last : {Bytes{}, OuterHeader(1, 600, 0)}) {
    Link link(server);
    EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 3600), 0);
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
    std::thread receiver([&] {
      Bytes buffer(8);
      EXPECT_EQ(link.instance.Receive(buffer), -1);
    });
    EXPECT_TRUE(link.peer.Send(last));
    link.peer.EndSending();
    receiver.join();
    EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
    EXPECT_EQ(libzel_loop_stop(link.instance), 0);
    EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1, 5}));
  }
}

// The peer keeps both readers awake in the middle of a body.
TEST_F(ConcurrencyTest, ReceiveInsideABodyHoldsUpNoRelease) {
  Link link(server);
  std::thread receiver([&] {
    Bytes buffer(8);
    EXPECT_EQ(link.instance.Receive(buffer, 8000), -1);
  });
  EXPECT_TRUE(link.peer.Send(OuterHeader(0, 600, 100000) + Bytes(1)));
  std::atomic<bool> done{false};
  std::thread trickle([&] {
    while (!done && link.peer.Send({0})) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // for the receive thread to try
  const ElapsedTime time;
  link.instance.Release();
  EXPECT_LT(time.AwakeMs(), 3000);
  done = true;
  trickle.join();
  link.peer.Close();
  receiver.join();
}

TEST_F(ConcurrencyTest, SendWaitsItsTimeoutForAnotherThreadsConnect) {
  server.StopListening();
  const Instance instance(server.device());
  server.Stall();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  std::thread connecting([&] { EXPECT_FALSE(libzel_reconnect(instance, 3000)); });
  EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_PENDING, 2));
  const ElapsedTime time;
  EXPECT_EQ(instance.Send(600, {}, 100), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
  EXPECT_LT(time.AwakeMs(), 2000);
  connecting.join();
}

TEST_F(ConcurrencyTest, ReleaseWaitsForNoCallThatRuns) {
  Link link(server);
  std::atomic<bool> entered{false};
  std::thread receiver([&] {
    Bytes buffer(8);
    entered = true;
    EXPECT_EQ(link.instance.Receive(buffer, 1000), -1);
  });
  ASSERT_TRUE(Eventually([&] { return entered.load(); }));
  const ElapsedTime time;
  EXPECT_EQ(libzel_releaseInstance(link.instance), ZEL_E_HANDLE);
  EXPECT_LT(time.AwakeMs(), 900);
  receiver.join();
  EXPECT_TRUE(link.peer.AwaitEnd());
}

TEST_F(ConcurrencyTest, ReleaseMayComeWhileOtherThreadsCall) {
  for (int round = 0; round < 20; ++round) {
    Link link(server);
    const ZelInstance handle = link.instance;
    EXPECT_EQ(libzel_loop_start(handle), 0);
    std::vector<std::thread> callers;
    std::atomic<int> running{0};
    for (int i = 0; i < 3; ++i) {
      callers.emplace_back([&] {
        ++running;
        while (libzel_sync_send(handle, 600, 0, 0, nullptr, 0, 10) != -1 ||
               libzel_get_errno() != ZEL_E_HANDLE) {
          (void)libzel__registerRouterEvent(handle, 600, MessageRecorder::Callback, nullptr);
          (void)libzel__unregisterRouterEvent(handle, 600);
          (void)libzel_subscribe(handle, "a", TopicRecorder::Callback, nullptr);
          (void)libzel_loop_start(handle);
        }
      });
    }
    std::thread drain([&] { (void)link.peer.AwaitEnd(); });
    EXPECT_TRUE(Eventually([&] { return running == 3; }));
    link.instance.Release();
    for (std::thread& caller : callers) caller.join();
    drain.join();
  }
}

TEST_F(ConcurrencyTest, LoopStartsAndStopsOfManyThreadsEndWell) {
  Link link(server);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 50; ++k) {
        EXPECT_EQ(libzel_loop_start(link.instance), 0);
        EXPECT_EQ(libzel_loop_stop(link.instance), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  MessageRecorder seen;
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_TRUE(link.peer.Send(Message(0, 600, Text("x"))));
  EXPECT_TRUE(seen.Await(1));
  link.instance.Release();
}

TEST_F(ConcurrencyTest, InstancesAreMadeAndReleasedByManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 25; ++k) {
        const Instance instance(server.device());
        EXPECT_EQ(libzel_loop_start(instance), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace zeltest
