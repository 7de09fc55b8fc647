// Discovery on networks that lead nowhere else: no host has a default route. A simulated device on another
// host listens and answers.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>

#include "support/CapturedLog.h"
#include "support/OwnProcess.h"
#include "support/ScanAnswer.h"
#include "support/TraceFile.h"

namespace zeltest {
namespace {

const std::map<std::string, std::string> kFromMain{
    {"service", "scan"}, {"dir", "in"}, {"type", "0"}, {"peer", "10.77.0.1:38897"}};

class NoRouteTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const CapturedLog log;
    ASSERT_EQ(libzel_init(), 0);
    ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices_), 0);
    ASSERT_EQ(libzel_startZelScan(), 0);
    ASSERT_TRUE(log.Await("DEBUG", "Init Zel Scan Finish,MutilCast Ip:239.255.0.3,port:38897"));
    ASSERT_TRUE(TraceFile(1).Await(kFromMain, 3));
    lines_ = log.Lines();
  }
  static void TearDownTestSuite() { ASSERT_EQ(libzel_stopZelScan(), 0); }

  // Never destroyed: calls go on until the process ends.
  inline static ScanRecorder& devices_ = *new ScanRecorder;
  inline static std::vector<LogLine> lines_;
};

TEST_F(NoRouteTest, ADeviceIsFound) { EXPECT_TRUE(devices_.AwaitDevice("1.2.3.4.5.6")); }

TEST_F(NoRouteTest, NothingIsReportedAsAFailure) {
  for (const LogLine& line : lines_) EXPECT_NE(line.level, "ERROR") << line.message;
}

TEST_F(NoRouteTest, TheMainSocketAsksOnTheFirstAdapterAlone) {
  for (const TraceLine& line : TraceFile(1).Lines({{"service", "scan"}, {"dir", "in"}, {"type", "0"}})) {
    if (line.Of("peer").ends_with(":38897")) {
      EXPECT_EQ(line.Of("peer"), "10.77.0.1:38897");
    }
  }
}

TEST_F(NoRouteTest, TheAnswerToTheMainSocketArrives) {
  EXPECT_TRUE(TraceFile(1).Await({{"service", "scan"}, {"dir", "out"}, {"peer", "10.77.0.1:38897"}}));
}

TEST_F(NoRouteTest, EveryAdaptersOwnSocketAsks) {
  const TraceFile trace(1);
  for (const char* network : {"10.77.0.1:", "10.77.1.1:"}) {
    EXPECT_TRUE(Eventually([&] {
      for (const TraceLine& line : trace.Lines({{"service", "scan"}, {"dir", "in"}, {"type", "0"}})) {
        const std::string peer = line.Of("peer");
        if (peer.starts_with(network) && !peer.ends_with(":38897")) return true;
      }
      return false;
    })) << network;
  }
}

// ---- Without any adapter

class NoAdapterTest : public testing::Test {
 protected:
  void SetUp() override { UseFreshProcesses(); }
};

TEST_F(NoAdapterTest, TheFailedJoinIsLogged) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(Eventually([&] { return log.HasStart("ERROR", "setsockopt IP_ADD_MEMBERSHIP error,"); }));
  });
}

TEST_F(NoAdapterTest, DiscoveryEndsAtTheFirstWait) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(log.Await("ERROR", "Select error!"));
    EXPECT_TRUE(log.Await("DEBUG", "Zel Scan Client End"));
  });
}

}  // namespace
}  // namespace zeltest
