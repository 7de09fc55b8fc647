// Discovery when it is wanted: its start, its state, its second life, whom it hears, and where it asks. Each
// case has a process of its own.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/DiscoveryState.h"
#include "support/Options.h"
#include "support/OwnProcess.h"
#include "support/TraceFile.h"

namespace zeltest {
namespace {

constexpr const char* kOwnHost = "10.77.0.1";

class OwnProcessTest : public testing::Test {
 protected:
  void SetUp() override { UseFreshProcesses(); }
};

void Set(int32_t option, int64_t value) { EXPECT_EQ(libzelx_setOption(0, option, value), ZEL_OK); }

bool IsScanPortFree(int patienceMs = TestDatagram::kPortPatienceMs) {
  try {
    const TestDatagram other("0.0.0.0", kScanPort, patienceMs);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// ---- Its start --------------------------------------------------------------------------------------------

using DiscoveryStartTest = OwnProcessTest;

TEST_F(DiscoveryStartTest, ByTheLetterItRunsFromTheStartOfTheLibrary) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(AwaitRunning());
    EXPECT_FALSE(IsScanPortFree(0));
  });
}

TEST_F(DiscoveryStartTest, SwitchedOffItHasNoSocketAndNoReason) {
  IN_OWN_PROCESS({
    Set(LIBZELX_DISCOVERY, 0);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzel_startZelScan(), 0);
    EXPECT_TRUE(IsScanPortFree());
    EXPECT_EQ(StateOfDiscovery().running, 0);
    EXPECT_STREQ(StateOfDiscovery().reason, "");
  });
}

TEST_F(DiscoveryStartTest, ItStartsWhenItIsWanted) {
  IN_OWN_PROCESS({
    Set(LIBZELX_DISCOVERY, 0);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_OK);
    EXPECT_EQ(StateOfDiscovery().running, 1);
    EXPECT_TRUE(AnsweringDevice(kLocal).IsHeard("1.2.3.4.5.6"));
  });
}

TEST_F(DiscoveryStartTest, ItStartsBeforeTheLibrary) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_OK);
    EXPECT_GE(StateOfDiscovery().adapters, 1U);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(AnsweringDevice(kLocal).IsHeard("1.2.3.4.5.6"));
  });
}

TEST_F(DiscoveryStartTest, StartingItAgainDoesNothing) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_OK);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_OK);
    EXPECT_EQ(StateOfDiscovery().restarts, 0U);
  });
}

TEST_F(DiscoveryStartTest, AStartThatFailsGives8195AndTheReason) {
  IN_OWN_PROCESS({
    const TestDatagram other("0.0.0.0", kScanPort);
    Set(LIBZELX_DISCOVERY, 0);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_E_RESOURCE);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_RESOURCE);
    EXPECT_EQ(StateOfDiscovery().running, 0);
    EXPECT_TRUE(std::string(StateOfDiscovery().reason).starts_with("bind ZEL_MUTILCAST_PORT:38897: "));
  });
}

TEST_F(DiscoveryStartTest, AStartThatFailedCanBeTriedAgain) {
  IN_OWN_PROCESS({
    auto other = std::make_unique<TestDatagram>("0.0.0.0", kScanPort);
    Set(LIBZELX_DISCOVERY, 0);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_E_RESOURCE);
    other.reset();
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_OK);
    EXPECT_TRUE(AnsweringDevice(kLocal).IsHeard("1.2.3.4.5.6"));
    EXPECT_STREQ(StateOfDiscovery().reason, "");
  });
}

TEST_F(DiscoveryStartTest, WhereItAsksIsTold) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(AwaitRunning());
    EXPECT_EQ(StateOfDiscovery().adapters, 1U);
    EXPECT_GT(std::string(StateOfDiscovery().adapterList).size(), 0U);
  });
}

TEST_F(DiscoveryStartTest, ItsStateWantsAStructure) {
  libzelx_Discovery state{};
  EXPECT_EQ(libzelx_getDiscovery(nullptr), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_getDiscovery(&state), ZEL_E_PARAM);
}

// ---- Its second life --------------------------------------------------------------------------------------

using DiscoveryRetryTest = OwnProcessTest;

TEST_F(DiscoveryRetryTest, ByTheLetterAFailureEndsItForGood) {
  IN_OWN_PROCESS({
    auto other = std::make_unique<TestDatagram>("0.0.0.0", kScanPort);
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(log.Await("DEBUG", "Zel Scan Client End"));
    EXPECT_EQ(StateOfDiscovery().running, 0);
    EXPECT_STRNE(StateOfDiscovery().reason, "");
    other.reset();
    EXPECT_FALSE(Eventually([] { return StateOfDiscovery().running == 1; }, 500));
    EXPECT_EQ(StateOfDiscovery().restarts, 0U);
  });
}

