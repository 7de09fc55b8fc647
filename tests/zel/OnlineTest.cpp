// Devices that come later than the one who asks. Linux only: the test starts the simulator itself.
#include <gtest/gtest.h>

#include <cstdlib>

#include "ZelProcess.h"

namespace {

// At first nobody is here.
constexpr const char* kLateAddress = "127.0.0.6";

ZelProcess StartDevice() {
  return ZelProcess({"--listen", "127.0.0.6:9999", "--no-discovery"}, "", "", std::getenv("ZELSIM"));
}

}  // namespace

TEST(OnlineTest, RetryReachesADeviceThatComesLater) {
  ZelProcess process({"request", kLateAddress, "-p", "600", "hello", "--retry", "20"});
  ASSERT_TRUE(process.SaysError("127.0.0.6 refuses connections to TCP port 9999; trying again"));
  ZelProcess device = StartDevice();
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.Output(), "hello\n");
}

TEST(OnlineTest, WaitOnlineWaitsForADevice) {
  ZelProcess process({"request", kLateAddress, "-p", "600", "hello", "--wait-online"});
  ASSERT_TRUE(process.SaysError("trying again"));
  ZelProcess device = StartDevice();
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.Output(), "hello\n");
}

TEST(OnlineTest, WaitingIsSaidOnce) {
  ZelProcess process({"sub", kLateAddress, "t", "--retry", "2"});
  EXPECT_EQ(process.Wait(), 1);
  EXPECT_EQ(Lines(process.Errors()).size(), 4U) << process.Errors();
}

TEST(OnlineTest, CtrlCEndsTheWaiting) {
  ZelProcess process({"sub", kLateAddress, "t", "--wait-online"});
  ASSERT_TRUE(process.SaysError("trying again"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(std::chrono::milliseconds(300)));
}
