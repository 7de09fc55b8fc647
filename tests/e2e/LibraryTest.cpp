// What needs no server.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>
#include <thread>

namespace {

class LibraryTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(libzel_init(), 0); }
};

TEST_F(LibraryTest, TellsItsVersion) {
  uint32_t major = 9, minor = 9, patch = 9;
  EXPECT_EQ(libzel_version(&major, &minor, &patch), 0);
  EXPECT_EQ(std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch), "0.2.3");
}

TEST_F(LibraryTest, GivesTheTextOfACodeAndLeavesTheErrorNumber) {
  EXPECT_EQ(libzel_loop_start(1), ZEL_E_HANDLE);
  EXPECT_STREQ(libzel_strerror(5), "alaready disconnect");
  EXPECT_STREQ(libzel_strerror(-1), "Unknown error code");
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(LibraryTest, KeepsTheErrorNumberPerThread) {
  EXPECT_EQ(libzel_loop_stop(1), ZEL_E_HANDLE);
  int32_t others = -1;
  std::thread([&others] { others = libzel_get_errno(); }).join();
  EXPECT_EQ(others, 0);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(LibraryTest, RefusesHandlesThatAreNotLive) {
  uint8_t byte = 0;
  for (const ZelInstance handle : {ZelInstance{0}, ZelInstance{1}, ~ZelInstance{0}}) {
    EXPECT_EQ(libzel_loop_start(handle), ZEL_E_HANDLE);
    EXPECT_EQ(libzel_loop_stop(handle), ZEL_E_HANDLE);
    EXPECT_FALSE(libzel_reconnect(handle, 10));
    EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
    EXPECT_EQ(libzel_reconnect_delay_set(handle, 1), ZEL_E_HANDLE);
    EXPECT_EQ(libzel_sync_send(handle, 600, 0, 0, &byte, 1, 10), -1);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
    EXPECT_EQ(libzel_sync_recv(handle, nullptr, &byte, 1, 10), -1);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
    EXPECT_EQ(libzel_releaseInstance(handle), ZEL_E_HANDLE);
  }
}

}  // namespace
