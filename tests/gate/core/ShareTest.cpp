// Several processes that share a site's devices: 127.0.1.1 to 127.0.1.40.
#include <algorithm>
#include <chrono>
#include <csignal>

#include "CoreLab.h"
#include "DeviceTable.h"

namespace gatecore {
namespace {

constexpr int kDevices = 40;

class ShareTest : public SiteLab {
 protected:
  ShareTest() {
    SetProfile("all", "{}");
    for (int i = 1; i <= kDevices; ++i) AddDevice(Address(i));
  }

  static std::string Address(int number) { return "127.0.1." + std::to_string(number); }
  // By whom each device is served whose link is up; empty: it is not.
  std::string ServerOf(int number) {
    const auto link = zelgate::ParseLink(LinkOf(Address(number)));
    return link && link->state == zelgate::LinkState::kUp ? link->servedBy : "";
  }
  int CountServed() {
    int count = 0;
    for (int i = 1; i <= kDevices; ++i) count += ServerOf(i).empty() ? 0 : 1;
    return count;
  }
  int CountAnswering() {
    int count = 0;
    for (int i = 1; i <= kDevices; ++i) {
      count += Ask(Address(i), 600, "x", "", std::chrono::seconds(1)).verdict == "answered" ? 1 : 0;
    }
    return count;
  }
  // How many different processes serve devices.
  size_t CountHolders() {
    std::vector<std::string> holders;
    for (int i = 1; i <= kDevices; ++i) {
      const std::string server = ServerOf(i);
      if (!server.empty() && std::find(holders.begin(), holders.end(), server) == holders.end())
        holders.push_back(server);
    }
    return holders.size();
  }
};

TEST_F(ShareTest, OneProcessServesAll) {
  const auto gate = StartGate("gate");
  EXPECT_TRUE(Until([&] { return CountServed() == kDevices; })) << CountServed() << gate->Errors();
}

TEST_F(ShareTest, ASecondProcessGetsItsShare) {
  const auto first = StartGate("first");
  ASSERT_TRUE(Until([&] { return CountServed() == kDevices; })) << CountServed() << first->Errors();
  const auto second = StartGate("second");
  EXPECT_TRUE(first->Says("hands over"));
  EXPECT_TRUE(Until([&] { return CountHolders() == 2 && CountAnswering() == kDevices; }))
      << first->Errors() << second->Errors();
}

TEST_F(ShareTest, AKilledProcessesDevicesAreServedElsewhereWithinSevenSeconds) {
  auto first = StartGate("first");
  const auto second = StartGate("second");
  ASSERT_TRUE(Until([&] { return CountHolders() == 2 && CountAnswering() == kDevices; }));
  first->Signal(SIGKILL);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(Until([&] { return CountAnswering() == kDevices; })) << second->Errors();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(7)) << second->Errors();
  EXPECT_TRUE(second->Says("has not renewed its lease for 4 s"));
}

TEST_F(ShareTest, AProcessThatEndsInOrderGivesItsShareAwayAtOnce) {
  auto first = StartGate("first");
  const auto second = StartGate("second");
  ASSERT_TRUE(Until([&] { return CountHolders() == 2 && CountAnswering() == kDevices; }));
  first->Signal(SIGTERM);
  ASSERT_EQ(first->Wait(), 0);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(Until([&] { return CountAnswering() == kDevices; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

TEST_F(ShareTest, TheLimitOfAProcessIsKeptAndSaid) {
  more_ = "[limits]\ndevices = 15\n";
  const auto gate = StartGate("gate");
  EXPECT_TRUE(gate->Says("serves 15 devices, as many as it may"));
  EXPECT_TRUE(Until([&] { return CountServed() == 15; })) << CountServed();
  const auto others = {StartGate("second"), StartGate("third")};
  EXPECT_TRUE(Until([&] { return CountAnswering() == kDevices; })) << CountAnswering() << gate->Errors();
}

}  // namespace
}  // namespace gatecore
