#include "zelcomm/Socket.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::CapturedLog;
using zeltest::ElapsedTime;
using zeltest::Peer;
using zeltest::ScriptedServer;

class SocketTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(platform::StartSockets(), 0); }
};

TEST_F(SocketTest, StreamSocketIsAnnounced) {
  const CapturedLog log;
  TcpSocket socket("127.0.0.1", 1, Socket::kStream, false);
  EXPECT_NE(socket.fd(), platform::kNoSocket);
  EXPECT_TRUE(log.Has("TRACE", "create tcp socket,sock type:1"));
}

TEST_F(SocketTest, DatagramSocketIsAnnounced) {
  const CapturedLog log;
  UdpSocket socket("127.0.0.1", 1, Socket::kDatagram, false);
  EXPECT_NE(socket.fd(), platform::kNoSocket);
  EXPECT_TRUE(log.Has("TRACE", "create udp socket,sock type:2"));
  socket.Shutdown();
}

TEST_F(SocketTest, OtherTypesGetNoHandle) {
  const CapturedLog log;
  TcpSocket socket("10.1.2.3", 1, 7, false);
  EXPECT_EQ(socket.fd(), platform::kNoSocket);
  EXPECT_TRUE(log.HasStart("ERROR", "create socket error:"));
}

TEST_F(SocketTest, LocalSocketHasNoHandleAtFirst) {
  const CapturedLog log;
  DomainTcpSocket socket("/var/tmp/zel/zelserver", 0, Socket::kStream, true);
  EXPECT_EQ(socket.fd(), platform::kNoSocket);
  EXPECT_TRUE(log.HasStart("ERROR", "create socket error:"));
}

TEST_F(SocketTest, LocalSocketFailsWithoutAServer) {
  DomainTcpSocket socket("/nowhere/zelserver", 0, Socket::kStream, true);
  EXPECT_FALSE(socket.Connect(100));
  EXPECT_FALSE(socket.isConnected());
}

TEST_F(SocketTest, LocalSocketsEndIsLogged) {
  const CapturedLog log;
  { DomainTcpSocket socket("/nowhere/zelserver", 0, Socket::kStream, true); }
  EXPECT_TRUE(log.Has("DEBUG", "close domain socket:-1,name:(null)"));
}

// ---- Connect ----------------------------------------------------------------------------------------------

class TcpSocketTest : public SocketTest {
 protected:
  TcpSocketTest() {
    EXPECT_TRUE(socket.Connect(1000));
    peer = server.Accept();
  }

  ScriptedServer server;
  TcpSocket socket{server.host().c_str(), ScriptedServer::kPort, Socket::kStream, false};
  Peer peer;
  Bytes buffer = Bytes(100);
};

TEST_F(TcpSocketTest, ConnectSetsTheFlag) { EXPECT_TRUE(socket.isConnected()); }

TEST_F(TcpSocketTest, ShutdownClearsTheFlagAndTheHandle) {
  socket.Shutdown();
  EXPECT_FALSE(socket.isConnected());
  EXPECT_EQ(socket.fd(), platform::kNoSocket);
  EXPECT_TRUE(peer.AwaitEnd());
}

TEST_F(TcpSocketTest, ConnectsAgainAfterAShutdown) {
  for (int i = 0; i < 3; ++i) {
    socket.Shutdown();
    EXPECT_TRUE(socket.Connect(1000));
    EXPECT_TRUE(server.Accept().IsOpen());
  }
}

TEST_F(TcpSocketTest, ConnectOnALiveLinkKeepsIt) {
  const auto before = socket.fd();
  EXPECT_TRUE(socket.Connect(1000));
  EXPECT_EQ(socket.fd(), before);
  EXPECT_FALSE(server.IsCalled(20));
}

TEST_F(TcpSocketTest, ConnectOnADeadLinkMakesANewOne) {
  peer.Close();
  EXPECT_TRUE(socket.Select(1000));
  EXPECT_EQ(socket.readFull(buffer.data(), 1), 0);
  EXPECT_TRUE(socket.Connect(1000));
  EXPECT_TRUE(server.Accept().IsOpen());
}