TEST_F(DiscoveryRetryTest, ItBeginsAnewWhenItCan) {
  IN_OWN_PROCESS({
    auto other = std::make_unique<TestDatagram>("0.0.0.0", kScanPort);
    const CapturedLog log;
    Set(LIBZELX_DISCOVERY_RETRY_MS, 50);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(log.Await("ERROR", "Select error!", 2));
    EXPECT_EQ(StateOfDiscovery().running, 0);
    EXPECT_TRUE(std::string(StateOfDiscovery().reason).starts_with("bind ZEL_MUTILCAST_PORT:38897: "));
    other.reset();
    EXPECT_TRUE(AwaitRunning());
    EXPECT_GE(StateOfDiscovery().restarts, 1U);
    EXPECT_EQ(StateOfDiscovery().adapters, 1U);
    EXPECT_STREQ(StateOfDiscovery().reason, "");
    EXPECT_TRUE(AnsweringDevice(kLocal).IsHeard("1.2.3.4.5.6"));
  });
}

// ---- Malformed answers ------------------------------------------------------------------------------------

// What ends the process by the letter, as FatalAnswerTest shows, or is logged each time.
const std::vector<Bytes>& BadAnswers() {
  static const std::vector<Bytes> answers = [] {
    std::vector<Bytes> all{Bytes{1}, Bytes(8)};
    for (const char* document :
         {"", "not json", "{", "[]", "7", R"({"device":{"zelDeviceId":7}})",
          R"({"device":{"hostName":null}})", R"({"device":{"sn":{}}})",
          R"({"frames":[{"frameIp":"10.0.0.1"}]})", R"({"frames":[{"frameIp":1,"frameMacAddr":"m"}]})",
          R"({"frames":[{"frameIp":"1.2.3.4","frameMacAddr":2}]})", R"({"frames":{"frameIp":"1.2.3.4"}})"}) {
      all.push_back(ScanDatagram(document));
    }
    return all;
  }();
  return answers;
}

using BadAnswerTest = OwnProcessTest;

TEST_F(BadAnswerTest, EachIsDroppedAndCountedWithOneWarning) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    Set(LIBZELX_DROP_BAD_ANSWERS, 1);
    EXPECT_EQ(libzel_init(), 0);
    AnsweringDevice device(kLocal);
    EXPECT_TRUE(device.Settle());
    for (const Bytes& answer : BadAnswers()) device.Send(answer);
    EXPECT_TRUE(device.Settle());
    EXPECT_EQ(StateOfDiscovery().dropped, BadAnswers().size());
    EXPECT_GE(StateOfDiscovery().answers, 2U);
    EXPECT_EQ(log.Count("WARNING", "scan answer of 127.0.0.1 dropped:too short,1 so far"), 1);
    int warnings = 0;
    for (const LogLine& line : log.Lines()) warnings += line.level == "WARNING" ? 1 : 0;
    EXPECT_EQ(warnings, 1);
    EXPECT_FALSE(log.HasStart("ERROR", ""));
  });
}

TEST_F(BadAnswerTest, ItCanBeSwitchedOnLater) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    AnsweringDevice device(kLocal);
    EXPECT_TRUE(device.Settle());
    Set(LIBZELX_DROP_BAD_ANSWERS, 1);
    device.Send(ScanDatagram("not json"));
    EXPECT_TRUE(device.Settle());
    EXPECT_EQ(StateOfDiscovery().dropped, 1U);
  });
}

TEST_F(BadAnswerTest, WhatIsNoAnswerIsNotCounted) {
  IN_OWN_PROCESS({
    Set(LIBZELX_DROP_BAD_ANSWERS, 1);
    EXPECT_EQ(libzel_init(), 0);
    AnsweringDevice device(kLocal);
    EXPECT_TRUE(device.Settle());
    device.Send(ScanDatagram("not json", 0));
    device.Send(ScanDatagram("not json", 1, 1));
    EXPECT_TRUE(device.Settle());
    EXPECT_EQ(StateOfDiscovery().dropped, 0U);
  });
}

// ---- Limits -----------------------------------------------------------------------------------------------

using NetworkLimitTest = OwnProcessTest;

TEST_F(NetworkLimitTest, ByTheLetterEveryNetworkMayAnswer) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(AnsweringDevice(kLocal).IsHeard("1.1.1.1.1.1"));
    EXPECT_TRUE(AnsweringDevice(kOwnHost).IsHeard("2.2.2.2.2.2"));
  });
}

TEST_F(NetworkLimitTest, AnswersFromOtherNetworksAreDroppedAndCounted) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzelx_setNetworks("192.168.0.0/16,10.77.0.0/24", nullptr), ZEL_OK);
    EXPECT_EQ(libzel_init(), 0);
    AnsweringDevice mine(kOwnHost);
    const AnsweringDevice foreign(kLocal);
    EXPECT_TRUE(mine.Settle());
    foreign.Answer("1.1.1.1.1.1");
    foreign.Send(ScanDatagram("not json"));
    EXPECT_TRUE(mine.Settle());
    EXPECT_EQ(StateOfDiscovery().dropped, 2U);
  });
}

TEST_F(NetworkLimitTest, AnAdapterThatIsNotThereIsAReason) {
  IN_OWN_PROCESS({
    Set(LIBZELX_DISCOVERY, 0);
    EXPECT_EQ(libzelx_setNetworks(nullptr, "eth7,10.99.0.1"), ZEL_OK);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_E_RESOURCE);
    EXPECT_STREQ(StateOfDiscovery().reason, "none of the adapters to ask on is there");
  });
}

