#include "zelcomm/SocketLink.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <thread>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/Socket.h"

namespace libzel {
namespace {

using zeltest::Bytes;

class SocketLinkTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(platform::StartSockets(), 0); }
  SocketLinkTest() {
    EXPECT_TRUE(socket.Connect(1000));
    peer = server.Accept();
    link = socket.link();
  }

  zeltest::ScriptedServer server;
  TcpSocket socket{server.host().c_str(), 9999, Socket::kStream, false};
  zeltest::Peer peer;
  std::shared_ptr<SocketLink> link;
  Bytes buffer = Bytes(8);
};

TEST_F(SocketLinkTest, OldLinkStaysUsableAfterAShutdown) {
  socket.Shutdown();
  EXPECT_FALSE(link->connected());
  EXPECT_NE(link->handle(), platform::kNoSocket);
  EXPECT_EQ(link->readFull(buffer.data(), 8), 0);
}

TEST_F(SocketLinkTest, OldLinkDoesNotEndItsSuccessor) {
  socket.Shutdown();
  EXPECT_TRUE(socket.Connect(1000));
  socket.ShutdownLink(*link);
  EXPECT_TRUE(socket.isConnected());
}

TEST_F(SocketLinkTest, WakeEndsAWait) {
  platform::Waker waker;
  ASSERT_TRUE(waker.Open());
  waker.Wake();
  const zeltest::ElapsedTime time;
  EXPECT_FALSE(link->Select(10000, &waker));
  EXPECT_LT(time.AwakeMs(), 5000);
}

TEST_F(SocketLinkTest, BytesReadAheadAreReadyAtOnce) {
  const SocketLink::Reader reader(link);
  EXPECT_TRUE(peer.Send({1, 2, 3, 4}));
  EXPECT_TRUE(link->SelectEagerly(1000));
  EXPECT_EQ(link->readFull(buffer.data(), 2), 2);
  EXPECT_TRUE(link->Select(0));
  EXPECT_EQ(link->readFull(buffer.data() + 2, 2), 2);
  EXPECT_EQ(buffer, (Bytes{1, 2, 3, 4, 0, 0, 0, 0}));
}

TEST_F(SocketLinkTest, SecondReaderSeesWhatTheFirstReadAhead) {
  const SocketLink::Reader first(link);
  EXPECT_TRUE(peer.Send({1, 2, 3, 4}));
  EXPECT_TRUE(link->SelectEagerly(1000));
  const SocketLink::Reader second(link);
  EXPECT_TRUE(link->Select(0));
  EXPECT_EQ(link->readFull(buffer.data(), 4), 4);
  EXPECT_FALSE(link->Select(0));
}

TEST_F(SocketLinkTest, TrimKeepsUnreadBytes) {
  const SocketLink::Reader reader(link);
  EXPECT_TRUE(peer.Send({1, 2}));
  EXPECT_TRUE(link->SelectEagerly(1000));
  EXPECT_EQ(link->readFull(buffer.data(), 1), 1);
  link->TrimReadAhead();
  EXPECT_EQ(link->readFull(buffer.data(), 1), 1);
  EXPECT_EQ(buffer[0], 2);
}

TEST_F(SocketLinkTest, EagerWaitTimesOut) {
  const SocketLink::Reader reader(link);
  const zeltest::ElapsedTime time;
  EXPECT_FALSE(link->SelectEagerly(100));
  EXPECT_GE(time.Ms(), 95);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(SocketLinkTest, CancelEndsAWait) {
  std::thread canceller([&] { socket.Cancel(); });
  const zeltest::ElapsedTime time;
  while (!link->IsCancelled()) (void)link->Select(10000);
  EXPECT_LT(time.AwakeMs(), 5000);
  canceller.join();
}

TEST_F(SocketLinkTest, CancelEndsAWriteThatThePeerDoesNotRead) {
  const zeltest::CapturedLog log;
  std::thread canceller([&] {
    EXPECT_TRUE(log.Await("TRACE", "send error again: usleep 1ms"));
    socket.Cancel();
  });
  const Bytes much(16 << 20);
  EXPECT_EQ(socket.write(much.data(), 16 << 20, 0), -1);
  EXPECT_EQ(GetErrno(), 5);
  canceller.join();
  for (const auto& line : log.Lines()) EXPECT_NE(line.level, "ERROR") << line.message;
}

TEST_F(SocketLinkTest, NothingIsConnectedAgainOnceCancelled) {
  socket.Cancel();
  EXPECT_FALSE(socket.isConnected());
  EXPECT_FALSE(socket.Connect(1000));
  EXPECT_FALSE(server.IsCalled(20));
}

TEST_F(SocketLinkTest, CancelEndsAConnectThatNobodyAnswers) {
  zeltest::ScriptedServer stalled;
  stalled.Stall();
  TcpSocket waiting(stalled.host().c_str(), 9999, Socket::kStream, false);
  const zeltest::CapturedLog log;
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    waiting.Cancel();
  });
  const zeltest::ElapsedTime time;
  EXPECT_FALSE(waiting.Connect(20000));
  EXPECT_LT(time.AwakeMs(), 5000);
  canceller.join();
  for (const auto& line : log.Lines()) EXPECT_NE(line.level, "ERROR") << line.message;
}

TEST_F(SocketLinkTest, SoleReaderTakesWholeFramesWhereTheyLie) {
  const SocketLink::Reader reader(link);
  const Bytes message = zeltest::Message(0, 600, {7, 8});
  EXPECT_TRUE(peer.Send(message));
  EXPECT_TRUE(link->SelectEagerly(1000));
  const auto frame = link->TakeWhole(100);
  ASSERT_TRUE(frame);
  EXPECT_EQ(Bytes(frame->body.begin(), frame->body.end()), (Bytes{7, 8}));
  EXPECT_FALSE(link->TakeWhole(100));
}

TEST_F(SocketLinkTest, NothingIsWrittenBehindAFrameThatLeftInPart) {
  const Bytes much(10 << 20), frame{1, 2, 3};
  const platform::ConstBytes first = much, second = frame;
  const auto soon = CondVar::Clock::now() + std::chrono::milliseconds(50);
  const auto cut = link->writeBefore({&first, 1}, soon);
  EXPECT_EQ(cut.end, SocketLink::Written::End::kStalled);
  ASSERT_GT(cut.bytes, 0U);
  EXPECT_EQ(peer.Read(cut.bytes).size(), cut.bytes);  // so that there is room again
  EXPECT_EQ(link->write({&second, 1}), -1);
  EXPECT_EQ(GetErrno(), ZEL_E_DISCONNECTED);
  EXPECT_FALSE(peer.HasInput(20));
  link->ForgetCut();
  EXPECT_EQ(link->write({&second, 1}), 3);
  EXPECT_EQ(peer.Read(3), frame);
}

TEST_F(SocketLinkTest, PiecesAreWrittenAsOneFrame) {
  const Bytes first{1, 2}, second, third{3};
  const platform::ConstBytes pieces[] = {first, second, third};
  EXPECT_EQ(link->write(pieces), 3);
  EXPECT_EQ(peer.Read(3), (Bytes{1, 2, 3}));
}

}  // namespace
}  // namespace libzel
