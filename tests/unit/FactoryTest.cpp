// The factory, its registry and the device connection cache.
#include <gtest/gtest.h>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/DeviceId.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

using zeltest::CapturedLog;
using zeltest::ScriptedServer;

TEST(FactoryTest, ParametersAreTheHostAndTheServerPort) {
  const ZelDeviceId device{{192, 168, 1, 20, 0, 1}};
  const CapturedLog log;
  const auto connection = CPeerConnMgr::CreateTcpClientConnection(&device);
  EXPECT_EQ(connection->parameters(), "ip=192.168.1.20;port=9999");
  EXPECT_TRUE(log.Has("TRACE", "create tcp client <param:ip=192.168.1.20;port=9999>"));
}

TEST(FactoryTest, KnownHostReplacesTheIdentifiersOwn) {
  const ZelDeviceId device{{192, 168, 1, 21, 0, 1}};
  (void)CRouterTable::Instance().SetHostIp(device, "10.0.0.5");
  EXPECT_EQ(CPeerConnMgr::CreateTcpClientConnection(&device)->parameters(), "ip=10.0.0.5;port=9999");
}

TEST(FactoryTest, NullIdentifierGivesNothing) {
  SetErrno(0);
  EXPECT_EQ(CPeerConnMgr::CreateTcpClientConnection(nullptr), nullptr);
  EXPECT_EQ(GetErrno(), 4097);
}

TEST(FactoryTest, RefusesTheTypes1To4) {
  const ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  for (const uint32_t type : {1U, 2U, 3U, 4U}) {
    SetErrno(0);
    EXPECT_EQ(CPeerConnMgr::Instance().CreateInstance(&device, type), nullptr);
    EXPECT_EQ(GetErrno(), 4107);
  }
}

TEST(FactoryTest, NewConnectionIsNotConnected) {
  const ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  EXPECT_FALSE(CPeerConnMgr::CreateTcpClientConnection(&device)->IsConnected());
}

TEST(FactoryTest, FindsWhatItMadeUntilItIsReleased) {
  auto& manager = CPeerConnMgr::Instance();
  const ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  const ZelInstance handle = CPeerConnMgr::HandleOf(manager.CreateInstance(&device, 0));
  EXPECT_EQ(CPeerConnMgr::HandleOf(manager.FindInstance(handle)), handle);
  manager.ReleaseInstance(handle);
  EXPECT_EQ(manager.FindInstance(handle), nullptr);
  manager.ReleaseInstance(handle);
  EXPECT_EQ(manager.FindInstance(handle), nullptr);
}

TEST(FactoryTest, HandleZeroIsNeverLive) { EXPECT_EQ(CPeerConnMgr::Instance().FindInstance(0), nullptr); }

TEST(FactoryTest, CacheKeepsOneRunningConnectionPerDevice) {
  ScriptedServer server;
  auto& cache = CDeviceConnectionCache::Instance();
  const auto first = cache.GetConnection(server.device());
  EXPECT_EQ(cache.GetConnection(server.device()), first);
  zeltest::MessageRecorder seen;
  EXPECT_EQ(first->addUserMessaggeRouter(600, zeltest::MessageRecorder::Callback, &seen), 0);
  EXPECT_TRUE(server.Accept().Send(zeltest::Message(0, 600, {1})));
  EXPECT_TRUE(seen.Await(1));
  CPeerConnMgr::Instance().ReleaseInstance(CPeerConnMgr::HandleOf(first));
}

TEST(FactoryTest, CacheMakesAReleasedConnectionAnew) {
  ScriptedServer server;
  auto& cache = CDeviceConnectionCache::Instance();
  auto& manager = CPeerConnMgr::Instance();
  auto first = cache.GetConnection(server.device());
  manager.ReleaseInstance(CPeerConnMgr::HandleOf(first));
  const auto second = cache.GetConnection(server.device());
  EXPECT_NE(second, first);
  EXPECT_TRUE(second->IsConnected());
  manager.ReleaseAll();
}

// A later instance may get the address, and with it the handle, of one that is gone.
TEST(FactoryTest, CacheNeverTakesAnotherDevicesConnectionForItsOwn) {
  auto& cache = CDeviceConnectionCache::Instance();
  auto& manager = CPeerConnMgr::Instance();
  ScriptedServer server;
  ScriptedServer other;
  (void)cache.GetConnection(server.device());
  manager.ReleaseAll();
  for (int i = 0; i < 20; ++i) (void)manager.CreateInstance(&other.device(), 0);
  const auto again = cache.GetConnection(server.device());
  EXPECT_EQ(DeviceIdText(again->remoteDeviceId()), DeviceIdText(server.device()));
  manager.ReleaseAll();
}

}  // namespace
}  // namespace libzel
