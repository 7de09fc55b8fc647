#include <gtest/gtest.h>

#include "support/CapturedLog.h"
#include "zelclient/routetable/RouterTable.h"

namespace libzel {
namespace {

TEST(RouterTableTest, UnknownIdentifierGivesItsFirstFourBytes) {
  CRouterTable table;
  EXPECT_EQ(table.GetHostIpFromDeviceId({{192, 168, 1, 20, 0, 1}}), "192.168.1.20");
}

TEST(RouterTableTest, FallbackIsLogged) {
  CRouterTable table;
  const zeltest::CapturedLog log;
  (void)table.GetHostIpFromDeviceId({{192, 168, 1, 20, 0, 1}});
  EXPECT_TRUE(
      log.Has("TRACE", "ZelDeviceId:192.168.1.20.0.1 not find router table,generate Host Ip:192.168.1.20"));
}

TEST(RouterTableTest, KnownIdentifierGivesItsHost) {
  CRouterTable table;
  EXPECT_EQ(table.SetHostIp(ZelDeviceId{{192, 168, 1, 20, 0, 1}}, "10.0.0.5"), 0);
  const zeltest::CapturedLog log;
  EXPECT_EQ(table.GetHostIpFromDeviceId({{192, 168, 1, 20, 0, 1}}), "10.0.0.5");
  EXPECT_TRUE(log.Has("TRACE", "from router table ZelDeviceId:192.168.1.20.0.1 Get Host Ip:10.0.0.5"));
}

TEST(RouterTableTest, SecondHostReplacesTheFirst) {
  CRouterTable table;
  (void)table.SetHostIp(ZelDeviceId{{1, 2, 3, 4, 5, 6}}, "10.0.0.5");
  (void)table.SetHostIp(ZelDeviceId{{1, 2, 3, 4, 5, 6}}, "10.0.0.6");
  EXPECT_EQ(table.GetHostIpFromDeviceId({{1, 2, 3, 4, 5, 6}}), "10.0.0.6");
}

TEST(RouterTableTest, OneThatNobodyPinnedMayLeaveAPinnedOne) {
  using Pinned = CRouterTable::Pinned;
  CRouterTable table;
  EXPECT_TRUE(table.Set("1.2.3.4.5.6", {"10.0.0.5", true}));
  EXPECT_TRUE(table.Set("1.2.3.4.5.6", {"10.0.0.6", false}, Pinned::kKept));
  EXPECT_EQ(table.Find("1.2.3.4.5.6")->host, "10.0.0.5");
  EXPECT_TRUE(table.Set("1.2.3.4.5.6", {"10.0.0.7", true}, Pinned::kKept));
  EXPECT_EQ(table.Find("1.2.3.4.5.6")->host, "10.0.0.7");
  EXPECT_TRUE(table.Set("1.2.3.4.5.6", {"10.0.0.8", false}));
  EXPECT_EQ(table.Find("1.2.3.4.5.6")->host, "10.0.0.8");
}

TEST(RouterTableTest, AllSixBytesCount) {
  CRouterTable table;
  (void)table.SetHostIp(ZelDeviceId{{1, 2, 3, 4, 5, 6}}, "10.0.0.5");
  EXPECT_EQ(table.GetHostIpFromDeviceId({{1, 2, 3, 4, 5, 7}}), "1.2.3.4");
}

}  // namespace
}  // namespace libzel
