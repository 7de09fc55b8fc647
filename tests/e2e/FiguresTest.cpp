// Why links failed, and what has been counted.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <string>
#include <thread>

#include "support/Asking.h"
#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

class FiguresTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  FiguresTest() { EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0); }

  std::string Peer9999() const { return server.host() + ":9999"; }
  // Wine tells a reset as an end of the stream.
  bool IsReset(const std::string& failure) const {
    const std::string receive = "receive from " + Peer9999();
#ifdef _WIN32
    if (failure == receive + ": closed by the peer") return true;
#endif
    return failure == receive + ": reset";
  }
  libzelx_Stats Stats() const { return StatsOf(instance); }
  // Waits for a figure of the receive thread.
  bool Await(uint64_t libzelx_Stats::*figure, uint64_t value) const {
    return Eventually([&] { return Stats().*figure == value; });
  }
  bool AwaitDown() const {
    return Eventually([&] { return Stats().connected == 0; });
  }

  const Deadline deadline{100};
  const CapturedLog log;
  ScriptedServer server;
  Link link{server};
  Peer& peer = link.peer;
  ZelInstance instance = link.instance;
};

// ---- Reasons ----------------------------------------------------------------------------------------------

TEST_F(FiguresTest, NothingFailedYet) {
  char text[8] = "xxxxxxx";
  EXPECT_EQ(libzelx_lastFailure(instance, text, sizeof text), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
  EXPECT_STREQ(text, "");
}

TEST_F(FiguresTest, TellsARefusedConnect) {
  const Instance other(DeviceWithoutServer());
  EXPECT_TRUE(FailureOf(other).ends_with(":9999: refused")) << FailureOf(other);
  EXPECT_TRUE(FailureOf(other).starts_with("connect 127.")) << FailureOf(other);
}

TEST_F(FiguresTest, TellsAConnectThatNobodyAnswered) {
  ScriptedServer stalled;
  stalled.Stall();
  const Instance other(stalled.device(), 100);
  EXPECT_EQ(FailureOf(other), "connect " + stalled.host() + ":9999: timed out");
}

TEST_F(FiguresTest, TellsThePeersClose) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  peer.EndSending();
  EXPECT_TRUE(Await(&libzelx_Stats::losses, 1));
  EXPECT_EQ(FailureOf(instance), "receive from " + Peer9999() + ": closed by the peer");
}

TEST_F(FiguresTest, TellsAReset) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  peer.Reset();
  EXPECT_TRUE(Await(&libzelx_Stats::losses, 1));
  EXPECT_TRUE(IsReset(FailureOf(instance))) << FailureOf(instance);
}

TEST_F(FiguresTest, TellsAResetThatTheSynchronousReceiveSaw) {
  std::thread receiver([this] {
    Bytes buffer(8);
    EXPECT_EQ(link.instance.Receive(buffer, 5000), -1);
  });
  peer.Reset();
  receiver.join();
  EXPECT_TRUE(IsReset(FailureOf(instance))) << FailureOf(instance);
}

TEST_F(FiguresTest, TellsABadLength) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 20971520)));
  EXPECT_TRUE(Await(&libzelx_Stats::losses, 1));
  EXPECT_EQ(FailureOf(instance), "receive from " + Peer9999() + ": bad length 20971520");
}

TEST_F(FiguresTest, TellsAShortHeader) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send({0, 1, 2}));
  EXPECT_TRUE(Await(&libzelx_Stats::losses, 1));
  EXPECT_EQ(FailureOf(instance), "receive from " + Peer9999() + ": short header");
}

TEST_F(FiguresTest, TellsAPeerThatDidNotRead) {
  const Bytes huge(10000000);
  EXPECT_EQ(Ask(instance, 600, huge, 100).result, ZEL_E_TIMEOUT);
  EXPECT_EQ(FailureOf(instance), "send to " + Peer9999() + ": peer did not read for 100 ms");
}

TEST_F(FiguresTest, TellsAFailedSend) {
  peer.Reset();
  EXPECT_TRUE(Eventually([&] { return link.instance.Send(600, {}) == -1; }));
  EXPECT_EQ(FailureOf(instance), "send to " + Peer9999() + ": reset");
}

