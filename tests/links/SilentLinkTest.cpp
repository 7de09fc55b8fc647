// A link that falls silent for three seconds, or is dropped, at a byte that the lab's relay is told: the
// tests' frames have 100 bytes.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

using Events = std::vector<int32_t>;

constexpr size_t kFrameSize = 100;
constexpr uint8_t kFrames = 20;

class SilentLinkTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  SilentLinkTest() {
    EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
    EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 3600), 0);
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
  }
  ~SilentLinkTest() override { link.instance.Release(); }

  // The last byte tells the frames apart; what is taken for a header by mistake announces too much.
  static void SendFrames(Peer& peer) {
    Bytes frames;
    for (uint8_t i = 0; i < kFrames; ++i) {
      frames = frames + Message(0, 600, Bytes(kFrameSize - 9, 0xFF) + Bytes{i});
    }
    (void)peer.Send(frames);  // a reset may cut it short
  }
  void ExpectFrames(uint8_t count) {
    ASSERT_TRUE(seen.Await(count));
    ASSERT_EQ(seen.Count(), count);
    for (uint8_t i = 0; i < count; ++i) EXPECT_EQ(seen.All()[i].payload.back(), i);
  }
  void ExpectClosed(const std::string& message) {
    EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
    EXPECT_TRUE(log.Has("ERROR", message)) << message;
    EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1, 5}));
  }

  void ExpectFreshLink() {
    EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 0), 0);
    Peer again = server.Accept();
    EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_CONNECTED, 2));
    EXPECT_TRUE(again.Send(Message(0, 600, Text("again"))));
    EXPECT_TRUE(seen.AwaitThat([](const std::vector<SeenMessage>& all) {
      return !all.empty() && all.back().payload == Text("again");
    }));
  }

  ScriptedServer server;
  CapturedLog log;
  MessageRecorder seen;
  Link link{server};
};

using SilenceBetweenFrames = SilentLinkTest;

TEST_F(SilenceBetweenFrames, LosesNothing) {
  SendFrames(link.peer);
  ExpectFrames(kFrames);
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

using SilenceBehind3BytesOfAHeader = SilentLinkTest;

TEST_F(SilenceBehind3BytesOfAHeader, Closes) {
  SendFrames(link.peer);
  ExpectClosed("zel header len is error,nPacketLen:0");
  ExpectFrames(10);
}

using SilenceBehind5BytesOfAHeader = SilentLinkTest;

TEST_F(SilenceBehind5BytesOfAHeader, DropsThemAndClosesAtTheNextLength) {
  SendFrames(link.peer);
  ExpectClosed("zel header len is error,nPacketLen:-1");
  ExpectFrames(10);
}

using SilenceInsideABody = SilentLinkTest;

TEST_F(SilenceInsideABody, DropsItAndClosesAtTheNextLength) {
  SendFrames(link.peer);
  ExpectClosed("zel header len is error,nPacketLen:-1");
  EXPECT_TRUE(log.Has("ERROR", "recv size!=header.nMsgLen:92,but recv size:42"));
  ExpectFrames(10);
}

using LinkDroppedBetweenFrames = SilentLinkTest;

TEST_F(LinkDroppedBetweenFrames, IsReportedAsAClose) {
  SendFrames(link.peer);
  ExpectClosed("connection is close");
}

TEST_F(LinkDroppedBetweenFrames, ComesUpAgain) {
  SendFrames(link.peer);
  EXPECT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
  ExpectFreshLink();
}

using LinkDroppedInsideABody = SilentLinkTest;

TEST_F(LinkDroppedInsideABody, GoesDownWithoutAnEvent) {
  SendFrames(link.peer);
  EXPECT_TRUE(log.Await("ERROR", "recv size!=header.nMsgLen:92,but recv size:0"));
  EXPECT_EQ(link.instance.Send(600, {}), -1);
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

TEST_F(LinkDroppedInsideABody, ComesUpAgain) {
  SendFrames(link.peer);
  EXPECT_TRUE(log.Await("ERROR", "recv size!=header.nMsgLen:92,but recv size:0"));
  ExpectFreshLink();
}

}  // namespace
}  // namespace zeltest
