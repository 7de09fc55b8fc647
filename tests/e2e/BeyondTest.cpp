// Codes and release of the second family; what needs no server.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <string>

namespace {

TEST(BeyondTest, TellsTheReleaseOfThePackage) {
  uint32_t major = 9, minor = 9, patch = 9;
  libzelx_version(&major, &minor, &patch);
  EXPECT_EQ(std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch), ZEL_RELEASE);
}

TEST(BeyondTest, TellsAPartOfTheRelease) {
  uint32_t minor = 99;
  libzelx_version(nullptr, &minor, nullptr);
  EXPECT_NE(minor, 99U);
}

TEST(BeyondTest, TheProtocolLibrarysVersionStays) {
  uint32_t major = 9, minor = 9, patch = 9;
  EXPECT_EQ(libzel_version(&major, &minor, &patch), ZEL_OK);
  EXPECT_EQ(std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch), "0.2.3");
}

TEST(BeyondTest, NewCodesHaveTexts) {
  EXPECT_STREQ(libzelx_strerror(LIBZELX_E_CANCELLED), "cancelled");
  EXPECT_STREQ(libzelx_strerror(LIBZELX_E_WOULD_BLOCK), "called on the thread that it would wait for");
  EXPECT_STREQ(libzelx_strerror(LIBZELX_E_TOO_LATE), "must be set before libzel_init");
  EXPECT_STREQ(libzelx_strerror(LIBZELX_E_TOO_LONG), "frame longer than 10485760 bytes, nothing sent");
  EXPECT_STREQ(libzelx_strerror(LIBZELX_E_FILE_CHANGED), "file became shorter while it was sent");
  EXPECT_STREQ(libzelx_strerror(LIBZELX_E_DEVICE), "the device refused");
}

TEST(BeyondTest, OldTextsAreTheSame) {
  for (int32_t code = -1; code <= 0x5000; ++code) {
    ASSERT_STREQ(libzelx_strerror(code), libzel_strerror(code)) << code;
  }
  EXPECT_STREQ(libzelx_strerror(8195), "init resource fail");
  EXPECT_STREQ(libzelx_strerror(8200), "no memory");
}

TEST(BeyondTest, NewCodesAreUnknownToTheOldFunction) {
  for (int32_t code = LIBZELX_E_CANCELLED; code <= LIBZELX_E_DEVICE; ++code) {
    EXPECT_STREQ(libzel_strerror(code), "Unknown error code") << code;
  }
}

TEST(BeyondTest, OtherCodesAreUnknown) {
  for (const int32_t code : {-1, 0x5000, LIBZELX_E_DEVICE + 1, INT32_MAX, INT32_MIN}) {
    EXPECT_STREQ(libzelx_strerror(code), "Unknown error code") << code;
  }
}

TEST(BeyondTest, TextsAndReleaseLeaveTheErrorNumber) {
  EXPECT_EQ(libzel_loop_start(1), ZEL_E_HANDLE);
  (void)libzelx_strerror(LIBZELX_E_CANCELLED);
  libzelx_version(nullptr, nullptr, nullptr);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

}  // namespace