TEST_F(TcpSocketTest, BuffersAreFourTimesTheirSize) {
  TcpSocket fresh("127.0.0.1", 1, Socket::kStream, false);
  int32_t send = 0, receive = 0;
  ASSERT_TRUE(platform::GetSendBuffer(fresh.fd(), send) && platform::GetReceiveBuffer(fresh.fd(), receive));
  const CapturedLog log;
  fresh.setOptions();
  EXPECT_TRUE(log.Has("INFO", "socket set send buffer " + std::to_string(4 * send) + " byte"));
  EXPECT_TRUE(log.Has("INFO", "socket set recv buffer " + std::to_string(4 * receive) + " byte"));
}

TEST_F(TcpSocketTest, BuffersNeverCountRoundToNothing) {
  TcpSocket fresh("127.0.0.1", 1, Socket::kStream, false);
  const CapturedLog log;
  for (int i = 0; i < 20; ++i) fresh.setOptions();
  for (const char* which : {"send", "recv"}) {
    EXPECT_FALSE(log.HasStart("INFO", std::string("socket set ") + which + " buffer 0")) << which;
    EXPECT_FALSE(log.HasStart("INFO", std::string("socket set ") + which + " buffer -")) << which;
  }
}

TEST_F(SocketTest, OptionsOfNoSocketFailOneByOne) {
  TcpSocket socket("127.0.0.1", 1, 7, false);
  const CapturedLog log;
  socket.setOptions();
  std::vector<std::string> starts;
  for (const auto& line : log.Lines()) {
    EXPECT_EQ(line.level, "ERROR");
    EXPECT_NE(line.message.find(": errno="), std::string::npos);
    EXPECT_NE(line.message.find(" errstr="), std::string::npos);
    starts.push_back(line.message.substr(0, line.message.find(':')));
  }
  EXPECT_EQ(starts,
            (std::vector<std::string>{"socket get send buffer error", "socket get recv buffer error",
                                      "socket set send buffer error", "socket set recv buffer error",
                                      "socket set sock linger error", "socket set sock keep alive error",
                                      "socket set TCP_NODELAY error"}));
}

TEST_F(SocketTest, RefusedConnectFailsEarlyAndLeavesNoHandle) {
  TcpSocket socket(zeltest::HostOf(zeltest::DeviceWithoutServer()).c_str(), 9999, Socket::kStream, false);
  const CapturedLog log;
  const ElapsedTime time;
  EXPECT_FALSE(socket.Connect(5000));
  EXPECT_LT(time.AwakeMs(), 4500);
  EXPECT_EQ(socket.fd(), platform::kNoSocket);
  EXPECT_FALSE(socket.isConnected());
  EXPECT_TRUE(log.HasStart("ERROR", "TcpSocket connect failed,errno:"));
}

TEST_F(SocketTest, ConnectThatNobodyAnswersTimesOut) {
  ScriptedServer server;
  server.Stall();
  TcpSocket socket(server.host().c_str(), ScriptedServer::kPort, Socket::kStream, false);
  const ElapsedTime time;
  EXPECT_FALSE(socket.Connect(200));
  EXPECT_GE(time.Ms(), 195);
  EXPECT_LT(time.AwakeMs(), 3000);
  EXPECT_EQ(socket.fd(), platform::kNoSocket);
}

TEST_F(SocketTest, ConnectWithATimeoutOf0ReturnsAtOnce) {
  ScriptedServer server;
  server.Stall();
  TcpSocket socket(server.host().c_str(), ScriptedServer::kPort, Socket::kStream, false);
  const ElapsedTime time;
  EXPECT_FALSE(socket.Connect(0));
  EXPECT_LT(time.AwakeMs(), 500);
}

// ---- Select -----------------------------------------------------------------------------------------------

TEST_F(TcpSocketTest, SelectWithATimeoutOf0ReturnsAtOnce) {
  const ElapsedTime time;
  EXPECT_FALSE(socket.Select(0));
  EXPECT_FALSE(socket.Select(-5));
  EXPECT_LT(time.AwakeMs(), 500);
}

