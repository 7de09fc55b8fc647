// Ctrl-C.
#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

TEST(InterruptTest, EndsWatch) {
  ZelProcess process({"watch", kDevice});
  ASSERT_TRUE(process.SaysOutput("connected"));
  process.Interrupt();
  EXPECT_EQ(process.Wait(), 130);
}

TEST(InterruptTest, EndsListen) {
  ZelProcess process({"listen", kDevice, "700"});
  ASSERT_TRUE(process.SaysOutput("700  "));
  process.Interrupt();
  EXPECT_EQ(process.Wait(), 130);
}

TEST(InterruptTest, EndsScan) {
  ZelProcess process({"scan", "--watch"});
  ASSERT_TRUE(process.SaysOutput("found"));
  process.Interrupt();
  EXPECT_EQ(process.Wait(), 130);
}

TEST(InterruptTest, EndsASeriesWithItsSummary) {
  ZelProcess process(
      {"request", kDevice, "-p", "600", "-g", "1", "-o", "2", "x", "-c", "1000", "-i", "1000"});
  ASSERT_TRUE(process.SaysOutput("1 B  x"));
  process.Interrupt();
  EXPECT_EQ(process.Wait(), 130);
  EXPECT_TRUE(Contains(process.Output(), "answer"));
}

TEST(InterruptTest, EndsARequestThatHangs) {
  ZelProcess process(
      {"request", kDevice, "-p", "602", "-g", "1", "-o", "2", "x", "-t", "600000", "--verbose"});
  ASSERT_TRUE(process.SaysError("libzelclient Version"));
  process.Interrupt();
  EXPECT_EQ(process.Wait(), 130);
}
