// Requests and their answers.
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

constexpr uint32_t kLargestPayload = 10485760 - 29;

class MessagingTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  ScriptedServer server;
  Link link{server};
  ZelInstance instance = link.instance;
  Peer& peer = link.peer;
  Bytes buffer = Bytes(64, 0xEE);

  // Sends a request, lets the peer answer with these bytes, and receives.
  int32_t ReceiveFrom(const Bytes& answer, uint32_t timeoutMs = kPatienceMs) {
    EXPECT_GT(link.instance.Send(600, Text("ask")), 0);
    EXPECT_TRUE(peer.ReadRequest().whole);
    EXPECT_TRUE(peer.Send(answer));
    return link.instance.Receive(buffer, timeoutMs);
  }
};

// ---- Send -------------------------------------------------------------------------------------------------

TEST_F(MessagingTest, EmptyRequestIs29Bytes) {
  EXPECT_EQ(libzel_sync_send(instance, 0x0258, 0x01020304, 0xA0B0C0D0, nullptr, 0, 1000), 29);
  EXPECT_EQ(peer.Read(29),
            (Bytes{0,    1,    0x58, 0x02, 21,   0,    0,    0,                   // outer header
                   0,    0,    0,    0,    0,    0,    0,    1,   0, 9, 0, 0, 0,  // inner header
                   0x01, 0x02, 0x03, 0x04, 0xA0, 0xB0, 0xC0, 0xD0}));
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(MessagingTest, SendGivesTheBytesWritten) { EXPECT_EQ(link.instance.Send(600, Bytes(100)), 129); }

TEST_F(MessagingTest, SendCarriesThePayload) {
  EXPECT_EQ(link.instance.Send(600, Bytes{1, 0, 2}), 32);
  EXPECT_EQ(peer.ReadRequest().payload, (Bytes{1, 0, 2}));
}

TEST_F(MessagingTest, SendTakesEveryPort) {
  for (const uint16_t port : std::initializer_list<uint16_t>{0, 103, 500, 65535}) {
    EXPECT_EQ(link.instance.Send(port, {}), 29);
    EXPECT_EQ(peer.ReadRequest().port, port);
  }
}

TEST_F(MessagingTest, InvokeIdentifiersCountFrom1) {
  for (uint32_t id = 1; id <= 3; ++id) {
    (void)link.instance.Send(600, {});
    EXPECT_EQ(peer.ReadRequest().invokeId, id);
  }
}

TEST_F(MessagingTest, LargestFrameIsSent) {
  Bytes received;
  std::thread reader([&] { received = peer.ReadRequest().payload; });
  EXPECT_EQ(link.instance.Send(600, Bytes(kLargestPayload, 7)), 10485760);
  reader.join();
  EXPECT_EQ(received, Bytes(kLargestPayload, 7));
}

TEST_F(MessagingTest, LongerFrameIsRefusedWith0) {
  const CapturedLog log;
  EXPECT_EQ(link.instance.Send(600, Bytes(kLargestPayload + 1)), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
  EXPECT_TRUE(log.Has("ERROR", "frame length: 10485761  exceeds maximum length for sockets"));
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(MessagingTest, RefusedFrameUsesAnInvokeIdentifier) {
  (void)link.instance.Send(600, Bytes(kLargestPayload + 1));
  (void)link.instance.Send(600, {});
  EXPECT_EQ(peer.ReadRequest().invokeId, 2U);
}

TEST_F(MessagingTest, SendWaitsForAPeerThatDoesNotRead) {
  std::thread sender([&] { EXPECT_EQ(link.instance.Send(600, Bytes(8 << 20, 1), 1), (8 << 20) + 29); });
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  std::this_thread::sleep_for(
      std::chrono::milliseconds(100));  // longer than the send's time-out, which is ignored
  EXPECT_EQ(peer.ReadRequest().payload.size(), size_t{8 << 20});
  sender.join();
}

TEST_F(MessagingTest, SendAfterAResetFailsWith5) {
  peer.Reset();
  // The system may take some sends before it has seen the reset.
  EXPECT_TRUE(Eventually([&] { return link.instance.Send(600, Text("x")) == -1; }));
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
}

TEST_F(MessagingTest, FailedSendLogsTheReason) {
  const CapturedLog log;
  peer.Reset();
  EXPECT_TRUE(Eventually([&] { return link.instance.Send(600, Text("x")) == -1; }));
  EXPECT_TRUE(log.HasStart("ERROR", "send error "));
}

// ---- Receive ----------------------------------------------------------------------------------------------

TEST_F(MessagingTest, RecvCopiesThePayload) {
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("hello"))), 5);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 5), Text("hello"));
  EXPECT_EQ(buffer[5], 0xEE);
}