TEST_F(NetworkLimitTest, WhatCannotBeReadGives8196) {
  IN_OWN_PROCESS({
    for (const char* bad : {"", ",", "10.0.0.0/33", "10.0.0/8", "10.0.0.0/8,", "host", "1.2.3.4.5",
                            "256.0.0.1", "10.0.0.0/", "10.0.0.0/a", "-1.0.0.0", "10.0.0.0/8;11.0.0.0/8"}) {
      EXPECT_EQ(libzelx_setNetworks(bad, nullptr), ZEL_E_PARAM) << bad;
    }
    for (const char* bad : {"", "eth0,", ",eth0"}) {
      EXPECT_EQ(libzelx_setNetworks(nullptr, bad), ZEL_E_PARAM) << bad;
    }
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(AnsweringDevice(kLocal).IsHeard("1.1.1.1.1.1"));
  });
}

TEST_F(NetworkLimitTest, BehindTheStartItIsTooLate) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_setNetworks("10.0.0.0/8", nullptr), LIBZELX_E_TOO_LATE);
  });
}

// ---- Adapters: this host has two, on 10.77.0.1 and 10.77.1.1, and a simulated device on either network ----

class AdapterLimitTest : public OwnProcessTest {
 protected:
  // Who has asked the device, main sockets included.
  static std::set<std::string> Askers() {
    std::set<std::string> askers;
    for (const TraceLine& line : TraceFile(1).Lines({{"service", "scan"}, {"dir", "in"}})) {
      const std::string peer = line.Of("peer");
      askers.insert(peer.substr(0, peer.find(':')));
    }
    return askers;
  }
  static void Scan() {
    Set(LIBZELX_DISCOVERY, 0);
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_startDiscovery(), ZEL_OK);
    EXPECT_EQ(libzel_startZelScan(), 0);
  }
};

TEST_F(AdapterLimitTest, ItAsksOnTheChosenAdapterAlone) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzelx_setNetworks(nullptr, "10.77.1.1"), ZEL_OK);
    Scan();
    EXPECT_EQ(StateOfDiscovery().adapters, 1U);
    EXPECT_TRUE(TraceFile(1).Await({{"service", "scan"}, {"dir", "in"}, {"peer", "10.77.1.1:38897"}}, 3));
  });
  EXPECT_EQ(Askers(), std::set<std::string>{"10.77.1.1"});
}

TEST_F(AdapterLimitTest, ByTheLetterItAsksOnAll) {
  IN_OWN_PROCESS({
    Scan();
    EXPECT_EQ(StateOfDiscovery().adapters, 2U);
    EXPECT_TRUE(Eventually([] { return Askers().contains("10.77.0.1") && Askers().contains("10.77.1.1"); }));
  });
}

class AllAdaptersTest : public AdapterLimitTest {
 protected:
  static constexpr const char* kDescription = "/opt/zel/zeldevice.xml";

  AllAdaptersTest() { std::ofstream(kDescription) << R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/></d>)"; }
  ~AllAdaptersTest() override { (void)std::remove(kDescription); }
};

TEST_F(AllAdaptersTest, ByTheLetterADescriptionFileLeavesNone) {
  IN_OWN_PROCESS({
    Scan();
    EXPECT_EQ(StateOfDiscovery().adapters, 0U);
  });
}

TEST_F(AllAdaptersTest, AllAreAskedOnWithADescriptionFileToo) {
  IN_OWN_PROCESS({
    Set(LIBZELX_ALL_ADAPTERS, 1);
    Scan();
    EXPECT_EQ(StateOfDiscovery().adapters, 2U);
  });
}

// ---- The description file ---------------------------------------------------------------------------------

class CheckXmlTest : public OwnProcessTest {
 protected:
  static constexpr const char* kDescription = "/opt/zel/zeldevice.xml";

  CheckXmlTest() { std::ofstream(kDescription) << "<a><b></a></b>"; }
  ~CheckXmlTest() override { (void)std::remove(kDescription); }
};

TEST_F(CheckXmlTest, ByTheLetterAFileWithBadNestingIsReadForEver) {
  IN_OWN_PROCESS({
    std::thread([] { (void)libzel_init(); }).detach();
    EXPECT_FALSE(Eventually([] { return StateOfDiscovery().running == 1; }, 1000));
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
  });
}

TEST_F(CheckXmlTest, ItIsRefusedAndTheAdaptersGiveTheIdentifier) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    Set(LIBZELX_CHECK_XML, 1);
    EXPECT_EQ(libzel_init(), 0);
    ZelDeviceId id{};
    EXPECT_EQ(libzel_getLocalZelDeviceId(&id), 0);
    EXPECT_EQ(IdText(id), "10.77.0.1.1.1");
    EXPECT_TRUE(
        log.Has("ERROR", "/opt/zel/zeldevice.xml is refused:an element is closed by another one's end tag"));
  });
}

}  // namespace
}  // namespace zeltest
