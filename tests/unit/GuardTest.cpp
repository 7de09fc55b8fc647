// What the guard of the exports makes of their bodies.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "libzel/Guard.h"
#include "support/CapturedLog.h"

namespace libzel {
namespace {

int32_t ExportWithoutMemory() {
  return Guard(kTheCode, []() -> int32_t { throw std::bad_alloc(); });
}

int32_t ExportThatFails() {
  return Guard(Always(-1), []() -> int32_t { throw std::runtime_error("reason"); });
}

int32_t ExportWithInstance(ZelInstance handle) {
  return WithInstance(handle, kTheCode,
                      [](IZelPeerConnection&) -> int32_t { throw std::runtime_error("reason"); });
}

ZelInstance NewInstance() {
  const ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  return CPeerConnMgr::HandleOf(CPeerConnMgr::Instance().CreateInstance(&device, 0));
}

TEST(GuardTest, TheErrorNumberIsClearedFirst) {
  SetErrno(7);
  EXPECT_EQ(Guard(kTheCode, [] { return GetErrno(); }), 0);
}

TEST(GuardTest, TheResultIsTheBodys) {
  EXPECT_EQ(Guard(kTheCode, [] { return 4106; }), 4106);
}

TEST(GuardTest, TheErrorNumberIsTheBodys) {
  (void)Guard(kTheCode, [] { return Fail(kTheCode, 4106); });
  EXPECT_EQ(GetErrno(), 4106);
}

TEST(GuardTest, NoMemoryIs8200) {
  EXPECT_EQ(ExportWithoutMemory(), 8200);
  EXPECT_EQ(GetErrno(), 8200);
}

TEST(GuardTest, EveryOtherExceptionIs8195) {
  EXPECT_EQ(Guard(kTheCode, []() -> int32_t { throw std::runtime_error("reason"); }), 8195);
  EXPECT_EQ(GetErrno(), 8195);
}

TEST(GuardTest, AFixedFailureStandsForEveryCode) {
  EXPECT_EQ(ExportThatFails(), -1);
  EXPECT_EQ(GetErrno(), 8195);
}

TEST(GuardTest, AFailureThatCallsTheApplicationLeavesItsCode) {
  const auto failure = [](int32_t) {
    SetErrno(7);
    return 1;
  };
  EXPECT_EQ(Guard(failure, []() -> int { throw std::bad_alloc(); }), 1);
  EXPECT_EQ(GetErrno(), 8200);
}

TEST(GuardTest, AFailureIsLoggedUnderTheExportsName) {
  const zeltest::CapturedLog log;
  (void)ExportThatFails();
  const std::vector<zeltest::LogLine> wanted{{"ERROR", "GuardTest.cpp", "ExportThatFails", "failed:reason"}};
  EXPECT_EQ(log.Lines(), wanted);
}

TEST(GuardTest, NoMemoryIsLoggedToo) {
  const zeltest::CapturedLog log;
  (void)ExportWithoutMemory();
  const std::vector<zeltest::LogLine> wanted{
      {"ERROR", "GuardTest.cpp", "ExportWithoutMemory", "failed:no memory"}};
  EXPECT_EQ(log.Lines(), wanted);
}

TEST(GuardTest, AnExportWithAnInstanceIsLoggedUnderItsName) {
  const ZelInstance handle = NewInstance();
  const zeltest::CapturedLog log;
  (void)ExportWithInstance(handle);
  EXPECT_EQ(log.FunctionOf("failed:reason"), "ExportWithInstance");
  CPeerConnMgr::Instance().ReleaseInstance(handle);
}

TEST(GuardTest, ASuccessIsNotLogged) {
  const zeltest::CapturedLog log;
  (void)Guard(kTheCode, [] { return 0; });
  EXPECT_TRUE(log.Lines().empty());
}

TEST(GuardTest, AHandleThatIsNotLiveIs8193) {
  for (const ZelInstance handle : {ZelInstance{0}, ZelInstance{1}, ~ZelInstance{0}}) {
    SetErrno(0);
    EXPECT_EQ(ExportWithInstance(handle), 8193);
    EXPECT_EQ(GetErrno(), 8193);
  }
}

TEST(GuardTest, AnInstanceIsHeldWhileItsBodyRuns) {
  const ZelInstance handle = NewInstance();
  const int32_t first = WithInstance(handle, kTheCode, [&](IZelPeerConnection& connection) -> int32_t {
    CPeerConnMgr::Instance().ReleaseInstance(handle);
    return connection.remoteDeviceId().bytes[0];
  });
  EXPECT_EQ(first, 127);
}

TEST(GuardTest, DataMayBeMissingWhenThereAreNone) {
  const uint8_t byte = 0;
  EXPECT_FALSE(IsMissing(nullptr, 0));
  EXPECT_FALSE(IsMissing(&byte, 1));
  EXPECT_TRUE(IsMissing(nullptr, 1));
}

}  // namespace
}  // namespace libzel
