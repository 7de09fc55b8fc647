// What the library sends to find devices. Two simulated devices on other hosts of two networks listen and
// answer.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>

#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/ScanAnswer.h"
#include "support/TraceFile.h"

namespace zeltest {
namespace {

using Values = std::map<std::string, std::string>;

const Values kRequest{{"event", "datagram"}, {"service", "scan"}, {"dir", "in"}};
const Values kFromMainSocket{{"service", "scan"}, {"dir", "in"}, {"type", "0"}, {"peer", "10.77.0.1:38897"}};
const Values kMulticast{{"service", "scan"}, {"dir", "in"}, {"type", "0"}};
const Values kBroadcast{{"service", "scan"}, {"dir", "in"}, {"type", "2"}};

std::string HostPart(const std::string& endpoint) { return endpoint.substr(0, endpoint.find(':')); }

std::vector<double> Gaps(const std::vector<TraceLine>& lines) {
  std::vector<double> gaps;
  for (size_t i = 1; i < lines.size(); ++i) gaps.push_back(lines[i].Ms() - lines[i - 1].Ms());
  return gaps;
}

// ---- While a scan is on -----------------------------------------------------------------------------------

class DiscoveryRequestTest : public testing::Test {
 protected:
  static constexpr size_t kCycles = 4;

  static void SetUpTestSuite() {
    ASSERT_EQ(StartLibrary().result, 0);
    ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices_), 0);
    ASSERT_EQ(libzel_startZelScan(), 0);
    const ElapsedTime scan;
    ASSERT_TRUE(Trace().Await(kFromMainSocket, kCycles));
    // The last cycle's later requests, and a cycle that was under way when the scan was switched off.
    ASSERT_TRUE(Trace().Await(kBroadcast, 2 * (kCycles - 1)));
    endOfScan_ = std::chrono::system_clock::now();
    stalledMs_ = static_cast<double>(scan.Ms() - scan.AwakeMs());
  }
  static void TearDownTestSuite() { ASSERT_EQ(libzel_stopZelScan(), 0); }

  static TraceFile Trace() { return TraceFile(1); }
  static std::vector<TraceLine> Requests() { return Trace().Lines(kRequest); }

  // Those that came from an interface's own sockets, by the interface's address.
  static std::set<std::string> Senders(const std::string& type) {
    std::set<std::string> senders;
    for (const TraceLine& line : Requests()) {
      if (line.Of("type") != type || line.Of("peer").ends_with(":38897")) continue;
      senders.insert(HostPart(line.Of("peer")));
    }
    return senders;
  }
  bool IsFound(const std::string& id, const std::string& ip) const {
    return devices_.AwaitThat([&](const std::vector<SeenDevice>& devices) {
      return std::ranges::any_of(devices, [&](const SeenDevice& seen) {
        return seen.record.ip == ip && seen.record.zelDeviceId == id;
      });
    });
  }

  // Never destroyed: calls go on until the process ends.
  inline static ScanRecorder& devices_ = *new ScanRecorder;
  inline static std::chrono::system_clock::time_point endOfScan_;
  inline static double stalledMs_ = 0;
};

TEST_F(DiscoveryRequestTest, ADeviceIsFound) { EXPECT_TRUE(IsFound("1.2.3.4.5.6", "10.77.0.2")); }
TEST_F(DiscoveryRequestTest, ADeviceOnAThirdHostIsFound) { EXPECT_TRUE(IsFound("1.2.3.4.5.7", "10.77.0.3")); }
TEST_F(DiscoveryRequestTest, ADeviceIsFoundOnTheSecondNetworkToo) {
  EXPECT_TRUE(IsFound("1.2.3.4.5.6", "10.77.1.2"));
}

// The simulator's: 02:00 and the address.
std::string HardwareOf(const std::string& ip) {
  std::string text = "02:00";
  for (size_t at = 0; at < ip.size(); at = std::min(ip.find('.', at), ip.size() - 1) + 1) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const int byte = std::atoi(ip.c_str() + at);
    text += {':', kDigits[static_cast<size_t>(byte) >> 4], kDigits[static_cast<size_t>(byte) & 15]};
  }
  return text;
}

TEST_F(DiscoveryRequestTest, TheHardwareAddressIsThatOfTheNetworkTheAnswerCameBy) {
  ASSERT_TRUE(IsFound("1.2.3.4.5.6", "10.77.1.2"));
  for (const SeenDevice& seen : devices_.All()) {
    EXPECT_EQ(seen.record.frameMacAddr, HardwareOf(seen.record.ip));
  }
}

TEST_F(DiscoveryRequestTest, AnInstanceForAFoundDeviceConnectsToItsHost) {
  ASSERT_TRUE(IsFound("1.2.3.4.5.6", "10.77.0.2"));
  const Instance instance(ZelDeviceId{{1, 2, 3, 4, 5, 6}});
  EXPECT_TRUE(TraceFile(1).Await({{"event", "accept"}}));
}

TEST_F(DiscoveryRequestTest, EveryRequestHas9Bytes) {
  for (const TraceLine& line : Requests()) EXPECT_EQ(line.Of("size"), "9");
}

TEST_F(DiscoveryRequestTest, EveryRequestIsOfType0Or2WithAReservedWordOf0) {
  for (const TraceLine& line : Requests()) {
    EXPECT_TRUE(line.Of("hex").starts_with("0000000000") || line.Of("hex").starts_with("0200000000"))
        << line.Of("hex");
  }
}

