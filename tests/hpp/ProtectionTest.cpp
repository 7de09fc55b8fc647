// What a C++ program is protected from, and how it chooses something else. Each case has a process of its
// own, since the first Library chooses for all of it.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "Device.h"
#include "Gathered.h"
#include "support/OwnProcess.h"
#include "support/ScanAnswer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

using namespace std::chrono_literals;
using zel::Option;
using zel::Options;
using zel::TimeOption;

struct Value {
  int32_t option;
  int64_t letter;
  int64_t protective;
};
constexpr Value kValues[] = {
    {LIBZELX_DISCOVERY, 1, 0},          {LIBZELX_CHECK_XML, 0, 1},
    {LIBZELX_DROP_BAD_ANSWERS, 0, 1},   {LIBZELX_CHECK_SENDER, 0, 1},
    {LIBZELX_MAX_ROUTES, 0, 100000},    {LIBZELX_KEEP_ROUTES, 0, 1},
    {LIBZELX_ALL_ADAPTERS, 0, 0},       {LIBZELX_DISCOVERY_RETRY_MS, 0, 5000},
    {LIBZELX_FILE_DROP_UNOPENED, 0, 1}, {LIBZELX_FILE_TOTAL_MS, 0, 3600000},
    {LIBZELX_FILE_WORKERS, 1, 1},       {LIBZELX_WRITE_STALL_MS, 0, 5000},
    {LIBZELX_CLOSE_WAIT_MS, 0, 1000},   {LIBZELX_HEADER_WAIT_MS, 20, 30000},
    {LIBZELX_BODY_WAIT_MS, 0, 30000},   {LIBZELX_JITTER_PERCENT, 0, 50},
    {LIBZELX_RECONNECT_MAX_SEC, 0, 60}, {LIBZELX_MAX_BODY, 0, 10485759},
    {LIBZELX_DEAD_PEER_MS, 0, 30000},   {LIBZELX_FOLLOW_ROUTE, 0, 1},
};

int64_t ValueOf(int32_t option) {
  int64_t value = -1;
  (void)libzelx_getOption(0, option, &value);
  return value;
}

// A failure is what some of the tests ask for.
Options Quiet() { return Options().Log(nullptr); }

class OwnProcessTest : public testing::Test {
 protected:
  void SetUp() override { UseFreshProcesses(); }
};

using ProtectionTest = OwnProcessTest;

TEST_F(ProtectionTest, ItIsThereByDefault) {
  IN_OWN_PROCESS({
    const zel::Library library;
    EXPECT_TRUE(library.Start());
    for (const Value& value : kValues) EXPECT_EQ(ValueOf(value.option), value.protective) << value.option;
  });
}

TEST_F(ProtectionTest, ByTheLetterNothingIsSet) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().ByTheLetter());
    EXPECT_TRUE(library.Start());
    for (const Value& value : kValues) EXPECT_EQ(ValueOf(value.option), value.letter) << value.option;
  });
}

TEST_F(ProtectionTest, SingleOptionsHoldBesideIt) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().Set(Option::kCheckXml, 0).Set(TimeOption::kWriteStall, 2s));
    EXPECT_TRUE(library.Start());
    EXPECT_EQ(ValueOf(LIBZELX_CHECK_XML), 0);
    EXPECT_EQ(ValueOf(LIBZELX_WRITE_STALL_MS), 2000);
    EXPECT_EQ(ValueOf(LIBZELX_CLOSE_WAIT_MS), 1000);
  });
}

TEST_F(ProtectionTest, SingleOptionsHoldByTheLetter) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().ByTheLetter().Set(Option::kDropBadAnswers, 1));
    EXPECT_TRUE(library.Start());
    EXPECT_EQ(ValueOf(LIBZELX_DROP_BAD_ANSWERS), 1);
    EXPECT_EQ(ValueOf(LIBZELX_CHECK_SENDER), 0);
  });
}

TEST_F(ProtectionTest, TheLongestPauseIsRoundedUpToSeconds) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().Set(TimeOption::kReconnectMax, 1500ms));
    EXPECT_EQ(ValueOf(LIBZELX_RECONNECT_MAX_SEC), 2);
    EXPECT_EQ(*library.Get(TimeOption::kReconnectMax), 2s);
  });
}

TEST_F(ProtectionTest, AValueOutOfRangeIsToldAndTheOthersHold) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().Set(Option::kFileWorkers, 65).Set(Option::kMaxRoutes, 7));
    EXPECT_EQ(library.Start().Code(), ZEL_E_PARAM);
    EXPECT_EQ(ValueOf(LIBZELX_FILE_WORKERS), 1);
    EXPECT_EQ(ValueOf(LIBZELX_MAX_ROUTES), 7);
    EXPECT_EQ(ValueOf(LIBZELX_DROP_BAD_ANSWERS), 1);
  });
}