TEST_F(TcpSocketTest, SelectTimesOutSilently) {
  const CapturedLog log;
  const ElapsedTime time;
  EXPECT_FALSE(socket.Select(100));
  EXPECT_GE(time.Ms(), 95);
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(TcpSocketTest, SelectSeesBytesAndTheEnd) {
  EXPECT_TRUE(peer.Send({1}));
  EXPECT_TRUE(socket.Select(1000));
  EXPECT_EQ(socket.readFull(buffer.data(), 1), 1);
  peer.Close();
  EXPECT_TRUE(socket.Select(1000));
}

TEST_F(TcpSocketTest, SelectWithoutAHandleIsLogged) {
  socket.Shutdown();
  const CapturedLog log;
  EXPECT_FALSE(socket.Select(1000));
  EXPECT_TRUE(log.Has("ERROR", "connection closed,socket:-1"));
  EXPECT_EQ(log.FunctionOf("connection closed,socket:-1"), "Socket::Select");
}

// ---- Reading ----------------------------------------------------------------------------------------------

TEST_F(TcpSocketTest, ReadnGivesTheHalfThatCame) {
  EXPECT_TRUE(peer.Send(Bytes(50)));
  const ElapsedTime time;
  EXPECT_EQ(socket.readn(buffer.data(), 100, 200), 50U);
  EXPECT_GE(time.Ms(), 195);
  EXPECT_TRUE(socket.isConnected());
}

TEST_F(TcpSocketTest, ReadnWaitsForTheRest) {
  std::thread sender([&] {
    for (int i = 0; i < 10; ++i) {
      EXPECT_TRUE(peer.Send(Bytes(10)));
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  EXPECT_EQ(socket.readn(buffer.data(), 100, 10000), 100U);
  sender.join();
}

TEST_F(TcpSocketTest, ReadnOfAClosedConnectionGives0) {
  EXPECT_TRUE(peer.Send(Bytes(50)));
  peer.Close();
  const CapturedLog log;
  EXPECT_EQ(socket.readn(buffer.data(), 100, 1000), 0U);
  EXPECT_FALSE(socket.isConnected());
  EXPECT_TRUE(log.Has("ERROR", "recv 0 disconnect"));
}

TEST_F(TcpSocketTest, ReadnOfAResetConnectionGives0) {
  peer.Reset();
  EXPECT_TRUE(socket.Select(1000));
  const CapturedLog log;
  EXPECT_EQ(socket.readn(buffer.data(), 100, 1000), 0U);
  EXPECT_FALSE(socket.isConnected());
  // Wine tells a reset as an end of the stream.
  EXPECT_TRUE(log.Has("ERROR", "recv -1 disconnect,lasterror:10054") ||
              log.Has("ERROR", "recv 0 disconnect"));
}

TEST_F(TcpSocketTest, ReadnFillsABuffer) {
  FrameBuffer frame(3);
  EXPECT_TRUE(peer.Send({1, 2, 3, 4}));
  EXPECT_EQ(socket.readn(frame, 1000), 3U);
  EXPECT_EQ(Bytes(frame.block(), frame.block() + 3), (Bytes{1, 2, 3}));
}

TEST_F(TcpSocketTest, ReadFullOfNothingGivesItsSize) {
  EXPECT_EQ(socket.readFull(buffer.data(), 0), 0);
  EXPECT_EQ(socket.readFull(buffer.data(), -3), -3);
  EXPECT_TRUE(socket.isConnected());
}

TEST_F(TcpSocketTest, ReadFullDoesNotWait) {
  EXPECT_EQ(socket.readFull(buffer.data(), 8), -1);
  EXPECT_TRUE(socket.isConnected());
  EXPECT_TRUE(peer.Send({1, 2, 3}));
  EXPECT_TRUE(socket.Select(1000));
  EXPECT_EQ(socket.readFull(buffer.data(), 8), 3);
}

TEST_F(TcpSocketTest, ReadFullOfAnEndedConnectionGives0) {
  peer.EndSending();
  EXPECT_TRUE(socket.Select(1000));
  EXPECT_EQ(socket.readFull(buffer.data(), 8), 0);
  EXPECT_FALSE(socket.isConnected());
}

TEST_F(TcpSocketTest, ReadFullOfAResetConnectionGives0) {
  peer.Reset();
  EXPECT_TRUE(socket.Select(1000));
  EXPECT_EQ(socket.readFull(buffer.data(), 8), 0);
  EXPECT_FALSE(socket.isConnected());
}

// ---- Writing ----------------------------------------------------------------------------------------------

TEST_F(TcpSocketTest, WriteGivesTheBytesSent) {
  EXPECT_EQ(socket.write(buffer.data(), 7, 0), 7);
  EXPECT_EQ(peer.Read(7), Bytes(7));
}

TEST_F(TcpSocketTest, WriteOfNothingGives0) { EXPECT_EQ(socket.write(buffer.data(), 0, 0), 0); }

TEST_F(TcpSocketTest, LargestFrameIsWritten) {
  FrameBuffer frame(10485760, Bytes(10485760, 3).data());
  std::thread reader([&] { EXPECT_EQ(peer.Read(10485760), Bytes(10485760, 3)); });
  EXPECT_EQ(socket.write(frame, 0), 10485760);
  reader.join();
}

TEST_F(TcpSocketTest, LongerFrameIsRefused) {
  FrameBuffer frame(10485761, Bytes(10485761).data());
  const CapturedLog log;
  EXPECT_EQ(socket.write(frame, 0), 0);
  EXPECT_TRUE(log.Has("ERROR", "frame length: 10485761  exceeds maximum length for sockets"));
}

TEST_F(TcpSocketTest, WriteThatWaitsSaysSo) {
  const CapturedLog log;
  std::thread writer([&] {
    const Bytes much(16 << 20);
    EXPECT_EQ(socket.write(much.data(), 16 << 20, 0), 16 << 20);
  });
  EXPECT_TRUE(log.Await("TRACE", "send error again: usleep 1ms"));
  EXPECT_EQ(peer.Read(16 << 20).size(), size_t{16 << 20});
  writer.join();
}

TEST_F(TcpSocketTest, WriteOnABrokenConnectionFailsWith5) {
  peer.Reset();
  const CapturedLog log;
  EXPECT_TRUE(zeltest::Eventually([&] { return socket.write(buffer.data(), 1, 0) == -1; }));
  EXPECT_EQ(GetErrno(), 5);
  EXPECT_FALSE(socket.isConnected());
  EXPECT_TRUE(log.HasStart("ERROR", "send error "));
}

TEST_F(TcpSocketTest, WriteWithoutAHandleLeavesTheSystemsNumber) {
  socket.Shutdown();
  EXPECT_EQ(socket.write(buffer.data(), 1, 0), -1);
  EXPECT_NE(GetErrno(), 0);
  EXPECT_NE(GetErrno(), 5);
}

// ---- Datagrams --------------------------------------------------------------------------------------------

class UdpSocketTest : public SocketTest {
 protected:
  UdpSocketTest() { EXPECT_TRUE(platform::Bind(receiver.fd(), host.c_str(), 38898)); }

  const std::string host = zeltest::HostOf(zeltest::DeviceWithoutServer());
  UdpSocket sender{host.c_str(), 38898, Socket::kDatagram, false};
  UdpSocket receiver{host.c_str(), 0, Socket::kDatagram, false};
  Bytes buffer = Bytes(8);
};

TEST_F(UdpSocketTest, ConnectDoesNothing) { EXPECT_TRUE(sender.Connect(0)); }

TEST_F(UdpSocketTest, DatagramArrives) {
  const Bytes data{1, 2, 3};
  EXPECT_EQ(sender.write(FrameBuffer(3, data.data())), 3);
  EXPECT_EQ(receiver.read(buffer.data(), 8, 1000), 3);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 3), data);
}

TEST_F(UdpSocketTest, TimeoutGivesMinus1) { EXPECT_EQ(receiver.read(buffer.data(), 8, 50), -1); }

TEST_F(UdpSocketTest, DatagramLongerThanTheBufferFails) {
  const Bytes data(9);
  EXPECT_EQ(sender.write(data.data(), 9), 9);
  const CapturedLog log;
  EXPECT_EQ(receiver.read(buffer.data(), 8, 1000), -1);
  EXPECT_TRUE(log.Has("ERROR", "recvfrom error:10040"));
}

TEST_F(UdpSocketTest, FailedSendIsLogged) {
  const Bytes data(70000);
  const CapturedLog log;
  EXPECT_EQ(sender.write(data.data(), 70000), -1);
  EXPECT_TRUE(log.Has("ERROR", "write frame failed with error:10040"));
}

}  // namespace
}  // namespace libzel