TEST_F(FiguresTest, TellsWhatTheSynchronousReceiveSaw) {
  peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(FailureOf(instance), "receive from " + Peer9999() + ": closed by the peer");
}

TEST_F(FiguresTest, AReasonStaysWhenTheLinkComesBack) {
  peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_TRUE(libzel_reconnect(instance, 1000));
  EXPECT_EQ(FailureOf(instance), "receive from " + Peer9999() + ": closed by the peer");
}

TEST_F(FiguresTest, AReasonIsCutToTheBuffer) {
  peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  char text[8] = "xxxxxxx";
  EXPECT_EQ(libzelx_lastFailure(instance, text, 5), 0);
  EXPECT_STREQ(text, "rece");
  EXPECT_EQ(text[5], 'x');
  EXPECT_EQ(libzelx_lastFailure(instance, text, 1), 0);
  EXPECT_STREQ(text, "");
}

TEST_F(FiguresTest, ReasonsRefuseNoText) {
  char text[8];
  EXPECT_EQ(libzelx_lastFailure(instance, nullptr, 8), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_lastFailure(instance, text, 0), ZEL_E_PARAM);
}

TEST_F(FiguresTest, ReasonsRefuseAnInstanceThatIsNotLive) {
  char text[8];
  EXPECT_EQ(libzelx_lastFailure(1, text, sizeof text), ZEL_E_HANDLE);
  EXPECT_EQ(libzelx_lastFailure(0, text, sizeof text), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

// ---- Links ------------------------------------------------------------------------------------------------

TEST_F(FiguresTest, AFreshLinkIsUp) {
  EXPECT_EQ(Stats().connected, 1);
  EXPECT_EQ(Stats().connects, 1U);
  EXPECT_EQ(Stats().failedConnects, 0U);
  EXPECT_EQ(Stats().losses, 0U);
}

TEST_F(FiguresTest, TellsForHowLongTheLinkIsUp) {
  const int64_t first = Stats().connectedMs;
  EXPECT_GE(first, 0);
  EXPECT_LT(first, 60000);
  EXPECT_TRUE(Eventually([&] { return Stats().connectedMs >= first + 20; }));
}

TEST_F(FiguresTest, AConnectOnALinkThatIsUpLeavesItsAge) {
  EXPECT_TRUE(Eventually([&] { return Stats().connectedMs >= 50; }));
  EXPECT_TRUE(libzel_reconnect(instance, 1000));
  EXPECT_GE(Stats().connectedMs, 50);
}

TEST_F(FiguresTest, ADownLinkHasNoAge) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  peer.Close();
  EXPECT_TRUE(AwaitDown());
  EXPECT_EQ(Stats().connectedMs, 0);
}

TEST_F(FiguresTest, ALossIsCountedOnce) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  peer.Close();
  EXPECT_TRUE(Await(&libzelx_Stats::losses, 1));
  EXPECT_EQ(link.instance.Send(600, {}), -1);
  EXPECT_EQ(Stats().losses, 1U);
}

TEST_F(FiguresTest, AReconnectThatFindsTheLinkLostCountsALoss) {
  peer.EndSending();
  EXPECT_TRUE(Eventually([&] {
    EXPECT_TRUE(libzel_reconnect(instance, 1000));
    return Stats().losses == 1;
  }));
  EXPECT_EQ(Stats().connected, 1);
}

TEST_F(FiguresTest, CountsFailedConnects) {
  server.StopListening();
  peer.Close();
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_FALSE(libzel_reconnect(instance, 1000));
  EXPECT_EQ(Stats().failedConnects, 1U);
}

// ---- Traffic ----------------------------------------------------------------------------------------------

TEST_F(FiguresTest, CountsWhatTheOldCallsSendAndReceive) {
  EXPECT_EQ(link.instance.Send(600, Bytes(100)), 129);
  (void)peer.Serve(Bytes(10));
  Bytes buffer(64);
  EXPECT_EQ(link.instance.Receive(buffer), 10);
  EXPECT_EQ(Stats().framesOut, 1U);
  EXPECT_EQ(Stats().bytesOut, 129U);
  EXPECT_EQ(Stats().framesIn, 1U);
  EXPECT_EQ(Stats().bytesIn, 31U);
}

