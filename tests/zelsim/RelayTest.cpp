#include "Relay.h"

#include <gtest/gtest.h>

#include <chrono>

#include "Support.h"

namespace zelsim {
namespace {

using test::BuildRequest;
using test::End;
using test::FromText;
using test::RawClient;
using test::RunningSimulator;

constexpr size_t kAnswerSize = 25;  // to the requests of these tests

Bytes Ask(uint32_t invokeId = 1) { return BuildRequest({.invokeId = invokeId, .payload = FromText("abcd")}); }

double Ms(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since).count();
}

// A server and a relay in front of it.
class RelayTest : public testing::Test {
 protected:
  void Start(const std::string& conduct = "", const std::string& serverFault = "") {
    std::vector<std::string> arguments{"--listen", "0.0.0.0:0"};
    if (!serverFault.empty()) arguments.insert(arguments.end(), {"--fault", serverFault});
    server_ = std::make_unique<RunningSimulator>(std::move(arguments));
    StartRelay("127.0.0.1:0=127.0.0.1:" + std::to_string(server_->Port()), conduct);
  }
  void StartRelay(const std::string& ways, const std::string& conduct) {
    relay_ = std::make_unique<RunningSimulator>(std::vector<std::string>{
        "--relay", ways + (conduct.empty() ? "" : "," + conduct), "--trace", directory_.Path() + "/trace"});
  }
  std::string Trace() const { return test::ReadTextFile(directory_.Path() + "/trace"); }

  test::TemporaryDirectory directory_;
  std::unique_ptr<RunningSimulator> server_;
  std::unique_ptr<RunningSimulator> relay_;
};

TEST_F(RelayTest, PassesRequestsAndAnswers) {
  Start();
  RawClient client(relay_->Port());
  client.Send(Ask(5));
  const auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->InvokeId(), 5U);
  EXPECT_EQ(answer->Payload(), "abcd");
}

TEST_F(RelayTest, PassesManyBytesWhole) {
  Start();
  RawClient client(relay_->Port());
  Bytes payload(3'000'000);
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 7 + i / 251);
  client.Send(BuildRequest({.payload = payload}));
  const auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_TRUE(FromText(answer->Payload()) == payload);
}

TEST_F(RelayTest, AMemberOfARangeIsPassedToTheMemberWithTheSameBits) {
  server_ = std::make_unique<RunningSimulator>(
      std::vector<std::string>{"--listen", "127.67.3.4:0", "--fault", "greet:aa"});
  StartRelay("127.66.0.0/16:0=127.67.0.0/16:" + std::to_string(server_->Port()), "");
  RawClient meant(relay_->Port(), "127.66.3.4");
  EXPECT_EQ(meant.Read(1), (Bytes{0xaa}));
  RawClient other(relay_->Port(), "127.66.3.5");
  EXPECT_FALSE(other.Read(1));
  EXPECT_EQ(other.State(), End::kReset);
}

TEST_F(RelayTest, AnAddressOutsideTheRangeIsNobodys) {
  Start();
  StartRelay("127.66.0.0/16:0=127.0.0.1:" + std::to_string(server_->Port()), "");
  RawClient client(relay_->Port(), "127.68.0.1");
  EXPECT_FALSE(client.Read(1));
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST_F(RelayTest, DelaysBothDirections) {
  Start("delay:60ms");
  RawClient client(relay_->Port());
  const auto start = std::chrono::steady_clock::now();
  client.Send(Ask());
  EXPECT_TRUE(client.ReadFrame());
  EXPECT_GE(Ms(start), 120);
}

TEST_F(RelayTest, JitterKeepsTheOrder) {
  Start("delay:1ms:20ms");
  RawClient client(relay_->Port());
  for (uint32_t id = 1; id <= 30; ++id) {
    client.Send(Ask(id));
    if (id % 3 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));  // reads of their own
  }
  for (uint32_t id = 1; id <= 30; ++id) {
    const auto answer = client.ReadFrame();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->InvokeId(), id);
  }
}

TEST_F(RelayTest, EveryByteTravelsAsASegmentOfItsOwn) {
  Start("cut:1");
  RawClient client(relay_->Port());
  client.Send(Ask());
  EXPECT_TRUE(client.Read(kAnswerSize));
  EXPECT_EQ(client.Segments(), kAnswerSize);
}

