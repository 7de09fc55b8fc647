// The discovery port is another program's: the test's own socket holds it before the library starts.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <algorithm>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/OwnProcess.h"
#include "support/ScanAnswer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

class DiscoveryPortTest : public testing::Test {
 protected:
  void SetUp() override { UseFreshProcesses(); }
};

TEST_F(DiscoveryPortTest, ATakenPortIsNamedInTheLog) {
  IN_OWN_PROCESS({
    const TestDatagram other("0.0.0.0", kScanPort);
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(Eventually([&] { return log.HasStart("ERROR", "bind ZEL_MUTILCAST_PORT:38897 error,"); }));
  });
}

TEST_F(DiscoveryPortTest, ATakenPortEndsDiscoveryAtTheFirstWait) {
  IN_OWN_PROCESS({
    const TestDatagram other("0.0.0.0", kScanPort);
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(log.Await("ERROR", "Select error!"));
    EXPECT_TRUE(log.Await("DEBUG", "Zel Scan Client End"));
  });
}

TEST_F(DiscoveryPortTest, WithoutDiscoveryTheRestWorks) {
  IN_OWN_PROCESS({
    const TestDatagram other("0.0.0.0", kScanPort);
    EXPECT_EQ(libzel_init(), 0);
    ScriptedServer server;
    const Instance instance(server.device());
    EXPECT_TRUE(server.Accept().IsOpen());
  });
}

}  // namespace
}  // namespace zeltest
