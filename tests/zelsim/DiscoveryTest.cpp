#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "NetLab.h"

namespace zelsim {
namespace {

using nlohmann::json;
using test::Received;
using test::UdpClient;

constexpr const char* kGroup = "239.255.0.3";
constexpr uint16_t kGroupPort = 38897;
constexpr uint16_t kBroadcastPort = 38896;
const Bytes kMulticastRequest{0, 0, 0, 0, 0, 1, 2, 3, 4};
const Bytes kBroadcastRequest{2, 0, 0, 0, 0, 1, 2, 3, 4};

class Discovery : public test::TwoHosts {
 protected:
  void Ask(UdpClient& client, const Bytes& request = kMulticastRequest) {
    client.MulticastVia("10.77.0.1", 10);
    client.SendTo(request, kGroup, kGroupPort);
  }
  // The answer to one multicast request.
  std::optional<Received> AskOnce() {
    UdpClient client("10.77.0.1");
    Ask(client);
    return client.Receive();
  }
};

json Document(const Received& received) {
  return json::parse(received.bytes.begin() + 9, received.bytes.end(), nullptr, false);
}

TEST_F(Discovery, MulticastRequestIsAnsweredToItsAddressAndPort) {
  StartDevice({"--device", "1.2.3.4.5.6", "--interface", "10.77.0.2"});
  const auto answer = AskOnce();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->from, "10.77.0.2");
  EXPECT_EQ(answer->port, kGroupPort);
  EXPECT_EQ(Bytes(answer->bytes.begin(), answer->bytes.begin() + 5), (Bytes{1, 0, 0, 0, 0}));
  const json document = Document(*answer);
  EXPECT_EQ(document["device"]["zelDeviceId"], "1.2.3.4.5.6");
  EXPECT_EQ(document["frames"][0]["frameIp"], "10.77.0.2");
  EXPECT_EQ(document["frames"][0]["frameMacAddr"], "02:00:0A:4D:00:02");
}

TEST_F(Discovery, BroadcastRequestIsAnsweredToTheGroupPort) {
  StartDevice({"--device", "1.2.3.4.5.6"});
  UdpClient main("0.0.0.0", kGroupPort);
  UdpClient client("10.77.0.1");
  client.SendTo(kBroadcastRequest, "255.255.255.255", kBroadcastPort);
  const auto answer = main.Receive();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->from, "10.77.0.2");
  EXPECT_EQ(Document(*answer)["device"]["zelDeviceId"], "1.2.3.4.5.6");
  EXPECT_FALSE(client.Receive(50));
}

TEST_F(Discovery, RequestsOfAnotherFormAreDroppedAndTraced) {
  StartDevice({"--device", "1.2.3.4.5.6"});
  UdpClient client("10.77.0.1");
  Ask(client, {0, 0, 0, 0, 0, 1, 2, 3});
  Ask(client, {0, 0, 0, 0, 0, 1, 2, 3, 4, 5});
  Ask(client, {0, 0, 0, 0, 1, 1, 2, 3, 4});
  Ask(client, {1, 0, 0, 0, 0, 1, 2, 3, 4});
  Ask(client);
  ASSERT_TRUE(client.Receive());
  EXPECT_FALSE(client.Receive(50));
  EXPECT_EQ(TraceLines({"dir=in", "dropped=length"}).size(), 2u);
  EXPECT_EQ(TraceLines({"dir=in", "dropped=reserved"}).size(), 1u);
  EXPECT_EQ(TraceLines({"dir=in", "dropped=type"}).size(), 1u);
}

TEST_F(Discovery, RequestIsTracedWithSourceDestinationBytesAndTtl) {
  StartDevice({"--device", "1.2.3.4.5.6"});
  UdpClient client("10.77.0.1");
  Ask(client);
  ASSERT_TRUE(client.Receive());
  const std::string peer = "peer=10.77.0.1:" + std::to_string(client.Port());
  EXPECT_EQ(TraceLines({"event=datagram dir=in service=scan", peer, " to=239.255.0.3:38897 ttl=10 size=9",
                        "hex=000000000001020304 type=0 reserved=0 timestamp=16909060"})
                .size(),
            1u);
  EXPECT_EQ(TraceLines({"dir=out service=scan device=1.2.3.4.5.6 local=10.77.0.2", peer, "type=1"}).size(),
            1u);
}

