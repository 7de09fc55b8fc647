// Answers to discovery: what is taken from them, which are dropped, and what they change. The devices are
// sockets of the test on loopback addresses, which send their answers without being asked.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <cstring>
#include <string>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/ScanAnswer.h"
#include "support/ScriptedServer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

constexpr int kRetryMs = 50;
const std::string kHost = "127.0.0.1";
const std::string kOtherHost = "10.77.0.1";

// A device and its server.
struct Device {
  explicit Device(const std::string& address)
      : host(address), server(TestSocket::Listen(address, ScriptedServer::kPort, 8)), socket(address, 0) {}
  bool Answer(const Bytes& bytes) const { return socket.Send(host, kScanPort, bytes); }

  const std::string host;
  TestSocket server;
  TestDatagram socket;
};

void Heard(ZelScanResult, void* user) { static_cast<Recorder<int>*>(user)->Add(1); }

class DiscoveryAnswerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(StartLibrary().result, 0);
    // The discovery thread opens its sockets in its own time.
    static auto& heard = *new Recorder<int>;  // a call may still be under way at the end
    ASSERT_EQ(libzel_registerZelScanEvent(Heard, &heard), 0);
    ASSERT_EQ(libzel_startZelScan(), 0);
    const TestDatagram device("127.0.0.1", 0);
    for (int i = 0; i < 200 && !heard.Await(1, kRetryMs); ++i) {
      (void)device.Send("127.0.0.1", kScanPort, ScanDatagram("{}"));
    }
    // What was sent too often is in the queue before this one.
    (void)device.Send("127.0.0.1", kScanPort, ScanDatagram("{}"));
    ASSERT_TRUE(heard.Await(2));
    ASSERT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0);
  }

  void SetUp() override {
    ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices_), 0);
    ASSERT_EQ(libzel_startZelScan(), 0);
    Settle();
  }
  void TearDown() override {
    ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &ended_), 0);
    ASSERT_EQ(libzel_startZelScan(), 0);
    // Behind its answer no call for this test's recorder can be under way any more.
    Send(DeviceDocument("0.0.0.0.0.99"));
    ASSERT_TRUE(ended_.AwaitDevice("0.0.0.0.0.99"));
    ASSERT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0);
  }

  void Send(const std::string& document) const { SendBytes(ScanDatagram(document)); }
  void SendBytes(const Bytes& bytes) const { ASSERT_TRUE(device_.Answer(bytes)); }
  // Waits until everything that was sent so far has been handled.
  void Settle() {
    const std::string id = "0.0.0.0.0." + std::to_string(++marks_);
    Send(DeviceDocument(id));
    ASSERT_TRUE(devices_.AwaitDevice(id));
  }
  // The records since the start of the test, without the marks.
  std::vector<ZelScanResult> Seen() {
    Settle();
    std::vector<ZelScanResult> records;
    for (const SeenDevice& seen : devices_.All()) {
      if (!std::string(seen.record.zelDeviceId).starts_with("0.0.0.0.0.")) records.push_back(seen.record);
    }
    return records;
  }
  ZelScanResult Only(const std::string& document) {
    Send(document);
    const auto records = Seen();
    EXPECT_EQ(records.size(), 1U);
    return records.empty() ? ZelScanResult{} : records[0];
  }
  // Where an instance for a device connects to.
  template <typename Server>
  static bool ConnectsTo(Server& server, const ZelDeviceId& device) {
    const Instance instance(device);
    return server.Accept(instance.events.AwaitEvent(1, 1, 2000) ? kPatienceMs : 0).IsOpen();
  }

  Device device_{kHost};
  ScanRecorder devices_;
  ScanRecorder ended_;
  int marks_ = 0;
};

// ---- The record -------------------------------------------------------------------------------------------

