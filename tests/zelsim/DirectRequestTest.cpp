#include <gtest/gtest.h>

#include "NetLab.h"

namespace zelsim {
namespace {

using test::BuildRequest;
using test::RequestSpec;
using test::UdpClient;

constexpr uint16_t kPort = 38898;

const RequestSpec kRead{
    .port = 101, .invokeId = 4, .payload = {}, .idGroup = 0x1000, .idOffset = 0x1001, .cmd = 1};

RequestSpec WriteOf(Bytes id) {
  return {
      .port = 101, .invokeId = 5, .payload = std::move(id), .idGroup = 0x1001, .idOffset = 0x1002, .cmd = 5};
}

class DirectRequest : public test::TwoHosts {
 protected:
  std::optional<test::Received> Ask(const RequestSpec& request, const char* address = "10.77.0.2") {
    client_.SendTo(BuildRequest(request), address, kPort);
    return client_.Receive();
  }
  // One device at 10.77.0.2 with these faults.
  void StartFaulty(std::initializer_list<std::string> faults) {
    std::vector<std::string> arguments{"--device", "1.2.3.4.5.6", "--no-discovery"};
    for (const std::string& fault : faults) arguments.insert(arguments.end(), {"--udp-fault", fault});
    StartDevice(arguments);
  }

  UdpClient client_;
};

TEST_F(DirectRequest, ReadsTheIdentifier) {
  StartFaulty({});
  const auto answer = Ask(kRead);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->from, "10.77.0.2");
  EXPECT_EQ(answer->port, kPort);
  const Bytes expected{0, 1, 101, 0, 19, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 1, 0, 0, 0, 1, 2, 3, 4, 5, 6};
  EXPECT_EQ(answer->bytes, expected);
}

TEST_F(DirectRequest, WrittenIdentifierIsReadFromThenOn) {
  StartFaulty({});
  const auto written = Ask(WriteOf({9, 8, 7, 6, 5, 4}));
  ASSERT_TRUE(written);
  EXPECT_EQ(written->bytes, (Bytes{0, 1, 101, 0, 13, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 5, 0, 0, 0}));
  const auto read = Ask(kRead);
  ASSERT_TRUE(read);
  EXPECT_EQ(Bytes(read->bytes.end() - 6, read->bytes.end()), (Bytes{9, 8, 7, 6, 5, 4}));
}

TEST_F(DirectRequest, IdentifierOfAnotherLengthIsRefused) {
  StartFaulty({});
  const auto answer = Ask(WriteOf({9, 8, 7}));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->bytes[10], 0x10);
  EXPECT_EQ(answer->bytes[11], 0x04);
}

TEST_F(DirectRequest, AnythingElseIsEchoed) {
  StartFaulty({});
  const auto answer = Ask({.port = 600, .invokeId = 1, .payload = {1, 2, 3}});
  ASSERT_TRUE(answer);
  EXPECT_EQ(Bytes(answer->bytes.begin() + 21, answer->bytes.end()), (Bytes{1, 2, 3}));
}

TEST_F(DirectRequest, BrokenFramesAreDroppedAndTraced) {
  StartFaulty({});
  Bytes wrongLength = BuildRequest(kRead);
  wrongLength[4]++;
  for (const Bytes& bytes : {Bytes{}, Bytes(7), wrongLength, Bytes{0, 1, 1, 0, 1, 0, 0, 0, 9}}) {
    client_.SendTo(bytes, "10.77.0.2", kPort);
  }
  ASSERT_TRUE(Ask(kRead));
  EXPECT_FALSE(client_.Receive(30));
  EXPECT_EQ(TraceLines({"service=direct", "dropped=frame"}).size(), 4u);
}

TEST_F(DirectRequest, RequestIsTraced) {
  StartFaulty({});
  ASSERT_TRUE(Ask(kRead));
  EXPECT_EQ(
      TraceLines({"dir=in service=direct", "to=10.77.0.2:38898 ttl=64 size=29 hex=0001650015000000",
                  "device=1.2.3.4.5.6 port=101 version=1 cmd=1 invokeId=4", "idGroup=0x1000 idOffset=0x1001"})
          .size(),
      1u);
  EXPECT_EQ(TraceLines({"dir=out service=direct", "size=27", "cmd=1 invokeId=4 error=0"}).size(), 1u);
}