TEST_F(ProtectionTest, ANegativeTimeIsToldAsOutOfRange) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().Set(TimeOption::kReconnectMax, -1ms));
    EXPECT_EQ(library.Start().Code(), ZEL_E_PARAM);
    EXPECT_EQ(ValueOf(LIBZELX_RECONNECT_MAX_SEC), 60);
  });
}

TEST_F(ProtectionTest, NetworksThatCannotBeReadAreTold) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().Networks("everywhere"));
    EXPECT_EQ(library.Start().Code(), ZEL_E_PARAM);
  });
}

// ---- Several libraries ------------------------------------------------------------------------------------

TEST_F(ProtectionTest, OtherOptionsOfASecondLibraryAreTooLate) {
  IN_OWN_PROCESS({
    const zel::Library first;
    const zel::Library second(Options().ByTheLetter());
    EXPECT_EQ(second.Start().Code(), LIBZELX_E_TOO_LATE);
    EXPECT_EQ(ValueOf(LIBZELX_DROP_BAD_ANSWERS), 1);
  });
}

TEST_F(ProtectionTest, TheyAreTooLateWhenTheFirstIsGone) {
  IN_OWN_PROCESS({
    { const zel::Library first; }
    const zel::Library second(Options().Set(Option::kMaxRoutes, 7));
    EXPECT_EQ(second.Start().Code(), LIBZELX_E_TOO_LATE);
    EXPECT_EQ(ValueOf(LIBZELX_MAX_ROUTES), 100000);
  });
}

TEST_F(ProtectionTest, ASecondLibraryThatIsTooLateWorks) {
  IN_OWN_PROCESS({
    auto first = std::make_unique<zel::Library>();
    const zel::Library second(Options().ByTheLetter());
    first.reset();
    auto connection = *zel::Connection::Create(TheDevice());
    EXPECT_EQ(connection.Request(600, {}, "what", 5s).Code(), ZEL_OK);
  });
}

TEST_F(ProtectionTest, TheSameOptionsMayBeChosenAgain) {
  IN_OWN_PROCESS({
    const zel::Library first(Options().ByTheLetter().Set(Option::kMaxRoutes, 7));
    const zel::Library second(Options().ByTheLetter().Set(Option::kMaxRoutes, 7));
    EXPECT_TRUE(second.Start());
  });
}

TEST_F(ProtectionTest, ALaterLibraryThatChoosesNothingTakesWhatIsThere) {
  IN_OWN_PROCESS({
    const zel::Library first(Options().ByTheLetter());
    const zel::Library second(Quiet());
    EXPECT_TRUE(second.Start());
    EXPECT_EQ(ValueOf(LIBZELX_DROP_BAD_ANSWERS), 0);
  });
}

TEST_F(ProtectionTest, BehindTheStartOfTheLibraryByHandItIsTooLate) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), ZEL_OK);
    const zel::Library library;
    EXPECT_EQ(library.Start().Code(), LIBZELX_E_TOO_LATE);
    EXPECT_EQ(zel::Library().Start().Code(), LIBZELX_E_TOO_LATE);
  });
}

TEST_F(ProtectionTest, ByTheLetterTheStartByHandDoesNotMatter) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), ZEL_OK);
    const zel::Library library(Options().ByTheLetter());
    EXPECT_TRUE(library.Start());
  });
}

// ---- Later ------------------------------------------------------------------------------------------------

TEST_F(ProtectionTest, OptionsCanBeSetLater) {
  IN_OWN_PROCESS({
    zel::Library library;
    EXPECT_TRUE(library.Set(Option::kMaxRoutes, 7));
    EXPECT_TRUE(library.Set(TimeOption::kFileTotal, 1min));
    EXPECT_EQ(*library.Get(Option::kMaxRoutes), 7);
    EXPECT_EQ(*library.Get(TimeOption::kFileTotal), 1min);
  });
}

TEST_F(ProtectionTest, EarlyOnesAreTooLateThen) {
  IN_OWN_PROCESS({
    zel::Library library;
    EXPECT_EQ(library.Set(Option::kDiscovery, 1).Code(), LIBZELX_E_TOO_LATE);
    EXPECT_EQ(*library.Get(Option::kDiscovery), 0);
  });
}

TEST_F(ProtectionTest, AConnectionBeginsWithIt) {
  IN_OWN_PROCESS({
    const zel::Library library;
    const auto connection = zel::Connection::Create(TheDevice());
    EXPECT_EQ(*connection->Get(TimeOption::kDeadPeer), 30s);
    EXPECT_EQ(*connection->Get(Option::kJitterPercent), 50);
  });
}

