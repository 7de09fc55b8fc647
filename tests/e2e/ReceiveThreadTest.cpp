// What the receive thread does with ends, bad headers and frames that are not whole.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <chrono>
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

class ReceiveThreadTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  ReceiveThreadTest() {
    EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 3600), 0);
    EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
  }
  ~ReceiveThreadTest() override { link.instance.Release(); }

  void ExpectClosed(const std::string& message) {
    EXPECT_TRUE(peer.AwaitEnd());
    EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
    EXPECT_TRUE(log.Has("ERROR", message));
    EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1, 5}));
  }

  ScriptedServer server;
  CapturedLog log;
  MessageRecorder seen;
  Link link{server};
  Peer& peer = link.peer;
};

TEST_F(ReceiveThreadTest, PeersCloseIsLoggedAndReported) {
  peer.EndSending();
  ExpectClosed("connection is close");
}

TEST_F(ReceiveThreadTest, ResetIsLoggedAndReportedAsAClose) {
  peer.Reset();
  EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
  EXPECT_TRUE(log.Has("ERROR", "connection is close"));
}

TEST_F(ReceiveThreadTest, LengthOf0Closes) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 0)));
  ExpectClosed("zel header len is error,nPacketLen:0");
}

TEST_F(ReceiveThreadTest, LengthOverTheLimitCloses) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 10485760)));
  ExpectClosed("zel header len is error,nPacketLen:10485760");
}

TEST_F(ReceiveThreadTest, LargestLengthOfAllCloses) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 0xFFFFFFFF)));
  ExpectClosed("zel header len is error,nPacketLen:-1");
}

TEST_F(ReceiveThreadTest, HeaderOf1To4BytesCloses) {
  EXPECT_TRUE(peer.Send({0, 1, 2}));
  ExpectClosed("zel header len is error,nPacketLen:0");
}

// Nothing shows from outside when the thread has read half a header, so the gap in front of the next frame
// grows until the two come in reads of their own.
TEST_F(ReceiveThreadTest, HeaderOf5To7BytesWithALengthInRangeIsDroppedSilently) {
  for (const int gapMs : {20, 100, 500, 2500}) {
    Link fresh(server);
    MessageRecorder delivered;
    EXPECT_EQ(libzel__registerRouterEvent(fresh.instance, 600, MessageRecorder::Callback, &delivered), 0);
    EXPECT_EQ(libzel_reconnect_delay_set(fresh.instance, 3600), 0);
    EXPECT_EQ(libzel_loop_start(fresh.instance), 0);
    EXPECT_TRUE(fresh.peer.Send({0, 0, 0x58, 2, 9}));
    std::this_thread::sleep_for(std::chrono::milliseconds(gapMs));
    EXPECT_TRUE(fresh.peer.Send(Message(0, 600, Text("next"))));
    const bool dropped =
        Eventually([&] { return delivered.Count() == 1 || fresh.instance.events.Count() > 2; }) &&
        delivered.Count() == 1;
    const Events events = fresh.instance.events.Numbers();
    fresh.instance.Release();
    if (!dropped) continue;
    EXPECT_EQ(events, (Events{2, 1}));
    return;
  }
  ADD_FAILURE() << "the link never outlived half a header";
}

TEST_F(ReceiveThreadTest, ShortBodyIsDroppedAfterASecondAndTheLinkStays) {
  const ElapsedTime time;
  EXPECT_TRUE(peer.Send(OuterHeader(0, 600, 20) + Bytes(7)));
  EXPECT_TRUE(log.Await("ERROR", "recv size!=header.nMsgLen:20,but recv size:7"));
  EXPECT_GE(time.Ms(), 990);
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("next"))));
  EXPECT_TRUE(seen.Await(1));
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

TEST_F(ReceiveThreadTest, BodyThatTheServerCutsTakesTheLinkDownWithoutAnEvent) {
  EXPECT_TRUE(peer.Send(OuterHeader(0, 600, 20) + Bytes(7)));
  peer.EndSending();
  EXPECT_TRUE(log.Await("ERROR", "recv size!=header.nMsgLen:20,but recv size:0"));
  EXPECT_TRUE(log.Has("ERROR", "recv 0 disconnect"));
  EXPECT_EQ(link.instance.Send(600, {}), -1);
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

TEST_F(ReceiveThreadTest, LinkThatWentDownInsideABodyComesUpAgain) {
  EXPECT_TRUE(peer.Send(OuterHeader(0, 600, 20) + Bytes(7)));
  peer.EndSending();
  EXPECT_TRUE(log.Await("ERROR", "recv size!=header.nMsgLen:20,but recv size:0"));
  EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 0), 0);
  Peer again = server.Accept();
  EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_CONNECTED, 2));
  EXPECT_TRUE(again.Send(Message(0, 600, Text("x"))));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(ReceiveThreadTest, LinkThatAFailedSendTookDownComesUpAgain) {
  EXPECT_EQ(libzel_loop_stop(link.instance), 0);
  peer.Reset();
  EXPECT_TRUE(Eventually([&] { return link.instance.Send(600, Text("x")) == -1; }));
  EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 0), 0);
  EXPECT_EQ(link.instance.Send(600, {}), 29);
  EXPECT_TRUE(server.Accept().ReadRequest().whole);
}

}  // namespace
}  // namespace zeltest