TEST_F(DirectRequest, FleetDeviceAnswersFromTheAddressThatWasAsked) {
  host_->Command("ip route add local 10.77.1.0/24 dev zsb");
  StartDevice({"--devices", "100", "--base", "10.77.1.1", "--no-discovery"});
  for (const char* address : {"10.77.1.1", "10.77.1.57", "10.77.1.100"}) {
    const auto answer = Ask(kRead, address);
    ASSERT_TRUE(answer) << address;
    EXPECT_EQ(answer->from, address);
    EXPECT_EQ(Bytes(answer->bytes.end() - 2, answer->bytes.end()), (Bytes{0, 1}));
  }
  ASSERT_TRUE(Ask(WriteOf({1, 1, 1, 1, 1, 1}), "10.77.1.57"));
  EXPECT_EQ(Ask(kRead, "10.77.1.57")->bytes.back(), 1);
  EXPECT_EQ(Ask(kRead, "10.77.1.1")->bytes[21], 10);
}

TEST_F(DirectRequest, DevicesWithTheirOwnAddressesStandSideBySide) {
  host_->Command("ip addr add 10.77.0.3/16 dev zsb");
  StartDevice({"--no-discovery", "--device", "1.1.1.1.1.1@10.77.0.2", "--device", "2.2.2.2.2.2@10.77.0.3",
               "--udp-fault", "10.77.0.3=error:5"});
  EXPECT_EQ(Ask(kRead)->bytes.back(), 1);
  const auto refused = Ask(kRead, "10.77.0.3");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->bytes.size(), 21u);
  EXPECT_EQ(refused->bytes[11], 5);
}

TEST_F(DirectRequest, WrongIdentifierComesWithTheRightPayload) {
  StartFaulty({"invoke"});
  const auto answer = Ask(kRead);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->bytes[15], 5);
  EXPECT_EQ(answer->bytes.back(), 6);
}

TEST_F(DirectRequest, FaultsMayBeCombined) {
  StartFaulty({"invoke", "error:5"});
  const auto answer = Ask(kRead);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->bytes[11], 5);
  EXPECT_EQ(answer->bytes[15], 5);
}

TEST_F(DirectRequest, LengthFaultsChangeTheHeaderOnly) {
  StartFaulty({"length:be@1", "length:18@2", "length:zero@3"});
  const auto swapped = Ask(kRead);
  ASSERT_TRUE(swapped);
  EXPECT_EQ(Bytes(swapped->bytes.begin() + 4, swapped->bytes.begin() + 8), (Bytes{0, 0, 0, 19}));
  EXPECT_EQ(Ask(kRead)->bytes[4], 18);
  EXPECT_EQ(Ask(kRead)->bytes[4], 0);
}

TEST_F(DirectRequest, ShortAnswerAnnouncesItsOwnLength) {
  StartFaulty({"short"});
  const auto answer = Ask(kRead);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->bytes.size(), 20u);
  EXPECT_EQ(answer->bytes[4], 12);
}

TEST_F(DirectRequest, OversizeAnswerIsLongerThanAnyReceiveBuffer) {
  StartFaulty({"oversize"});
  const auto answer = Ask(kRead);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->bytes.size(), 5000u);
}

TEST_F(DirectRequest, SilenceAndDelay) {
  StartFaulty({"silent@1", "delay:80@2"});
  client_.SendTo(BuildRequest(kRead), "10.77.0.2", kPort);
  EXPECT_FALSE(client_.Receive(50));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(Ask(kRead));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(80));
}

TEST_F(DirectRequest, ServerRunsBesideTheDevice) {
  StartDevice({"--device", "1.2.3.4.5.6", "--no-discovery", "--listen", "10.77.0.2:9999"});
  ASSERT_TRUE(Ask(kRead));
  test::RawClient client(9999, "10.77.0.2");
  client.Send(BuildRequest({.payload = {1}}));
  EXPECT_TRUE(client.ReadFrame());
}

}  // namespace
}  // namespace zelsim