TEST_F(MessagingTest, RecvCopiesNoMoreThanTheBufferHolds) {
  buffer = Bytes(3, 0);
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("hello"))), 3);
  EXPECT_EQ(buffer, Text("hel"));
}

TEST_F(MessagingTest, RecvDropsTheRestOfALongAnswer) {
  buffer = Bytes(3, 0);
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("hello"))), 3);
  EXPECT_EQ(ReceiveFrom(Answer(600, 2, Text("you"))), 3);
  EXPECT_EQ(buffer, Text("you"));
}

TEST_F(MessagingTest, RecvIntoAnEmptyBufferGives0) {
  buffer.clear();
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("hello"))), 0);
}

TEST_F(MessagingTest, RecvOfAnEmptyAnswerGives0) { EXPECT_EQ(ReceiveFrom(Answer(600, 1, {})), 0); }

TEST_F(MessagingTest, RecvOfAnEmptyAnswerWithAnErrorWordFails) {
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, {}, 4101)), -1);
  EXPECT_EQ(libzel_get_errno(), 4101);
}

TEST_F(MessagingTest, RecvLeavesTheErrorWordAlsoOfAnAnswerWithContent) {
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("hello"), 16388)), 5);
  EXPECT_EQ(libzel_get_errno(), 16388);
}

TEST_F(MessagingTest, RecvSkipsAnswersOfOtherInvokeIds) {
  const CapturedLog log;
  EXPECT_EQ(ReceiveFrom(Answer(600, 77, Text("other"), 9) + Answer(600, 1, Text("mine"))), 4);
  EXPECT_EQ(libzel_get_errno(), 0);
  EXPECT_TRUE(log.Has("ERROR", "LastinvokeId:1 !=recv invokeId:77"));
}

TEST_F(MessagingTest, RecvTakesAnAnswerOnAnyPort) { EXPECT_EQ(ReceiveFrom(Answer(7, 1, Text("hello"))), 5); }

TEST_F(MessagingTest, RecvWaitsForTheLastOfSeveralRequests) {
  (void)link.instance.Send(600, Text("first"));
  EXPECT_TRUE(peer.ReadRequest().whole);
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("early")) + Answer(600, 2, Text("second"))), 6);
}

TEST_F(MessagingTest, RecvTimesOutWith4104) {
  const ElapsedTime time;
  EXPECT_EQ(link.instance.Receive(buffer, 200), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  EXPECT_GE(time.Ms(), 190);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(MessagingTest, RecvWithATimeoutOf0Or1FailsAtOnceWhateverWaits) {
  for (const uint32_t timeoutMs : {0U, 1U}) {
    EXPECT_EQ(ReceiveFrom(Answer(600, 1 + timeoutMs, Text("hello")), timeoutMs), -1);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  }
}

TEST_F(MessagingTest, AnswerThatCameTooLateIsStillThere) {
  EXPECT_EQ(ReceiveFrom(Answer(600, 1, Text("hello")), 1), -1);
  EXPECT_EQ(link.instance.Receive(buffer), 5);
}

TEST_F(MessagingTest, EverySkippedAnswerCostsTheWholeTimeSoFar) {
  (void)link.instance.Send(600, Text("ask"));
  // 1000 - 300 - 600 leaves 100 ms after the second one; the right answer comes later, yet before 1000 ms.
  const ElapsedTime time;
  std::thread answerer([&] {
    for (const int at : {300, 600, 850}) {
      (void)Eventually([&] { return time.Ms() >= at; });
      (void)peer.Send(Answer(600, at == 850 ? 1 : 77, Text("x")));
    }
  });
  EXPECT_EQ(link.instance.Receive(buffer, 1000), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  answerer.join();
}

TEST_F(MessagingTest, RecvCopiesTheWholeBodyOfABareMessage) {
  EXPECT_EQ(ReceiveFrom(Message(0, 600, Text("bare"))), 4);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), Text("bare"));
}

TEST_F(MessagingTest, RecvCopiesTheWholeBodyOfUnknownVersions) {
  EXPECT_EQ(ReceiveFrom(Message(2, 600, Text("two"))), 3);
  EXPECT_EQ(ReceiveFrom(Message(7, 600, Text("seven"))), 5);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 5), Text("seven"));
}

