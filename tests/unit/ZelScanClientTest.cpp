#include "zelclient/ZelScanClient.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "zelclient/ScanMessage.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/DeviceId.h"

namespace libzel {
namespace {

constexpr const char* kSender = "10.77.0.2";

ZelScanResult Read(const std::string& document) { return ReadScanAnswer(document, kSender).value(); }

std::string FaultOf(const std::string& document) {
  try {
    (void)ReadScanAnswer(document, kSender);
  } catch (const std::logic_error& fault) {
    return fault.what();
  }
  return "none";
}

// Every field is zero-filled behind its text.
template <size_t N>
bool IsPadded(const char (&field)[N]) {
  for (size_t i = std::strlen(field); i < N; ++i) {
    if (field[i] != 0) return false;
  }
  return true;
}

TEST(ScanMessageTest, ARequestIsNineBytes) {
  const std::array<uint8_t, 9> multicast = {0, 0, 0, 0, 0, 0x67, 0x89, 0xAB, 0xCD};
  EXPECT_EQ((ZelScanHeader{kScanMulticastRequest, 0, 0x6789ABCD}.Bytes()), multicast);
  const std::array<uint8_t, 9> broadcast = {2, 0, 0, 0, 0, 0, 0, 0, 1};
  EXPECT_EQ((ZelScanHeader{kScanBroadcastRequest, 0, 1}.Bytes()), broadcast);
}

struct HeaderRow {
  std::array<uint8_t, 9> bytes;
  bool accepted;
};

class ScanHeader : public testing::TestWithParam<HeaderRow> {};

TEST_P(ScanHeader, IsAcceptedByTypeAndReservedWordAlone) {
  EXPECT_EQ(IsAcceptedAnswer(ZelScanHeader::Read(GetParam().bytes)), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(Rows, ScanHeader,
                         testing::Values(HeaderRow{{1, 0, 0, 0, 0, 0, 0, 0, 0}, true},
                                         HeaderRow{{1, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, true},
                                         HeaderRow{{0, 0, 0, 0, 0, 0, 0, 0, 0}, false},
                                         HeaderRow{{2, 0, 0, 0, 0, 0, 0, 0, 0}, false},
                                         HeaderRow{{3, 0, 0, 0, 0, 0, 0, 0, 0}, false},
                                         HeaderRow{{129, 0, 0, 0, 0, 0, 0, 0, 0}, false},
                                         HeaderRow{{1, 0, 0, 0, 1, 0, 0, 0, 0}, false},
                                         HeaderRow{{1, 1, 0, 0, 0, 0, 0, 0, 0}, false},
                                         HeaderRow{{1, 0, 0, 1, 0, 0, 0, 0, 0}, false}));

TEST(ScanAnswerTest, EveryFieldIsTaken) {
  const ZelScanResult result =
      Read(R"({"device":{"zelDeviceId":"10.77.0.2.0.1","zelVersion":"v1","rteVersion":"v2","serialNo":"s1",)"
           R"("vorlinVersion":"v3","hostName":"h","sn":"s2","more":5},)"
           R"("frames":[{"frameIp":"10.77.0.2","frameMacAddr":"00-01"}]})");
  EXPECT_STREQ(result.ip, kSender);
  EXPECT_STREQ(result.spare, "");
  EXPECT_STREQ(result.zelDeviceId, "10.77.0.2.0.1");
  EXPECT_STREQ(result.zelVersion, "v1");
  EXPECT_STREQ(result.rteVersion, "v2");
  EXPECT_STREQ(result.serialNo, "s1");
  EXPECT_STREQ(result.vorlinVersion, "v3");
  EXPECT_STREQ(result.hostName, "h");
  EXPECT_STREQ(result.sn, "s2");
  EXPECT_STREQ(result.frameMacAddr, "00-01");
  EXPECT_TRUE(IsPadded(result.ip) && IsPadded(result.spare) && IsPadded(result.frameMacAddr) &&
              IsPadded(result.serialNo) && IsPadded(result.sn) && IsPadded(result.zelDeviceId) &&
              IsPadded(result.zelVersion) && IsPadded(result.rteVersion) && IsPadded(result.vorlinVersion) &&
              IsPadded(result.hostName));
}

TEST(ScanAnswerTest, AllMembersAreOptional) {
  for (const char* document : {"{}", R"({"device":{}})", R"({"device":null})", R"({"device":5})",
                               R"({"device":[]})", R"({"frames":null})", R"({"frames":[]})",
                               R"({"frames":{}})", R"({"frames":"text"})", R"({"frames":[5,null,"x",{}]})"}) {
    const ZelScanResult result = Read(document);
    EXPECT_STREQ(result.ip, kSender) << document;
    EXPECT_STREQ(result.zelDeviceId, "") << document;
    EXPECT_STREQ(result.frameMacAddr, "") << document;
  }
}

TEST(ScanAnswerTest, LongTextsAreCutToTheirFields) {
  const ZelScanResult result = Read(
      R"({"device":{"hostName":")" + std::string(40, 'h') + R"(","vorlinVersion":")" + std::string(300, 'v') +
      R"(","sn":")" + std::string(31, 's') + R"(","serialNo":")" + std::string(32, 'n') + R"("}})");
  EXPECT_EQ(std::string(result.hostName), std::string(31, 'h'));
  EXPECT_EQ(std::string(result.vorlinVersion), std::string(255, 'v'));
  EXPECT_EQ(std::string(result.sn), std::string(31, 's'));
  EXPECT_EQ(std::string(result.serialNo), std::string(31, 'n'));
}

TEST(ScanAnswerTest, ANulEndsAText) {
  const ZelScanResult result = Read(std::string("{\"device\":{\"sn\":\"ab\0cd\"}}", 25));
  EXPECT_STREQ(result.sn, "ab");
  EXPECT_TRUE(IsPadded(result.sn));
}

TEST(ScanAnswerTest, TheFirstFrameOfTheSenderGivesTheHardwareAddress) {
  const ZelScanResult result = Read(R"({"frames":[{"frameIp":"10.77.0.9","frameMacAddr":"other"},5,)"
                                    R"({"frameIp":"10.77.0.2","frameMacAddr":"first"},)"
                                    R"({"frameIp":"10.77.0.2","frameMacAddr":"second"}]})");
  EXPECT_STREQ(result.frameMacAddr, "first");
}

TEST(ScanAnswerTest, NoFrameOfTheSenderLeavesTheHardwareAddressEmpty) {
  EXPECT_STREQ(Read(R"({"frames":[{"frameIp":"10.77.0.20","frameMacAddr":"x"}]})").frameMacAddr, "");
  EXPECT_STREQ(Read(R"({"frames":[{"frameMacAddr":"x"}]})").frameMacAddr, "");
}

TEST(ScanAnswerTest, FramesInsideTheDeviceAreNotSeen) {
  EXPECT_STREQ(Read(R"({"device":{"frames":[{"frameIp":"10.77.0.2","frameMacAddr":"x"}]}})").frameMacAddr,
               "");
}

TEST(ScanAnswerTest, FramesBehindTheSendersAreNotLookedAt) {
  EXPECT_STREQ(Read(R"({"frames":[{"frameIp":"10.77.0.2","frameMacAddr":"x"},{"frameIp":5}]})").frameMacAddr,
               "x");
}

TEST(ScanAnswerTest, DocumentsThatAreNoObjectsAreRefused) {
  for (const char* document : {"null", "true", "5", "1.5", R"("text")", "[]", "[{}]"}) {
    EXPECT_FALSE(ReadScanAnswer(document, kSender).has_value()) << document;
  }
}

TEST(ScanAnswerTest, MembersOfTheWrongKindAreFaults) {
  const std::string noString = "function Json::operator (string) requires string value";
  for (const char* key :
       {"zelDeviceId", "zelVersion", "rteVersion", "serialNo", "vorlinVersion", "hostName", "sn"}) {
    EXPECT_EQ(FaultOf(std::string(R"({"device":{")") + key + "\":5}}"), noString) << key;
    EXPECT_EQ(FaultOf(std::string(R"({"device":{")") + key + "\":null}}"), noString) << key;
  }
  EXPECT_EQ(FaultOf(R"({"frames":[{"frameIp":5,"frameMacAddr":"x"}]})"), noString);
  EXPECT_EQ(FaultOf(R"({"frames":[{"frameIp":"10.77.0.9"}]})"), noString);
  EXPECT_EQ(FaultOf(R"({"frames":{"a":1}})"), "function Json::operator [int] requires array value");
  EXPECT_EQ(FaultOf(""), "unexpected end of input");
  EXPECT_EQ(FaultOf("{"), "unexpected end of input");
}

// ---- notify -----------------------------------------------------------------------------------------------

class ZelScanClientTest : public testing::Test {
 protected:
  static void Callback(ZelScanResult device, void* user) {
    static_cast<ZelScanClientTest*>(user)->reported_.push_back(device);
    std::memset(&device, 0xFF, sizeof device);
  }

