#include "zelclient/ZelTcpclient.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::CapturedLog;
using zeltest::EventRecorder;
using zeltest::ScriptedServer;

constexpr ZelDeviceId kDevice{{1, 2, 3, 4, 5, 6}};

class TcpclientTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(platform::StartSockets(), 0); }

  static bool Announces(const std::string& parameters, const std::string& target) {
    const CapturedLog log;
    const CTcpclient client(kDevice, parameters, false);
    return log.Has("DEBUG", "Create  TCP Socket,Ready HostName:" + target);
  }
};

TEST_F(TcpclientTest, ReadsItsParameters) {
  EXPECT_TRUE(Announces("ip=10.0.0.1;port=9999", "10.0.0.1,port:9999"));
  EXPECT_TRUE(Announces("ip=10.0.0.1;port=9999;", "10.0.0.1,port:9999"));
  EXPECT_TRUE(Announces("port=1;ip=10.0.0.1", "10.0.0.1,port:1"));
}

TEST_F(TcpclientTest, IgnoresOtherKeys) {
  EXPECT_TRUE(Announces("IP=9.9.9.9;ip=10.0.0.1;hostname=x;port=9999;;nothing", "10.0.0.1,port:9999"));
}

TEST_F(TcpclientTest, ThrowsForAPortThatIsNoNumber) {
  EXPECT_THROW(CTcpclient(kDevice, "ip=10.0.0.1;port=x", false), std::invalid_argument);
  EXPECT_THROW(CTcpclient(kDevice, "ip=10.0.0.1;port=99999999999", false), std::out_of_range);
}

TEST_F(TcpclientTest, LocalPathHasADefault) {
  const CapturedLog log;
  const CTcpclient client(kDevice, "", true);
  EXPECT_TRUE(log.Has("DEBUG", "Create Unix Domain TCP Socket,Ready HostName:/var/tmp/zel/zelserver"));
}

TEST_F(TcpclientTest, LocalPathIsTheHostname) {
  const CapturedLog log;
  const CTcpclient client(kDevice, "hostname=/tmp/server", true);
  EXPECT_TRUE(log.Has("DEBUG", "Create Unix Domain TCP Socket,Ready HostName:/tmp/server"));
}

TEST_F(TcpclientTest, PacedReconnectIsOffWithTheSwitch) {
  ScriptedServer server;
  CTcpclient client(kDevice, "ip=" + server.host() + ";port=9999", false);
  client.SetReconnectDelay(0, false);
  EXPECT_FALSE(client.WrapReconnect(1000));
  EXPECT_FALSE(server.IsCalled(20));
}

TEST_F(TcpclientTest, PacedReconnectWaitsForTheInterval) {
  ScriptedServer server;
  CTcpclient client(kDevice, "ip=" + server.host() + ";port=9999", false);
  EXPECT_FALSE(client.WrapReconnect(1000));
  client.SetReconnectDelay(0, true);
  EXPECT_TRUE(client.WrapReconnect(1000));
}

TEST_F(TcpclientTest, SendOnADownLinkUsesNoInvokeIdentifier) {
  CTcpclient client(kDevice, "ip=127.0.0.1;port=1", false);
  EXPECT_EQ(client.Send(600, 0, 0, nullptr, 0, 10), -1);
  EXPECT_EQ(GetErrno(), 5);
  EXPECT_EQ(client.GenInvokeId(), 1U);
}

TEST_F(TcpclientTest, CloseEndsTheLink) {
  ScriptedServer server;
  CTcpclient client(kDevice, "ip=" + server.host() + ";port=9999", false);
  EXPECT_TRUE(client.Connect(1000));
  client.Close();
  EXPECT_FALSE(client.IsConnected());
  EXPECT_TRUE(server.Accept().AwaitEnd());
}

TEST_F(TcpclientTest, WriteAndSendBufferReachTheWire) {
  ScriptedServer server;
  CTcpclient client(kDevice, "ip=" + server.host() + ";port=9999", false);
  EXPECT_TRUE(client.Connect(1000));
  const Bytes data{1, 2, 3};
  EXPECT_EQ(client.Write(data.data(), 3, 1000), 3);
  EXPECT_EQ(client.SendBuffer(FrameBuffer(3, data.data())), 3);
  EXPECT_EQ(server.Accept().Read(6), (Bytes{1, 2, 3, 1, 2, 3}));
}

TEST_F(TcpclientTest, EventsCarryTheRemoteIdentifier) {
  ScriptedServer server;
  EventRecorder events;
  CTcpclient client(kDevice, "ip=" + server.host() + ";port=9999", false);
  client.SetEventCallback(EventRecorder::Callback, &events);
  EXPECT_TRUE(client.Connect(1000));
  ASSERT_EQ(events.Count(), 2U);
  const ZelDeviceId device = events.All()[0].device;
  EXPECT_EQ(Bytes(device.bytes, device.bytes + 6), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST_F(TcpclientTest, DestructionReportsNothing) {
  ScriptedServer server;
  EventRecorder events;
  {
    CTcpclient client(kDevice, "ip=" + server.host() + ";port=9999", false);
    client.SetEventCallback(EventRecorder::Callback, &events);
    EXPECT_TRUE(client.Connect(1000));
    EXPECT_EQ(client.loop_start(), 0);
  }
  EXPECT_EQ(events.Numbers(), (std::vector<int32_t>{2, 1}));
}

}  // namespace
}  // namespace libzel