TEST_F(FiguresTest, CountsRequestsAndTheirAnswers) {
  const OngoingCall ask([&] { return Ask(instance, 600, Bytes(100)).result; });
  (void)peer.Serve(Bytes(10));
  EXPECT_TRUE(ask.Await());
  EXPECT_EQ(Stats().framesOut, 1U);
  EXPECT_EQ(Stats().bytesOut, 129U);
  EXPECT_EQ(Stats().framesIn, 1U);
  EXPECT_EQ(Stats().bytesIn, 31U);
}

TEST_F(FiguresTest, CountsEachOfManyRequests) {
  std::thread serving([&] {
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(peer.Serve({}).whole);
  });
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Ask(instance, 600).result, 0);
  serving.join();
  EXPECT_EQ(Stats().framesOut, 100U);
  EXPECT_EQ(Stats().framesIn, 100U);
  EXPECT_EQ(Stats().bytesIn, 2100U);
}

TEST_F(FiguresTest, CountsEachOfManyPublications) {
  const std::vector<libzelx_Message> messages(10, MessageOn("t", {}));
  EXPECT_EQ(libzelx_publishMany(instance, messages.data(), 10, kAskPatienceMs, nullptr), 0);
  EXPECT_EQ(Stats().framesOut, 10U);
  EXPECT_EQ(Stats().bytesOut, 10 * (29 + 24 + 5 + 2 + 9 - 1U));
}

TEST_F(FiguresTest, CountsBytesOfAFrameThatLeftInPart) {
  const Bytes huge(10000000);
  EXPECT_EQ(Ask(instance, 600, huge, 100).result, ZEL_E_TIMEOUT);
  EXPECT_EQ(Stats().framesOut, 0U);
  EXPECT_GT(Stats().bytesOut, 0U);
}

TEST_F(FiguresTest, CountsAStalledWrite) {
  const Bytes huge(10000000);
  EXPECT_EQ(Ask(instance, 600, huge, 100).result, ZEL_E_TIMEOUT);
  EXPECT_EQ(Stats().stalledWrites, 1U);
  EXPECT_EQ(Stats().losses, 1U);
}

TEST_F(FiguresTest, CountsFramesThatWereTooLong) {
  const Bytes tooLong(10485760);
  EXPECT_EQ(Ask(instance, 600, tooLong).result, LIBZELX_E_TOO_LONG);
  EXPECT_EQ(libzelx_publish(instance, 0, 0, "t", tooLong.data(), 10485760, 0), LIBZELX_E_TOO_LONG);
  EXPECT_EQ(link.instance.Send(600, tooLong), 0);
  EXPECT_EQ(Stats().tooLong, 3U);
}

// ---- What was dropped -------------------------------------------------------------------------------------

TEST_F(FiguresTest, CountsMessagesOfPortsThatNobodyTakes) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(Message(0, 600, {1}) + Message(1, 601, InnerHeader(0, 77))));
  EXPECT_TRUE(Await(&libzelx_Stats::noPort, 2));
}

TEST_F(FiguresTest, CountsPublicationsThatNobodyTakes) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(TopicMessage("nobody", {})));
  EXPECT_TRUE(Await(&libzelx_Stats::noTopic, 1));
}

TEST_F(FiguresTest, CountsRecordsThatCannotBeRead) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(Answer(103, 0, Le(100, 8) + Le(1, 8) + Le(1, 8) + Bytes(8))));
  EXPECT_TRUE(Await(&libzelx_Stats::badRecords, 1));
}

TEST_F(FiguresTest, CountsBadLengths) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 0)));
  EXPECT_TRUE(Await(&libzelx_Stats::badLengths, 1));
}

TEST_F(FiguresTest, CountsShortHeaders) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send({0, 1, 2}));
  EXPECT_TRUE(Await(&libzelx_Stats::shortHeaders, 1));
  EXPECT_EQ(Stats().badLengths, 0U);
}

TEST_F(FiguresTest, CountsShortBodies) {
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 20) + Bytes(7)));
  EXPECT_TRUE(Await(&libzelx_Stats::shortBodies, 1));
  EXPECT_EQ(Stats().losses, 0U);
}

// The link stays then.
TEST_F(FiguresTest, ABadLengthInASynchronousReceiveIsNoLoss) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 0)));
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(Stats().badLengths, 1U);
  EXPECT_EQ(Stats().losses, 0U);
  EXPECT_EQ(FailureOf(instance), "");
  EXPECT_EQ(Stats().connected, 1);
}

