// zelgate status, at the site north. The devices are what its buckets say.
#include <gtest/gtest.h>

#include <csignal>

#include "DeviceTable.h"
#include "GateProcess.h"
#include "SiteTest.h"

namespace gatelab {
namespace {

using zelgate::DeviceLink;
using zelgate::LinkState;

constexpr const char* kPress = "10-0-0-7-0-1";

class StatusTest : public SiteTest {
 protected:
  void SetUp() override {
    Put(zelgate::kLeaseBucket, "run.gate-1", "{}");
    Put(zelgate::kDeviceBucket, zelgate::FindingKey(kPress),
        ToJson(zelgate::DeviceFinding{"10.0.0.7.0.1", "10.0.0.7", "press 7", "4711", false, {}}));
    PutLink({LinkState::kUp, "2026-11-21T10:00:00.000Z", "gate-1", ""});
  }
  static void PutLink(const DeviceLink& link) {
    Put(zelgate::kDeviceBucket, zelgate::LinkKey(kPress), ToJson(link));
  }
  static std::vector<std::string> Arguments(const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"status", "--config", WriteSiteConfig("north")};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
};

TEST_F(StatusTest, EveryDeviceHasALine) {
  const GateResult result = RunGate(Arguments());
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output,
            "site north: 1 device, 1 up; 1 process serves them\n"
            "DEVICE        NAME     ADDRESS   LINK  SINCE                     SERVED BY  WHY\n"
            "10.0.0.7.0.1  press 7  10.0.0.7  up    2026-11-21T10:00:00.000Z  gate-1\n");
}

TEST_F(StatusTest, AnObjectALineIsForPrograms) {
  const GateResult result = RunGate(Arguments({"--json"}));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output,
            R"({"id":"10.0.0.7.0.1","name":"press 7","serial":"4711","address":"10.0.0.7","link":"up",)"
            R"("since":"2026-11-21T10:00:00.000Z","servedBy":"gate-1","why":""})"
            "\n");
}

TEST_F(StatusTest, WatchingTellsWhatChanges) {
  GateProcess gate(Arguments({"--watch"}));
  ASSERT_TRUE(gate.Says("10.0.0.7.0.1  press 7")) << gate.Errors();
  PutLink({LinkState::kConnecting, "2026-11-21T11:00:00.000Z", "gate-1", "connect 10.0.0.7:9999: refused"});
  EXPECT_TRUE(gate.Says(
      "10.0.0.7.0.1 (press 7) is connecting since 2026-11-21T11:00:00.000Z, served by gate-1: connect "
      "10.0.0.7:9999: refused\n"));
  gate.Signal(SIGINT);
  EXPECT_EQ(gate.Wait(), 0);
}

TEST_F(StatusTest, WatchingTellsThatAProcessHasEnded) {
  GateProcess gate(Arguments({"--watch"}));
  ASSERT_TRUE(gate.Says("10.0.0.7.0.1  press 7")) << gate.Errors();
  ASSERT_TRUE(Bucket(zelgate::kLeaseBucket).Delete("run.gate-1"));
  EXPECT_TRUE(gate.Says("10.0.0.7.0.1 (press 7) is unserved\n")) << gate.Output();
}

TEST_F(StatusTest, ASiteWithoutDevicesIsNoFailure) {
  TearDown();
  const GateResult result = RunGate(Arguments());
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "site north: 0 devices; no process serves them: start zelgate run\n");
}

TEST_F(StatusTest, AServerThatIsNotThereIsNamed) {
  const std::string path = WriteSiteConfig("south");
  const GateResult result = RunGate({"status", "--config", path});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.errors.find("no connection to NATS at nats://south.zel.example:4222 within 5 s"),
            std::string::npos)
      << result.errors;
}

}  // namespace
}  // namespace gatelab