TEST_F(Discovery, OptionsFillTheDocument) {
  StartDevice({"--device", "1.2.3.4.5.6", "--zel-version", "9.1", "--rte-version", "9.2", "--serial-no",
               "S{n}", "--vorlin-version", "9.3", "--host-name", "press", "--sn", "X", "--frame",
               "10.0.0.9=aa", "--frame", "self=bb"});
  const auto answer = AskOnce();
  ASSERT_TRUE(answer);
  const json expected = {{"device",
                          {{"zelDeviceId", "1.2.3.4.5.6"},
                           {"zelVersion", "9.1"},
                           {"rteVersion", "9.2"},
                           {"serialNo", "S1"},
                           {"vorlinVersion", "9.3"},
                           {"hostName", "press"},
                           {"sn", "X"}}},
                         {"frames",
                          {{{"frameIp", "10.0.0.9"}, {"frameMacAddr", "aa"}},
                           {{"frameIp", "10.77.0.2"}, {"frameMacAddr", "bb"}}}}};
  EXPECT_EQ(Document(*answer), expected);
}

TEST_F(Discovery, FleetAnswersFromEveryAddress) {
  host_->Command("ip route add local 10.77.1.0/24 dev zsb");
  StartDevice({"--devices", "200", "--base", "10.77.1.1"});
  UdpClient client("10.77.0.1");
  Ask(client);
  std::set<std::string> seen;
  while (seen.size() < 200) {
    const auto answer = client.Receive();
    ASSERT_TRUE(answer) << seen.size();
    EXPECT_EQ(Document(*answer)["device"]["zelDeviceId"], answer->from + ".0.1");
    EXPECT_EQ(Document(*answer)["frames"][0]["frameIp"], answer->from);
    seen.insert(answer->from);
  }
  EXPECT_TRUE(seen.contains("10.77.1.1"));
  EXPECT_TRUE(seen.contains("10.77.1.200"));
}

TEST_F(Discovery, SpreadAnswersTakeTheirTime) {
  host_->Command("ip route add local 10.77.1.0/24 dev zsb");
  StartDevice({"--devices", "50", "--base", "10.77.1.1", "--answer-spread", "200"});
  UdpClient client("10.77.0.1");
  Ask(client);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(client.Receive());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
}

TEST_F(Discovery, FaultsBendTheAnswer) {
  StartDevice({"--device",          "1.2.3.4.5.6",  "--scan-fault", "short@1",      "--scan-fault",
               "header@2",          "--scan-fault", "type@3",       "--fault",      "scan-reserved@4",
               "--scan-fault",      "not-json@5",   "--scan-fault", "oversize@6",   "--scan-fault",
               "member:hostName@7", "--scan-fault", "no-mac@8",     "--scan-fault", "10.77.0.9=silent"});
  UdpClient client("10.77.0.1");
  std::vector<Bytes> answers;
  for (int i = 0; i < 8; ++i) {
    Ask(client);
    const auto answer = client.Receive();
    ASSERT_TRUE(answer) << i;
    answers.push_back(answer->bytes);
  }
  EXPECT_EQ(answers[0].size(), 8u);
  EXPECT_EQ(answers[1].size(), 9u);
  EXPECT_EQ(answers[2][0], 3);
  EXPECT_EQ(answers[3][4], 1);
  EXPECT_EQ(answers[4][9], '{');
  EXPECT_TRUE(json::parse(answers[4].begin() + 9, answers[4].end(), nullptr, false).is_discarded());
  EXPECT_EQ(answers[5].size(), 3000u);
  EXPECT_EQ(json::parse(answers[6].begin() + 9, answers[6].end())["device"]["hostName"], 17);
  EXPECT_FALSE(json::parse(answers[7].begin() + 9, answers[7].end())["frames"][0].contains("frameMacAddr"));
}

TEST_F(Discovery, ClientOnTheSameHostStillGetsItsAnswers) {
  StartDevice({"--device", "1.2.3.4.5.6"});
  host_->Do([] {
    UdpClient client("10.77.0.2");
    client.MulticastVia("10.77.0.2", 1);
    client.SendTo(kMulticastRequest, kGroup, kGroupPort);
    EXPECT_TRUE(client.Receive());
  });
}

}  // namespace
}  // namespace zelsim