TEST_F(DiscoveryRequestTest, TheTimestampIsTheTimeInSecondsWithTheHighestByteFirst) {
  using std::chrono::duration_cast;
  const auto end = duration_cast<std::chrono::seconds>(endOfScan_.time_since_epoch()).count();
  for (const TraceLine& line : Requests()) {
    const auto stamp = static_cast<int64_t>(std::strtoul(line.Of("hex").substr(10).c_str(), nullptr, 16));
    EXPECT_NEAR(static_cast<double>(stamp), static_cast<double>(end), 60);
  }
}

TEST_F(DiscoveryRequestTest, MulticastRequestsGoToTheGroup) {
  for (const TraceLine& line : Trace().Lines(kMulticast)) EXPECT_EQ(line.Of("to"), "239.255.0.3:38897");
}

TEST_F(DiscoveryRequestTest, MulticastRequestsPassTenRouters) {
  for (const TraceLine& line : Trace().Lines(kMulticast)) EXPECT_EQ(line.Of("ttl"), "10");
}

TEST_F(DiscoveryRequestTest, BroadcastRequestsGoToTheBroadcastAddress) {
  const auto requests = Trace().Lines(kBroadcast);
  ASSERT_FALSE(requests.empty());
  for (const TraceLine& line : requests) EXPECT_EQ(line.Of("to"), "255.255.255.255:38896");
}

TEST_F(DiscoveryRequestTest, MulticastRequestsLeaveFromEveryInterface) {
  EXPECT_EQ(Senders("0"), (std::set<std::string>{"10.77.0.1", "10.77.1.1"}));
}

TEST_F(DiscoveryRequestTest, BroadcastRequestsLeaveFromEveryInterface) {
  EXPECT_EQ(Senders("2"), (std::set<std::string>{"10.77.0.1", "10.77.1.1"}));
}

TEST_F(DiscoveryRequestTest, BroadcastRequestsNeverLeaveFromTheDiscoveryPort) {
  for (const TraceLine& line : Trace().Lines(kBroadcast)) EXPECT_FALSE(line.Of("peer").ends_with(":38897"));
}

TEST_F(DiscoveryRequestTest, ACycleIsOneRequestPerSocket) {
  const auto main = Trace().Lines(kFromMainSocket);
  ASSERT_GE(main.size(), kCycles);
  int multicast = 0, broadcast = 0;
  for (const TraceLine& line : Requests()) {
    if (line.Ms() < main[1].Ms() - 100 || line.Ms() >= main[2].Ms() - 100) continue;
    (line.Of("type") == "0" ? multicast : broadcast) += 1;
  }
  EXPECT_EQ(multicast, 3);
  EXPECT_EQ(broadcast, 2);
}

TEST_F(DiscoveryRequestTest, ACycleComesEveryOneToTwoSeconds) {
  for (const double gap : Gaps(Trace().Lines(kFromMainSocket))) {
    EXPECT_GT(gap, 990 - stalledMs_);
    EXPECT_LT(gap, 2500 + stalledMs_);
  }
}

// ---- Without a scan
TEST_F(DiscoveryRequestTest, DiscoveryOutlivesTheLibrarysEnd) {
  ASSERT_EQ(libzel_destory(), 0);
  ASSERT_EQ(libzel_init(), 0);
  const size_t before = devices_.Count();
  ASSERT_EQ(libzel_startZelScan(), 0);
  EXPECT_TRUE(devices_.Await(before + 2));
}

// ------------------------------------------------------------------------------------------------

class DiscoveryIdleTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    start_ = ElapsedTime();
    ASSERT_EQ(StartLibrary().result, 0);
    ASSERT_TRUE(TraceFile(1).Await(kFromMainSocket, 1));
    firstMs_ = start_.Ms();
    firstAwakeMs_ = start_.AwakeMs();
    const ElapsedTime sinceFirst;
    ASSERT_TRUE(TraceFile(1).Await(kFromMainSocket, 2));
    stalledMs_ = static_cast<double>(sinceFirst.Ms() - sinceFirst.AwakeMs());
    idle_ = TraceFile(1).Lines(kRequest);
    ASSERT_EQ(libzel_startZelScan(), 0);
    const ElapsedTime sinceStart;
    ASSERT_TRUE(TraceFile(1).Await(kBroadcast, 1));
    firstBroadcastMs_ = sinceStart.AwakeMs();
    ASSERT_EQ(libzel_stopZelScan(), 0);
  }

  inline static ElapsedTime start_;
  inline static int64_t firstMs_ = 0;
  inline static int64_t firstAwakeMs_ = 0;
  inline static double stalledMs_ = 0;  // between the first two requests
  inline static int64_t firstBroadcastMs_ = 0;
  inline static std::vector<TraceLine> idle_;
};

TEST_F(DiscoveryIdleTest, TheFirstRequestComesTenSecondsAfterTheStart) {
  EXPECT_GT(firstMs_, 9990);
  EXPECT_LT(firstAwakeMs_, 12000);
}

TEST_F(DiscoveryIdleTest, ACycleComesEveryTenToElevenSeconds) {
  std::vector<TraceLine> main;
  for (const TraceLine& line : idle_) {
    if (line.Of("peer") == "10.77.0.1:38897") main.push_back(line);
  }
  ASSERT_EQ(main.size(), 2U);
  EXPECT_GT(Gaps(main)[0], 9990);
  EXPECT_LT(Gaps(main)[0] - stalledMs_, 11500);
}

TEST_F(DiscoveryIdleTest, OnlyTheGroupIsAsked) {
  for (const TraceLine& line : idle_) EXPECT_EQ(line.Of("to"), "239.255.0.3:38897");
}

TEST_F(DiscoveryIdleTest, AScanTakesEffectWithinTwoSeconds) { EXPECT_LT(firstBroadcastMs_, 2500); }

}  // namespace
}  // namespace zeltest