TEST_F(ProtectionTest, AConnectionHasOptionsOfItsOwn) {
  IN_OWN_PROCESS({
    const zel::Library library;
    auto one = zel::Connection::Create(TheDevice());
    const auto other = zel::Connection::Create(TheDevice());
    EXPECT_TRUE(one->Set(TimeOption::kWriteStall, 2s));
    EXPECT_TRUE(one->Set(Option::kMaxBody, 1024));
    EXPECT_EQ(*one->Get(TimeOption::kWriteStall), 2s);
    EXPECT_EQ(*one->Get(Option::kMaxBody), 1024);
    EXPECT_EQ(*other->Get(TimeOption::kWriteStall), 5s);
    EXPECT_EQ(*library.Get(TimeOption::kWriteStall), 5s);
  });
}

TEST_F(ProtectionTest, AConnectionRefusesWhatIsNotItsOwnOrOutOfRange) {
  IN_OWN_PROCESS({
    const zel::Library library;
    auto connection = zel::Connection::Create(TheDevice());
    EXPECT_EQ(connection->Set(Option::kMaxRoutes, 1).Code(), ZEL_E_HANDLE);
    EXPECT_EQ(connection->Get(Option::kMaxRoutes).Code(), ZEL_E_HANDLE);
    EXPECT_EQ(connection->Set(Option::kJitterPercent, 101).Code(), ZEL_E_PARAM);
    EXPECT_EQ(connection->Set(TimeOption::kHeaderWait, -1ms).Code(), ZEL_E_PARAM);
  });
}

TEST_F(ProtectionTest, AnEmptyConnectionSetsNothingOfTheProcess) {
  IN_OWN_PROCESS({
    zel::Library library;
    zel::Connection empty;
    EXPECT_EQ(empty.Set(Option::kMaxBody, 1024).Code(), ZEL_E_HANDLE);
    EXPECT_EQ(empty.Set(Option::kMaxRoutes, 7).Code(), ZEL_E_HANDLE);
    EXPECT_EQ(empty.Get(TimeOption::kWriteStall).Code(), ZEL_E_HANDLE);
    EXPECT_EQ(*library.Get(Option::kMaxBody), 10485759);
    EXPECT_EQ(*library.Get(Option::kMaxRoutes), 100000);
  });
}

// ---- Discovery --------------------------------------------------------------------------------------------

constexpr const char* kLocal = "127.0.0.1";

bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

// Never destroyed: the scan's thread runs until the process ends.
Gathered<std::string>& Heard() {
  static auto* const heard = new Gathered<std::string>;
  return *heard;
}
zel::Result Scan(zel::Library& library) {
  library.OnDevice([](const zel::Device& device) { Heard().Add(device.idText); });
  return library.StartScan();
}

// Whether a device on this host is heard, which answers without being asked.
bool HearsADevice() {
  const TestDatagram device(kLocal, 0);
  return Eventually([&] {
    (void)device.Send(kLocal, kScanPort, ScanDatagram(DeviceDocument("1.2.3.4.5.6")));
    const auto all = Heard().All();
    return std::find(all.begin(), all.end(), "1.2.3.4.5.6") != all.end();
  });
}

using ProtectedScanTest = OwnProcessTest;

TEST_F(ProtectedScanTest, BeforeAScanThereIsNoSocketAndNoReason) {
  IN_OWN_PROCESS({
    const zel::Library library;
    EXPECT_NO_THROW(const TestDatagram other("0.0.0.0", kScanPort));
    EXPECT_FALSE(library.Discovery().isRunning);
    EXPECT_EQ(library.Discovery().reason, "");
  });
}

TEST_F(ProtectedScanTest, AScanStartsDiscovery) {
  IN_OWN_PROCESS({
    zel::Library library;
    EXPECT_TRUE(Scan(library));
    EXPECT_TRUE(Heard().Await(1));
    const zel::DiscoveryState state = library.Discovery();
    EXPECT_TRUE(state.isRunning);
    EXPECT_EQ(state.adapters, 1U);
    EXPECT_NE(state.adapterNames, "");
    EXPECT_GE(state.answers, 1U);
  });
}

TEST_F(ProtectedScanTest, DiscoveryCanBeStartedWithoutAScan) {
  IN_OWN_PROCESS({
    zel::Library library;
    EXPECT_TRUE(library.StartDiscovery());
    EXPECT_TRUE(library.StartDiscovery());
    EXPECT_TRUE(library.Discovery().isRunning);
  });
}

TEST_F(ProtectedScanTest, ByTheLetterDiscoveryRunsFromTheStart) {
  IN_OWN_PROCESS({
    const zel::Library library(Options().ByTheLetter());
    EXPECT_TRUE(Eventually([&] { return library.Discovery().isRunning; }));
  });
}