TEST_F(DiscoveryAnswerTest, EveryMemberReachesItsFieldAndTheRestIsZero) {
  const ZelScanResult record =
      Only(R"({"device":{"zelDeviceId":"1.2.3.4.5.6","zelVersion":"z1","rteVersion":"r2","serialNo":"s3",)"
           R"("vorlinVersion":"v4","hostName":"h5","sn":"n6"},"frames":[{"frameIp":")" +
           kHost + R"(","frameMacAddr":"m7"}]})");
  ZelScanResult expected{};
  std::strcpy(expected.ip, kHost.c_str());
  std::strcpy(expected.frameMacAddr, "m7");
  std::strcpy(expected.serialNo, "s3");
  std::strcpy(expected.sn, "n6");
  std::strcpy(expected.zelDeviceId, "1.2.3.4.5.6");
  std::strcpy(expected.zelVersion, "z1");
  std::strcpy(expected.rteVersion, "r2");
  std::strcpy(expected.vorlinVersion, "v4");
  std::strcpy(expected.hostName, "h5");
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(DiscoveryAnswerTest, AnEmptyDocumentGivesTheSendersAddressAlone) {
  ZelScanResult expected{};
  std::strcpy(expected.ip, kHost.c_str());
  const ZelScanResult record = Only("{}");
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(DiscoveryAnswerTest, AVorlinVersionOf300CharactersIsCutTo255) {
  const std::string text(300, 'v');
  EXPECT_EQ(Only(R"({"device":{"vorlinVersion":")" + text + R"("}})").vorlinVersion, text.substr(0, 255));
}

TEST_F(DiscoveryAnswerTest, AVorlinVersionOf255CharactersArrivesWhole) {
  const std::string text(255, 'v');
  EXPECT_EQ(Only(R"({"device":{"vorlinVersion":")" + text + R"("}})").vorlinVersion, text);
}

TEST_F(DiscoveryAnswerTest, AHostNameOf40CharactersIsCutTo31) {
  const std::string text(40, 'h');
  EXPECT_EQ(Only(R"({"device":{"hostName":")" + text + R"("}})").hostName, text.substr(0, 31));
}

TEST_F(DiscoveryAnswerTest, TheFirstOfTwoFramesWithTheSendersAddressCounts) {
  const std::string ip = R"({"frameIp":")" + kHost + R"(","frameMacAddr":)";
  EXPECT_STREQ(Only(R"({"frames":[)" + ip + R"("first"},)" + ip + R"("second"}]})").frameMacAddr, "first");
}

TEST_F(DiscoveryAnswerTest, FramesOfOtherAddressesArePassedOver) {
  const std::string frames = R"({"frames":[{"frameIp":"10.0.0.1","frameMacAddr":"other"},{"frameIp":")" +
                             kHost + R"(","frameMacAddr":"right"}]})";
  EXPECT_STREQ(Only(frames).frameMacAddr, "right");
}

TEST_F(DiscoveryAnswerTest, WithoutAMatchingFrameTheHardwareAddressIsEmpty) {
  EXPECT_STREQ(Only(R"({"frames":[{"frameIp":"10.0.0.1","frameMacAddr":"other"}]})").frameMacAddr, "");
}

TEST_F(DiscoveryAnswerTest, AFrameIpThatOnlyBeginsLikeTheSendersAddressDoesNotMatch) {
  const std::string longer = R"({"frames":[{"frameIp":")" + kHost + R"(0","frameMacAddr":"other"}]})";
  EXPECT_STREQ(Only(longer).frameMacAddr, "");
}

TEST_F(DiscoveryAnswerTest, FramesInsideTheDeviceAreNotSeen) {
  const std::string inside =
      R"({"device":{"hostName":"h","frames":[{"frameIp":")" + kHost + R"(","frameMacAddr":"inside"}]}})";
  EXPECT_STREQ(Only(inside).frameMacAddr, "");
}

TEST_F(DiscoveryAnswerTest, AFrameWithoutAnAddressIsPassedOver) {
  const std::string frames = R"({"frames":[{},{"frameIp":")" + kHost + R"(","frameMacAddr":"m"}]})";
  EXPECT_STREQ(Only(frames).frameMacAddr, "m");
}