  int32_t Notify(const std::string& document, const char* sender = kSender) {
    return client_.notify(reinterpret_cast<const uint8_t*>(document.data()), document.size(), sender);
  }
  static std::string Document(const std::string& id) {
    return R"({"device":{"zelDeviceId":")" + id + R"("}})";
  }
  static std::string HostOf(const char* id) {
    return CRouterTable::Instance().GetHostIpFromDeviceId(ParseDeviceId(id));
  }

  CZelScanClient client_;
  std::vector<ZelScanResult> reported_;
};

TEST_F(ZelScanClientTest, AnAnswerIsReportedAndRemembered) {
  client_.registerScanEvent(Callback, this);
  client_.startScan();
  EXPECT_EQ(Notify(Document("1.1.1.1.1.1")), 0);
  ASSERT_EQ(reported_.size(), 1U);
  EXPECT_STREQ(reported_[0].zelDeviceId, "1.1.1.1.1.1");
  EXPECT_EQ(HostOf("1.1.1.1.1.1"), kSender);
}

TEST_F(ZelScanClientTest, ALaterAnswerReplacesTheWay) {
  client_.registerScanEvent(Callback, this);
  client_.startScan();
  (void)Notify(Document("1.1.1.1.1.2"));
  (void)Notify(Document("1.1.1.1.1.2"), "10.77.0.3");
  EXPECT_EQ(HostOf("1.1.1.1.1.2"), "10.77.0.3");
}

TEST_F(ZelScanClientTest, WithoutACallbackNothingIsRemembered) {
  client_.startScan();
  EXPECT_EQ(Notify(Document("1.1.1.1.1.3")), 0);
  EXPECT_EQ(HostOf("1.1.1.1.1.3"), "1.1.1.1");
}

TEST_F(ZelScanClientTest, WithoutAScanNothingIsReportedOrRemembered) {
  client_.registerScanEvent(Callback, this);
  EXPECT_EQ(Notify(Document("1.1.1.1.1.4")), 0);
  client_.startScan();
  client_.stopScan();
  EXPECT_EQ(Notify(Document("1.1.1.1.1.4")), 0);
  EXPECT_TRUE(reported_.empty());
  EXPECT_EQ(HostOf("1.1.1.1.1.4"), "1.1.1.1");
}

TEST_F(ZelScanClientTest, ARegistrationReplacesCallbackAndContextTogether) {
  int unused = 0;
  client_.registerScanEvent([](ZelScanResult, void* user) { ++*static_cast<int*>(user); }, &unused);
  client_.registerScanEvent(Callback, this);
  client_.startScan();
  (void)Notify("{}");
  EXPECT_EQ(unused, 0);
  EXPECT_EQ(reported_.size(), 1U);
}

TEST_F(ZelScanClientTest, ADocumentThatIsNoObjectIsLogged) {
  client_.registerScanEvent(Callback, this);
  client_.startScan();
  const zeltest::CapturedLog log;
  EXPECT_EQ(Notify("[1]"), -1);
  EXPECT_TRUE(log.Has("ERROR", "not json:[1]"));
  EXPECT_EQ(log.FunctionOf("not json:[1]"), "CZelScanClient::notify");
  EXPECT_TRUE(reported_.empty());
}

TEST_F(ZelScanClientTest, FaultsOfTheDocumentAreThrownEvenWhenNobodyListens) {
  EXPECT_THROW((void)Notify(""), std::logic_error);
  EXPECT_THROW((void)Notify(R"({"device":{"sn":1}})"), std::logic_error);
}

}  // namespace
}  // namespace libzel