TEST_F(ProtectedScanTest, ATakenPortIsTheReason) {
  IN_OWN_PROCESS({
    const TestDatagram other("0.0.0.0", kScanPort);
    zel::Library library(Quiet());
    EXPECT_EQ(Scan(library).Code(), ZEL_E_RESOURCE);
    EXPECT_FALSE(library.Discovery().isRunning);
    EXPECT_EQ(library.Discovery().reason.find("bind ZEL_MUTILCAST_PORT:38897: "), 0U);
  });
}

TEST_F(ProtectedScanTest, ABrokenScanRecovers) {
  IN_OWN_PROCESS({
    auto other = std::make_unique<TestDatagram>("0.0.0.0", kScanPort);
    zel::Library library(Quiet().Set(TimeOption::kDiscoveryRetry, 50ms));
    EXPECT_FALSE(Scan(library));
    other.reset();
    EXPECT_TRUE(HearsADevice());
    EXPECT_GE(library.Discovery().restarts, 1U);
    EXPECT_EQ(library.Discovery().reason, "");
  });
}

TEST_F(ProtectedScanTest, AnAnswerFromAnotherNetworkIsDropped) {
  IN_OWN_PROCESS({
    zel::Library library(Options().Networks("192.0.2.0/24"));
    EXPECT_TRUE(Scan(library));
    EXPECT_TRUE(Eventually([&] { return library.Discovery().dropped > 0; }));
    EXPECT_TRUE(library.Discovery().isRunning);
    EXPECT_EQ(library.Discovery().answers, 0U);
  });
}

// Sends until something comes of it.
void HearMalformed(const Options& options) {
  zel::Library library(options);
  EXPECT_TRUE(Scan(library));
  const TestDatagram device(kLocal, 0);
  EXPECT_TRUE(Eventually([&] {
    (void)device.Send(kLocal, kScanPort, ScanDatagram("not json"));
    return library.Discovery().dropped > 0;
  }));
  EXPECT_TRUE(HearsADevice());
}

TEST_F(ProtectedScanTest, AMalformedAnswerIsDropped) {
  IN_OWN_PROCESS({ HearMalformed(Quiet()); });
}

TEST_F(ProtectedScanTest, ByTheLetterAMalformedAnswerEndsTheProcess) {
  EXPECT_ENDS_PROCESS({ HearMalformed(Quiet().ByTheLetter()); });
}

// In a lab whose host has its loopback alone.
using NoAdapterTest = OwnProcessTest;

TEST_F(NoAdapterTest, AScanTellsTheReason) {
  IN_OWN_PROCESS({
    zel::Library library(Quiet());
    EXPECT_EQ(Scan(library).Code(), ZEL_E_RESOURCE);
    EXPECT_FALSE(library.Discovery().isRunning);
    EXPECT_NE(library.Discovery().reason, "");
  });
}

// ---- Routes -----------------------------------------------------------------------------------------------

using RouteTest = OwnProcessTest;

TEST_F(RouteTest, AnUnknownIdentifierLeadsToItsFirstFourBytes) {
  IN_OWN_PROCESS({
    const zel::Library library;
    EXPECT_EQ(library.RouteOf(zel::DeviceId(9, 8, 7, 6, 5, 4)), "9.8.7.6");
  });
}

TEST_F(RouteTest, AConnectionGoesWhereItIsPinned) {
  IN_OWN_PROCESS({
    zel::Library library;
    const zel::DeviceId device(9, 8, 7, 6, 5, 4);
    EXPECT_TRUE(library.PinRoute(device, kDeviceHost));
    EXPECT_EQ(library.RouteOf(device), kDeviceHost);
    auto connection = zel::Connection::Create(device);
    EXPECT_EQ(connection->Request(600, {}, "what", 5s).Code(), ZEL_OK);
  });
}

TEST_F(RouteTest, APinnedOneCanBeForgotten) {
  IN_OWN_PROCESS({
    zel::Library library;
    const zel::DeviceId device(9, 8, 7, 6, 5, 4);
    EXPECT_TRUE(library.PinRoute(device, kDeviceHost));
    EXPECT_TRUE(library.ForgetRoute(device));
    EXPECT_EQ(library.RouteOf(device), "9.8.7.6");
  });
}

TEST_F(RouteTest, WhatIsNoAddressIsRefused) {
  IN_OWN_PROCESS({
    zel::Library library;
    EXPECT_EQ(library.PinRoute(TheDevice(), "press-4").Code(), ZEL_E_PARAM);
  });
}

}  // namespace
}  // namespace zeltest