TEST_F(DiscoveryAnswerTest, FramesThatAreNullAreNone) {
  EXPECT_STREQ(Only(R"({"device":{"hostName":"h"},"frames":null})").hostName, "h");
}

TEST_F(DiscoveryAnswerTest, MembersThatNobodyReadsMayBeOfAnyKind) {
  EXPECT_STREQ(Only(R"({"extra":[1,{}],"device":{"hostName":"h","uptime":17}})").hostName, "h");
}

TEST_F(DiscoveryAnswerTest, AnAnswerThatFillsTheReceiveBufferIsRead) {
  const std::string start = R"({"device":{"hostName":"h"},"filler":")";
  const std::string end = R"("})";
  const std::string document = start + std::string(2048 - 9 - start.size() - end.size(), 'x') + end;
  EXPECT_STREQ(Only(document).hostName, "h");
}

// ---- What is dropped --------------------------------------------------------------------------------------

class DiscoveryAnswerDropTest : public DiscoveryAnswerTest {
 protected:
  void ExpectDroppedSilently(const Bytes& datagram) {
    const CapturedLog log;
    SendBytes(datagram);
    EXPECT_TRUE(Seen().empty());
    EXPECT_FALSE(log.HasStart("ERROR", ""));
  }
};

TEST_F(DiscoveryAnswerDropTest, AMulticastRequestIsDroppedSilently) {
  ExpectDroppedSilently(ScanDatagram("", 0));
}
TEST_F(DiscoveryAnswerDropTest, ABroadcastRequestIsDroppedSilently) {
  ExpectDroppedSilently(ScanDatagram(DeviceDocument("1.2.3.4.5.6"), 2));
}
TEST_F(DiscoveryAnswerDropTest, AnUnknownTypeIsDroppedSilentlyWhateverFollows) {
  ExpectDroppedSilently(ScanDatagram("no json at all", 129));
}
TEST_F(DiscoveryAnswerDropTest, AReservedWordOf1IsDroppedSilently) {
  ExpectDroppedSilently(ScanDatagram(DeviceDocument("1.2.3.4.5.6"), 1, 1));
}
TEST_F(DiscoveryAnswerDropTest, AReservedWordInTheHighestByteIsDroppedSilently) {
  ExpectDroppedSilently(ScanDatagram(DeviceDocument("1.2.3.4.5.6"), 1, 0x01000000));
}
TEST_F(DiscoveryAnswerDropTest, ADatagramLongerThanTheReceiveBufferIsDropped) {
  const std::string document = R"({"device":{"hostName":")" + std::string(3000, 'h') + R"("}})";
  ExpectDroppedSilently(ScanDatagram(document));
}

TEST_F(DiscoveryAnswerDropTest, TheTimestampMayHoldAnything) {
  SendBytes(ScanDatagram(DeviceDocument("1.2.3.4.5.6"), 1, 0, 0xFFFFFFFF));
  EXPECT_EQ(Seen().size(), 1U);
}

TEST_F(DiscoveryAnswerDropTest, ADatagramOf8BytesIsLoggedWithItsLength) {
  const CapturedLog log;
  SendBytes(Bytes(8, 1));
  EXPECT_TRUE(Seen().empty());
  EXPECT_EQ(log.Count("ERROR", "reav data len:8 < sizeof(ZelScanHeader)9"), 1);
}

TEST_F(DiscoveryAnswerDropTest, AnEmptyDatagramIsLoggedAsShort) {
  const CapturedLog log;
  SendBytes({});
  EXPECT_TRUE(Seen().empty());
  EXPECT_EQ(log.Count("ERROR", "reav data len:0 < sizeof(ZelScanHeader)9"), 1);
}

TEST_F(DiscoveryAnswerDropTest, AnAnswerThatIsAnArrayIsLogged) {
  const CapturedLog log;
  Send("[1,2]");
  EXPECT_TRUE(Seen().empty());
  EXPECT_EQ(log.Count("ERROR", "not json:[1,2]"), 1);
}

