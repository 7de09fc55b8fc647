// This machine's own identifier. It is derived once per process, so each case has a process of its own.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/OwnProcess.h"
#include "support/ScanAnswer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

constexpr const char* kDescription = "/opt/zel/zeldevice.xml";
constexpr const char* kFromTheAdapter = "10.77.0.1.1.1";

class IdentityTest : public testing::Test {
 protected:
  void SetUp() override { UseFreshProcesses(); }
  void TearDown() override { (void)std::remove(kDescription); }

  static void Describe(const std::string& text) {
    std::ofstream file(kDescription, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.good());
  }
  static std::string LocalId() {
    ZelDeviceId id{{1, 1, 1, 1, 1, 1}};
    EXPECT_EQ(libzel_getLocalZelDeviceId(&id), 0);
    return IdText(id);
  }
  // Waits until the discovery thread has opened all its sockets.
  static void AwaitDiscovery(const CapturedLog& log) {
    const TestDatagram sender("127.0.0.1", 0);
    ASSERT_TRUE(Eventually([&] {
      (void)sender.Send("127.0.0.1", kScanPort, {1});
      return log.HasStart("ERROR", "reav data len:1 ");
    }));
  }
};

// ---- The sources ------------------------------------------------------------------------------------------

TEST_F(IdentityTest, WithoutADescriptionItIsTheFirstAdaptersAddress) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(LocalId(), kFromTheAdapter);
  });
}

TEST_F(IdentityTest, ADescriptionGivesIt) {
  Describe(R"(<device><deviceInfo deviceId="10.0.0.5.1.1"/></device>)");
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(LocalId(), "10.0.0.5.1.1");
  });
}

TEST_F(IdentityTest, ADescriptionIsLogged) {
  Describe(R"(<device><deviceInfo deviceId="10.0.0.5.1.1"/></device>)");
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(log.Has("DEBUG", "xml name:deviceInfo,deviceId:10.0.0.5.1.1"));
  });
}

TEST_F(IdentityTest, WithADescriptionDiscoveryUsesNoInterface) {
  Describe(R"(<device><deviceInfo deviceId="10.0.0.5.1.1"/></device>)");
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    AwaitDiscovery(log);
    EXPECT_FALSE(log.HasStart("DEBUG", "iframe:"));
  });
}

TEST_F(IdentityTest, WithoutADescriptionDiscoveryUsesTheAdapter) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    AwaitDiscovery(log);
    int joined = 0;
    for (const LogLine& line : log.Lines()) {
      joined +=
          line.message.starts_with("iframe:") &&
                  line.message.ends_with(",IP:10.77.0.1,Join mutil cast Ip:239.255.0.3,port:38897 Success")
              ? 1
              : 0;
    }
    EXPECT_EQ(joined, 1);
  });
}

struct Description {
  const char* name;
  const char* text;
  const char* id;
};

class DescriptionTest : public IdentityTest, public testing::WithParamInterface<Description> {};

TEST_P(DescriptionTest, GivesTheIdentifier) {
  Describe(GetParam().text);
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(LocalId(), GetParam().id);
  });
}

INSTANTIATE_TEST_SUITE_P(
    Files, DescriptionTest,
    testing::Values(
        Description{"AnyRootName",
                    R"(<?xml version="1.0"?><!-- a --><x><deviceInfo deviceId="1.2.3.4.5.6"/></x>)",
                    "1.2.3.4.5.6"},
        Description{"TheFirstOfTwo",
                    R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/><deviceInfo deviceId="9.9.9.9.9.9"/></d>)",
                    "1.2.3.4.5.6"},
        Description{"BehindOthers",
                    R"(<d><name>n</name><deviceInfo deviceId="1.2.3.4.5.6">t</deviceInfo></d>)",
                    "1.2.3.4.5.6"},
        Description{"InFrontOfAFault", R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/><broken !></d>)",
                    "1.2.3.4.5.6"},
        Description{"Malformed", R"(<d><deviceInfo deviceId="1.2.3"/></d>)", "0.0.0.0.0.0"},
        Description{"NoAttribute", R"(<d><deviceInfo/></d>)", "0.0.0.0.0.0"},
        Description{"NestedTooDeep", R"(<d><e><deviceInfo deviceId="1.2.3.4.5.6"/></e></d>)",
                    kFromTheAdapter},
        Description{"AsTheRoot", R"(<deviceInfo deviceId="1.2.3.4.5.6"/>)", kFromTheAdapter},
        Description{"AnotherName", R"(<d><deviceInfos deviceId="1.2.3.4.5.6"/></d>)", kFromTheAdapter},
        Description{"Empty", "", kFromTheAdapter}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(IdentityTest, AnEmptyDescriptionIsLogged) {
  Describe("");
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_TRUE(log.Has("ERROR", "xml document is empty"));
  });
}