TEST_F(MessagingTest, RecvGivesTheSizeOfABodyTooShortForItsHeader) {
  for (const int size : {1, 12}) {
    EXPECT_EQ(ReceiveFrom(Message(1, 600, Bytes(static_cast<size_t>(size), 0x55))), size);
    EXPECT_EQ(libzel_get_errno(), 0);
    EXPECT_EQ(buffer, Bytes(64, 0xEE));
  }
}

TEST_F(MessagingTest, RecvOfABodyOf13BytesGives0) {
  EXPECT_EQ(ReceiveFrom(Message(1, 600, InnerHeader(0, 1))), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(MessagingTest, RecvOfASplitBodyWaitsForItsRest) {
  (void)link.instance.Send(600, Text("ask"));
  const Bytes answer = Answer(600, 1, Text("hello"));
  std::thread answerer([&] {
    (void)peer.Send(Bytes(answer.begin(), answer.begin() + 15));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    (void)peer.Send(Bytes(answer.begin() + 15, answer.end()));
  });
  EXPECT_EQ(link.instance.Receive(buffer), 5);
  answerer.join();
}

TEST_F(MessagingTest, RecvOfALargeAnswerGetsEveryByte) {
  buffer = Bytes(5000000);
  Bytes payload(5000000);
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 7 + i / 251);
  (void)link.instance.Send(600, Text("ask"));
  std::thread answerer([&] { (void)peer.Send(Answer(600, 1, payload)); });
  EXPECT_EQ(link.instance.Receive(buffer), 5000000);
  answerer.join();
  EXPECT_EQ(buffer, payload);
}

// ---- Receive, failures ------------------------------------------------------------------------------------

TEST_F(MessagingTest, RecvFailsWith5WhenTheServerCloses) {
  peer.Close();
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
}

TEST_F(MessagingTest, RecvReportsTheClose) {
  const CapturedLog log;
  peer.Close();
  (void)link.instance.Receive(buffer);
  EXPECT_TRUE(log.Has("ERROR", "connection is close"));
  EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1, 5}));
}

TEST_F(MessagingTest, RecvReportsAResetAsAClose) {
  peer.Reset();
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
  EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1, 5}));
}

TEST_F(MessagingTest, RecvOnADownLinkFailsWith5) {
  peer.Close();
  (void)link.instance.Receive(buffer);
  const CapturedLog log;
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
  EXPECT_TRUE(log.Has("ERROR", "connection is lost,ready reconnect"));
}

TEST_F(MessagingTest, RecvOfAShortHeaderFailsWith4112) {
  const CapturedLog log;
  EXPECT_EQ(ReceiveFrom({0, 1, 2}), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_TRUE(log.Has("ERROR", "recv size!=header.nMsgLen,size:3,nMsgLen:0"));
}

TEST_F(MessagingTest, RecvOfAHeaderThatAnnouncesNothingFailsWith4112) {
  const CapturedLog log;
  EXPECT_EQ(ReceiveFrom(OuterHeader(1, 600, 0)), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_TRUE(log.Has("ERROR", "recv size!=header.nMsgLen,size:8,nMsgLen:0"));
}

TEST_F(MessagingTest, RecvKeepsTheLinkAfterABadHeader) {
  (void)ReceiveFrom(OuterHeader(1, 600, 0));
  EXPECT_EQ(ReceiveFrom(Answer(600, 2, Text("hello"))), 5);
  EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
}

TEST_F(MessagingTest, RecvOfAShortBodyFailsWith4112AndCloses) {
  const CapturedLog log;
  EXPECT_EQ(ReceiveFrom(OuterHeader(1, 600, 20) + Bytes(5), 300), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_TRUE(log.Has("ERROR", "recv:5,MsgLen:20 error"));
  EXPECT_TRUE(peer.AwaitEnd());
}

TEST_F(MessagingTest, RecvOfAShortBodyReportsNoEvent) {
  (void)ReceiveFrom(OuterHeader(1, 600, 20) + Bytes(5), 200);
  EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
}

TEST_F(MessagingTest, RecvOfABodyThatTheServerCutsFailsWith4112) {
  const CapturedLog log;
  (void)link.instance.Send(600, Text("ask"));
  (void)peer.ReadRequest();
  (void)peer.Send(OuterHeader(1, 600, 20) + Bytes(5));
  peer.Close();
  EXPECT_EQ(link.instance.Receive(buffer), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_TRUE(log.Has("ERROR", "recv 0 disconnect"));
  EXPECT_TRUE(log.Has("ERROR", "recv:0,MsgLen:20 error"));
}

}  // namespace
}  // namespace zeltest
