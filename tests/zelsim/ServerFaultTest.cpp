#include <gtest/gtest.h>

#include "Support.h"

namespace zelsim {
namespace {

using test::BuildRequest;
using test::End;
using test::FromText;
using test::RawClient;
using test::RunningSimulator;

std::vector<std::string> Faulty(std::initializer_list<std::string> faults) {
  std::vector<std::string> arguments{"--listen", "127.0.0.1:0"};
  for (const std::string& fault : faults) {
    arguments.push_back("--fault");
    arguments.push_back(fault);
  }
  return arguments;
}

Bytes Request(uint32_t invokeId) { return BuildRequest({.invokeId = invokeId, .payload = FromText("abcd")}); }

TEST(ServerFault, SplitAnswerArrivesWhole) {
  RunningSimulator simulator(Faulty({"split:1:50"}));
  RawClient client(simulator.Port());
  client.Send(test::Join({Request(1), Request(2)}));
  for (const uint32_t id : {1u, 2u}) {
    const auto answer = client.ReadFrame();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->InvokeId(), id);
    EXPECT_EQ(answer->Payload(), "abcd");
  }
}

TEST(ServerFault, SplitAlsoAppliesToTopicMessages) {
  RunningSimulator simulator(Faulty({"split:3:50"}));
  RawClient client(simulator.Port());
  client.Send(test::BuildTopicRequest("sub", "a"));
  client.Send(test::BuildTopicRequest("pub", "a", "data"));
  const auto message = client.ReadFrame();
  ASSERT_TRUE(message);
  EXPECT_EQ(FromText(message->Payload()), test::BuildRecord("pub", "a", "data"));
}

TEST(ServerFault, ShortBodyLeavesTheStreamShort) {
  RunningSimulator simulator(Faulty({"short:2@1"}));
  RawClient client(simulator.Port());
  client.Send(test::Join({Request(1), Request(2)}));
  client.HalfClose();
  EXPECT_EQ(client.ReadAll().size(), 25u + 25 - 2);
}

TEST(ServerFault, WrongIdentifiersComeFirst) {
  RunningSimulator simulator(Faulty({"invoke:3"}));
  RawClient client(simulator.Port());
  client.Send(Request(10));
  for (const uint32_t id : {11u, 12u, 13u, 10u}) EXPECT_EQ(client.ReadFrame()->InvokeId(), id);
}

TEST(ServerFault, ClosesAfterTheAnswerToTheLastFrame) {
  RunningSimulator simulator(Faulty({"close:2"}));
  RawClient client(simulator.Port());
  client.Send(test::Join({Request(1), Request(2), Request(3)}));
  EXPECT_EQ(client.ReadAll().size(), 50u);
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST(ServerFault, ClosesAtOnceForZeroFrames) {
  RunningSimulator simulator(Faulty({"close:0"}));
  RawClient client(simulator.Port());
  EXPECT_TRUE(client.ReadAll().empty());
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST(ServerFault, Resets) {
  RunningSimulator simulator(Faulty({"reset:1"}));
  RawClient client(simulator.Port());
  client.Send(Request(1));
  client.ReadAll();
  EXPECT_EQ(client.State(), End::kReset);
}

TEST(ServerFault, StalledConnectionStaysOpenAndSilent) {
  RunningSimulator simulator(Faulty({"stall:1"}));
  RawClient client(simulator.Port());
  client.Send(Request(1));
  ASSERT_TRUE(client.ReadFrame());
  client.Send(Request(2));
  EXPECT_TRUE(client.StaysSilent(100));
}

TEST(ServerFault, GreetsWithTheGivenBytes) {
  RunningSimulator simulator(Faulty({"greet:0001ff"}));
  RawClient client(simulator.Port());
  EXPECT_EQ(client.Read(3), (Bytes{0, 1, 255}));
  client.Send(Request(1));
  EXPECT_EQ(client.ReadFrame()->Payload(), "abcd");
}

TEST(ServerFault, CutAnswerEndsTheConnection) {
  RunningSimulator simulator(Faulty({"cut:5"}));
  RawClient client(simulator.Port());
  client.Send(Request(1));
  EXPECT_EQ(client.ReadAll().size(), 5u);
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST(ServerFault, PausesInsideAnAnswer) {
  RunningSimulator simulator(Faulty({"pause:6:120"}));
  RawClient client(simulator.Port());
  client.Send(Request(1));
  ASSERT_TRUE(client.Read(6));
  EXPECT_TRUE(client.StaysSilent(40));
  EXPECT_TRUE(client.Read(19));
}

TEST(ServerFault, BelongsToOneListener) {
  RunningSimulator simulator(
      {"--listen", "127.0.0.2:0", "--listen", "127.0.0.3:0", "--fault", "127.0.0.3:0=cut:3"});
  RawClient well(simulator.Port(0), "127.0.0.2");
  RawClient ill(simulator.Port(1), "127.0.0.3");
  well.Send(Request(1));
  ill.Send(Request(1));
  EXPECT_EQ(well.ReadFrame()->Payload(), "abcd");
  EXPECT_EQ(ill.ReadAll().size(), 3u);
}

TEST(ServerFault, BelongsToOneConnection) {
  RunningSimulator simulator(Faulty({"cut:3#1"}));
  RawClient first(simulator.Port());
  first.Send(Request(1));
  EXPECT_EQ(first.ReadAll().size(), 3u);
  RawClient second(simulator.Port());
  second.Send(Request(1));
  EXPECT_EQ(second.ReadFrame()->Payload(), "abcd");
}

}  // namespace
}  // namespace zelsim
