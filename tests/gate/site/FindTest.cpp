// zelgate find, at the site north. The devices are simulated on hub-1's and hub-2's hosts.
#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "DeviceTable.h"
#include "GateProcess.h"
#include "SiteTest.h"

namespace gatelab {
namespace {

using zelgate::DeviceFinding;

class FindTest : public SiteTest {
 protected:
  static std::optional<DeviceFinding> Find(const std::string& device) {
    zelgate::KeyEntry entry;
    if (!Bucket(zelgate::kDeviceBucket).Get(zelgate::FindingKey(device), entry)) return {};
    return zelgate::ParseFinding(entry.value);
  }
  static bool IsFound(const std::string& device) {
    return Until([&] { return Find(device).has_value(); });
  }
  static std::vector<std::string> Arguments(const std::string& find) {
    return {"find", "--config", WriteSiteConfig("north", "[find]\n" + find)};
  }
};

TEST_F(FindTest, ADeviceThatAnswersIsInTheBucket) {
  GateProcess gate(Arguments("seconds = 1"));
  ASSERT_TRUE(IsFound("10-77-0-2-0-1")) << gate.Errors();
  const auto finding = Find("10-77-0-2-0-1");
  EXPECT_EQ(finding->id, "10.77.0.2.0.1");
  EXPECT_EQ(finding->address, "10.77.0.2");
  EXPECT_EQ(finding->name, "press-1");
  EXPECT_EQ(finding->serial, "serial-1");
  EXPECT_TRUE(finding->twins.empty());
}

TEST_F(FindTest, TwinsAreReported) {
  GateProcess gate(Arguments("seconds = 1"));
  ASSERT_TRUE(gate.Says("several devices call themselves 10.77.0.99.0.1: at 10.77.0.2 and 10.77.0.3;"))
      << gate.Errors();
  ASSERT_TRUE(IsFound("10-77-0-99-0-1"));
  EXPECT_EQ(Find("10-77-0-99-0-1")->twins, (std::vector<std::string>{"10.77.0.2", "10.77.0.3"}));
}

TEST_F(FindTest, ADeviceOfTheListNeedsNoDiscovery) {
  GateProcess gate(Arguments("seconds = 0\n[[find.device]]\nid = \"10.1.2.3.0.1\"\nname = \"far away\"\n"));
  ASSERT_TRUE(IsFound("10-1-2-3-0-1")) << gate.Errors();
  EXPECT_EQ(Find("10-1-2-3-0-1")->address, "10.1.2.3");
  EXPECT_TRUE(Find("10-1-2-3-0-1")->isFixed);
  EXPECT_FALSE(Find("10-77-0-2-0-1")) << "it looked all the same";
}

// Discovery's sockets, in the tables of the command's host.
bool HasDiscoverySocket() { return std::system("test -n \"$(ss --no-header --udp --all --numeric)\"") == 0; }

TEST_F(FindTest, WhoStandsByHasNoSocketAndTakesOver) {
  const auto arguments = Arguments("seconds = 1");
  auto first = std::make_unique<GateProcess>(arguments, "south");
  ASSERT_TRUE(first->Says("this process looks for the devices of north")) << first->Errors();
  GateProcess second(arguments);
  ASSERT_TRUE(second.Says("this process stands by")) << second.Errors();
  ASSERT_TRUE(IsFound("10-77-0-2-0-1"));
  EXPECT_FALSE(HasDiscoverySocket());
  first->Signal(SIGKILL);
  EXPECT_EQ(first->Wait(), 1000 + SIGKILL);
  EXPECT_TRUE(second.Says("this process looks for the devices of north; 2 are known")) << second.Errors();
  EXPECT_TRUE(Until(HasDiscoverySocket));
}

TEST_F(FindTest, WhoCouldNotRenewInTimeEnds) {
  GateProcess gate(Arguments("seconds = 1"));
  ASSERT_TRUE(gate.Says("this process looks for the devices of north")) << gate.Errors();
  gate.Signal(SIGSTOP);
  GateProcess other(Arguments("seconds = 1"), "south");
  EXPECT_TRUE(other.Says("this process looks for the devices of north")) << other.Errors();
  gate.Signal(SIGCONT);
  EXPECT_EQ(gate.Wait(), 1);
  EXPECT_NE(gate.Errors().find("somebody else may look for the devices of north now"), std::string::npos);
}

TEST_F(FindTest, ASignalEndsItAndItsTurn) {
  GateProcess gate(Arguments("seconds = 1"));
  ASSERT_TRUE(gate.Says("this process looks for the devices of north")) << gate.Errors();
  gate.Signal(SIGTERM);
  EXPECT_EQ(gate.Wait(), 0);
  zelgate::KeyEntry entry;
  EXPECT_EQ(Bucket(zelgate::kLeaseBucket).Get("find", entry).code, NATS_NOT_FOUND);
}

TEST_F(FindTest, ItWaitsForItsServer) {
  servers->Kill("north");
  GateProcess gate(Arguments("seconds = 1"));
  ASSERT_TRUE(gate.Says("no NATS server at")) << gate.Errors();
  servers->Start("north");
  EXPECT_TRUE(IsFound("10-77-0-2-0-1")) << gate.Errors();
}

}  // namespace
}  // namespace gatelab