// ---- The callback -----------------------------------------------------------------------------------------

TEST_F(DiscoveryAnswerTest, TheCallbackRunsOnAThreadOfTheLibrary) {
  Send(DeviceDocument("1.2.3.4.5.6"));
  ASSERT_TRUE(devices_.AwaitDevice("1.2.3.4.5.6"));
  for (const SeenDevice& seen : devices_.All()) EXPECT_NE(seen.thread, std::this_thread::get_id());
}

TEST_F(DiscoveryAnswerTest, ANewCallbackReplacesTheOldOne) {
  ScanRecorder second;
  ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &second), 0);
  Send(DeviceDocument("1.2.3.4.5.6"));
  EXPECT_TRUE(second.AwaitDevice("1.2.3.4.5.6"));
  EXPECT_FALSE(devices_.AwaitDevice("1.2.3.4.5.6", 0));
  ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices_), 0);
  Settle();
}

void Spoil(ZelScanResult device, void* user) {
  static_cast<Recorder<std::string>*>(user)->Add(device.zelDeviceId);
  std::memset(&device, 'x', sizeof device);
}

TEST_F(DiscoveryAnswerTest, TheCallbackMayChangeTheRecordItIsGiven) {
  Recorder<std::string> spoiled;
  ASSERT_EQ(libzel_registerZelScanEvent(Spoil, &spoiled), 0);
  Send(DeviceDocument("9.8.7.6.5.4"));
  ASSERT_TRUE(spoiled.Await(1));
  ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices_), 0);
  Settle();
  EXPECT_TRUE(ConnectsTo(device_.server, {{9, 8, 7, 6, 5, 4}}));
}

// ---- The way to a device ----------------------------------------------------------------------------------

TEST_F(DiscoveryAnswerTest, AnInstanceForADeviceThatAnsweredConnectsToItsAddress) {
  Send(DeviceDocument("200.1.2.3.4.5"));
  ASSERT_TRUE(devices_.AwaitDevice("200.1.2.3.4.5"));
  EXPECT_TRUE(ConnectsTo(device_.server, {{200, 1, 2, 3, 4, 5}}));
}

TEST_F(DiscoveryAnswerTest, ALaterAnswerShowsANewWay) {
  Device moved(kOtherHost);
  Send(DeviceDocument("200.1.2.3.4.6"));
  Settle();
  ASSERT_TRUE(moved.Answer(ScanDatagram(DeviceDocument("200.1.2.3.4.6"))));
  Settle();
  EXPECT_TRUE(ConnectsTo(moved.server, {{200, 1, 2, 3, 4, 6}}));
}

// An answer in the name of a device that has a server of its own: an instance goes there unless the answer
// counts.
TEST_F(DiscoveryAnswerTest, WithoutAScanAnAnswerIsNeitherReportedNorRemembered) {
  ScriptedServer own;
  ASSERT_EQ(libzel_stopZelScan(), 0);
  Send(DeviceDocument(IdText(own.device())));
  const CapturedLog log;
  Send("[0]");
  ASSERT_TRUE(log.Await("ERROR", "not json:[0]"));
  ASSERT_EQ(libzel_startZelScan(), 0);
  EXPECT_TRUE(Seen().empty());
  EXPECT_TRUE(ConnectsTo(own, own.device()));
}

TEST_F(DiscoveryAnswerTest, WithoutACallbackAnAnswerIsNotRemembered) {
  ScriptedServer own;
  ASSERT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0);
  Send(DeviceDocument(IdText(own.device())));
  const CapturedLog log;
  Send("[0]");
  ASSERT_TRUE(log.Await("ERROR", "not json:[0]"));
  ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices_), 0);
  EXPECT_TRUE(Seen().empty());
  EXPECT_TRUE(ConnectsTo(own, own.device()));
}

}  // namespace
}  // namespace zeltest