TEST_F(FiguresTest, AShortBodyInASynchronousReceiveIsALoss) {
  EXPECT_TRUE(peer.Send(OuterHeader(1, 600, 20) + Bytes(7)));
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer, 200), -1);
  EXPECT_EQ(Stats().shortBodies, 1U);
  EXPECT_EQ(Stats().losses, 1U);
  EXPECT_EQ(FailureOf(instance), "receive from " + Peer9999() + ": short body");
}

TEST_F(FiguresTest, CountsAnswersThatASynchronousReceiveSkips) {
  EXPECT_EQ(link.instance.Send(600, {}), 29);
  const Request request = peer.ReadRequest();
  EXPECT_TRUE(peer.Send(Answer(600, request.invokeId + 5, {}) + TopicMessage("topic", {}) +
                        Answer(600, request.invokeId, Text("x"))));
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), 1);
  EXPECT_EQ(Stats().lateAnswers, 1U);
}

TEST_F(FiguresTest, CountsALateAnswerThatASynchronousReceiveReads) {
  EXPECT_EQ(Ask(instance, 600, {}, 0).result, ZEL_E_TIMEOUT);
  EXPECT_EQ(libzel_loop_stop(instance), 0);
  EXPECT_TRUE(peer.Send(Answer(600, peer.ReadRequest().invokeId, {}) + Message(0, 600, {1})));
  Bytes buffer(8);
  EXPECT_EQ(link.instance.Receive(buffer), 1);
  EXPECT_EQ(Stats().lateAnswers, 1U);
}

// ---- The call ---------------------------------------------------------------------------------------------

TEST_F(FiguresTest, FiguresOfTheProcessTakeInEveryInstances) {
  const libzelx_Stats before = StatsOf(0);
  EXPECT_EQ(link.instance.Send(600, Bytes(100)), 129);
  EXPECT_EQ(StatsOf(0).framesOut, before.framesOut + 1);
  EXPECT_EQ(StatsOf(0).bytesOut, before.bytesOut + 129);
}

TEST_F(FiguresTest, FiguresOfTheProcessKeepReleasedInstances) {
  const libzelx_Stats before = StatsOf(0);
  link.instance.Release();
  EXPECT_EQ(StatsOf(0).connects, before.connects);
  EXPECT_EQ(StatsOf(0).connected, before.connected - 1);
}

TEST_F(FiguresTest, AnotherInstancesFiguresAreItsOwn) {
  Link other(server);
  EXPECT_EQ(other.instance.Send(600, {}), 29);
  EXPECT_EQ(Stats().framesOut, 0U);
}

TEST_F(FiguresTest, RefuseAnInstanceThatIsNotLive) {
  libzelx_Stats stats{};
  stats.size = sizeof stats;
  EXPECT_EQ(libzelx_getStats(1, &stats), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(FiguresTest, RefuseNoPlace) {
  EXPECT_EQ(libzelx_getStats(instance, nullptr), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_getStats(0, nullptr), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

TEST_F(FiguresTest, RefuseBadSizes) {
  libzelx_Stats stats{};
  for (const size_t size : {size_t{0}, sizeof stats - 8, sizeof stats + 1, SIZE_MAX}) {
    stats.size = size;
    EXPECT_EQ(libzelx_getStats(instance, &stats), ZEL_E_PARAM) << size;
    EXPECT_EQ(libzelx_getStats(0, &stats), ZEL_E_PARAM) << size;
  }
}

TEST_F(FiguresTest, FillALargerStructureWith0) {
  struct {
    libzelx_Stats stats;
    uint64_t unknown;
    uint64_t behind;
  } later{};
  later.stats.size = sizeof later.stats + 8;
  later.unknown = 77;
  later.behind = 88;
  EXPECT_EQ(libzelx_getStats(instance, &later.stats), 0);
  EXPECT_EQ(later.stats.size, sizeof later.stats + 8);
  EXPECT_EQ(later.stats.connects, 1U);
  EXPECT_EQ(later.unknown, 0U);
  EXPECT_EQ(later.behind, 88U);
}

}  // namespace
}  // namespace zeltest
