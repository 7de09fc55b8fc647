#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

TEST(WatchTest, ShowsLossAndReturn) {
  ZelProcess process({"watch", kCutDevice, "--interval", "1", "--json"});
  EXPECT_TRUE(process.SaysOutput("\"code\":2,\"event\":\"connecting\""));
  EXPECT_TRUE(process.SaysOutput("\"code\":5,\"event\":\"lost\""));
  EXPECT_TRUE(process.SaysOutput("\"code\":1,\"event\":\"connected\"", 2));
}

// So many milliseconds need more than 32 bits.
TEST(WatchTest, TakesManySeconds) {
  ZelProcess process({"watch", kAbsentDevice, "--seconds", "4294967.3", "--json"});
  EXPECT_TRUE(process.SaysOutput("\"event\":\"failed\"", 2)) << process.Errors();
}

TEST(WatchTest, ShowsFailuresWithTheirTimes) {
  const ZelResult result = RunZel({"watch", kAbsentDevice, "--seconds", "0.5"});
  EXPECT_EQ(result.status, 0);
  const auto lines = Lines(result.output);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0].substr(12), "  connecting  127.0.0.9.0.1");
  EXPECT_EQ(lines[1].substr(12), "  failed      127.0.0.9.0.1  connect 127.0.0.9:9999: refused");
  EXPECT_EQ(lines[0][2], ':');
}

TEST(WatchTest, SubscriptionsSurviveALostConnection) {
  ZelProcess subscriber({"sub", kOtherCutDevice, "t", "--count", "1"});
  ASSERT_TRUE(subscriber.SaysError("zel: the connection is lost"));
  ASSERT_TRUE(subscriber.SaysError("zel: connected again"));
  for (int i = 0; i < 50 && subscriber.Output().empty(); ++i) {
    ASSERT_EQ(RunZel({"pub", kOtherCutDevice, "t", "x"}).status, 0);
  }
  EXPECT_EQ(subscriber.Wait(), 0);
  EXPECT_EQ(subscriber.Output(), "t  x\n");
}