// ---- An attribute without double quotes -------------------------------------------------------------------

class UnquotedDescriptionTest : public IdentityTest {
 protected:
  void SetUp() override {
    IdentityTest::SetUp();
    Describe("<d><deviceInfo deviceId='1.2.3.4.5.6'/></d>");
  }
};

TEST_F(UnquotedDescriptionTest, InitSucceedsAndLogsIt) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    bool isLogged = false;
    for (const LogLine& line : log.Lines()) {
      isLogged = isLogged || (line.level == "ERROR" && line.function == "libzel_init" &&
                              line.message.ends_with("xml element attr value should be in double quotes"));
    }
    EXPECT_TRUE(isLogged);
  });
}

TEST_F(UnquotedDescriptionTest, InstancesWorkAllTheSame) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    ScriptedServer server;
    const Instance instance(server.device());
    Peer peer = server.Accept();
    EXPECT_EQ(instance.Send(600, Text("x")), 30);
    EXPECT_TRUE(peer.Serve(Text("y")).whole);
    Bytes buffer(8);
    EXPECT_EQ(instance.Receive(buffer), 1);
  });
}

TEST_F(UnquotedDescriptionTest, DiscoveryWorksAllTheSame) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    EXPECT_EQ(libzel_init(), 0);
    AwaitDiscovery(log);
  });
}

TEST_F(UnquotedDescriptionTest, TheIdentifierCannotBeHad) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    ZelDeviceId id;
    EXPECT_NE(libzel_getLocalZelDeviceId(&id), 0);
  });
}

// ---- The export -------------------------------------------------------------------------------------------

TEST_F(IdentityTest, TheIdentifierIsLogged) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    const CapturedLog log;
    (void)LocalId();
    EXPECT_TRUE(log.Has("DEBUG", std::string("Get Local DeviceId:") + kFromTheAdapter));
  });
}

TEST_F(IdentityTest, AskingIntoNothingIsRefused) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzel_getLocalZelDeviceId(nullptr), ZEL_E_PARAM);
    EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
    EXPECT_EQ(ZelGetLocalDeviceId(nullptr), ZEL_E_PARAM);
  });
}

TEST_F(IdentityTest, TheAliasGivesTheSame) {
  IN_OWN_PROCESS({
    EXPECT_EQ(ZelInit(), 0);
    ZelDeviceId id{};
    EXPECT_EQ(ZelGetLocalDeviceId(&id), 0);
    EXPECT_EQ(IdText(id), kFromTheAdapter);
  });
}

TEST_F(IdentityTest, AnInstanceForTheOwnIdentifierConnectsToLoopback) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    const TestSocket server = TestSocket::Listen("127.0.0.1", ScriptedServer::kPort, 1);
    ZelDeviceId id{};
    EXPECT_EQ(libzel_getLocalZelDeviceId(&id), 0);
    const Instance instance(id);
    EXPECT_TRUE(server.Accept(kPatienceMs).IsOpen());
  });
}

TEST_F(IdentityTest, BeforeItWasAskedForItIsAnAddressLikeAnyOther) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    const TestSocket server = TestSocket::Listen("10.77.0.1", ScriptedServer::kPort, 1);
    const Instance instance(ZelDeviceId{{10, 77, 0, 1, 1, 1}});
    EXPECT_TRUE(server.Accept(kPatienceMs).IsOpen());
  });
}

}  // namespace
}  // namespace zeltest