TEST_F(RelayTest, PiecesEndAfterEveryNthByteOfTheStream) {
  Start("cut:10");
  RawClient client(relay_->Port());
  client.Send(test::Join({Ask(1), Ask(2)}));
  EXPECT_TRUE(client.Read(2 * kAnswerSize));
  // The server may have sent its second answer late, which then ends a piece of its own.
  EXPECT_GE(client.Segments(), 5U);
  EXPECT_LE(client.Segments(), 6U);
}

TEST_F(RelayTest, PiecesKeepTheirGap) {
  Start("cut:1:4ms");
  RawClient client(relay_->Port());
  client.Send(Ask());
  EXPECT_TRUE(client.Read(1));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(client.Read(kAnswerSize - 1));
  EXPECT_GE(Ms(start), (kAnswerSize - 2) * 4.0);
}

TEST_F(RelayTest, RequestsAreNotCut) {
  Start("cut:1:1s");
  RawClient client(relay_->Port());
  const auto start = std::chrono::steady_clock::now();
  client.Send(Ask());
  EXPECT_TRUE(client.Read(1));
  EXPECT_LT(Ms(start), 1000);
}

TEST_F(RelayTest, GoesSilentAtTheByte) {
  Start("silence:3:500ms");
  RawClient client(relay_->Port());
  client.Send(Ask());
  EXPECT_TRUE(client.Read(3));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(client.StaysSilent(300));
  EXPECT_TRUE(client.Read(kAnswerSize - 3));
  EXPECT_GE(Ms(start), 450);
}

TEST_F(RelayTest, SilenceHoldsRequestsBackToo) {
  Start("silence:0:500ms", "");
  RawClient client(relay_->Port());
  const auto start = std::chrono::steady_clock::now();
  client.Send(Ask());
  EXPECT_TRUE(client.ReadFrame());
  EXPECT_GE(Ms(start), 490);
}

TEST_F(RelayTest, DropsBothSidesAtTheByte) {
  Start("drop:3");
  RawClient client(relay_->Port());
  client.Send(Ask());
  EXPECT_EQ(client.ReadAll().size(), 3U);
  EXPECT_EQ(client.State(), End::kReset);
}

TEST_F(RelayTest, TheServersEndArrivesBehindItsBytes) {
  Start("delay:20ms", "close:1");
  RawClient client(relay_->Port());
  client.Send(Ask());
  EXPECT_EQ(client.ReadAll().size(), kAnswerSize);
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST_F(RelayTest, TheClientsEndLetsTheAnswersThrough) {
  Start("delay:20ms");
  RawClient client(relay_->Port());
  client.Send(Ask());
  client.HalfClose();
  EXPECT_EQ(client.ReadAll().size(), kAnswerSize);
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST_F(RelayTest, AResetIsPassedOn) {
  Start("", "reset:1");
  RawClient client(relay_->Port());
  client.Send(Ask());
  (void)client.ReadAll();
  EXPECT_EQ(client.State(), End::kReset);
}

TEST_F(RelayTest, AServerThatIsNotThereIsAReset) {
  Start();
  server_->Stop();
  RawClient client(relay_->Port());
  EXPECT_FALSE(client.Read(1));
  EXPECT_EQ(client.State(), End::kReset);
}

TEST_F(RelayTest, TraceTellsWhatPassed) {
  Start("drop:3");
  RawClient client(relay_->Port());
  client.Send(Ask());
  (void)client.ReadAll();
  EXPECT_TRUE(test::Eventually([&] { return Trace().find("event=relay-end") != std::string::npos; }));
  EXPECT_NE(Trace().find("reason=drop toServer=33 toClient=3 "), std::string::npos) << Trace();
}

TEST_F(RelayTest, TheEndOfTheRelayEndsItsConnections) {
  Start();
  RawClient client(relay_->Port());
  client.Send(Ask());
  EXPECT_TRUE(client.ReadFrame());
  relay_->Stop();
  EXPECT_FALSE(client.Read(1));
}

}  // namespace
}  // namespace zelsim
