#include "Server.h"

#include <gtest/gtest.h>

#include "Support.h"

namespace zelsim {
namespace {

using test::BuildRequest;
using test::BuildTopicRequest;
using test::End;
using test::FromText;
using test::RawClient;
using test::RunningSimulator;

const std::vector<std::string> kPlain{"--listen", "127.0.0.1:0"};

std::vector<std::string> With(std::initializer_list<std::string> more) {
  std::vector<std::string> arguments = kPlain;
  arguments.insert(arguments.end(), more);
  return arguments;
}

// A request sent after topic requests is answered after they have been handled.
void Settle(RawClient& client) {
  client.Send(BuildRequest({.port = 600, .invokeId = 4711}));
  ASSERT_TRUE(client.ReadFrame());
}

TEST(Server, EchoesThePayloadBehindTheAddressBlock) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  client.Send(
      BuildRequest({.port = 700, .invokeId = 5, .payload = FromText("hello"), .idGroup = 1, .cmd = 2}));
  const auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->version, 1);
  EXPECT_EQ(answer->port, 700);
  EXPECT_EQ(answer->length, 18u);
  EXPECT_EQ(answer->Error(), 0u);
  EXPECT_EQ(answer->InvokeId(), 5u);
  EXPECT_EQ(answer->Cmd(), 2);
  EXPECT_EQ(answer->Payload(), "hello");
}

TEST(Server, EchoesNothingForAnEmptyPayload) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  client.Send(BuildRequest({.invokeId = 1}));
  const auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->length, 13u);
}

TEST(Server, AnswersRequestsThatArriveTogetherInOrder) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  Bytes all;
  for (uint32_t i = 1; i <= 1000; ++i) Append(all, BuildRequest({.invokeId = i, .payload = Bytes(i % 97)}));
  client.Send(all);
  for (uint32_t i = 1; i <= 1000; ++i) {
    const auto answer = client.ReadFrame();
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->InvokeId(), i);
    ASSERT_EQ(answer->Payload().size(), i % 97);
  }
}

TEST(Server, EchoesTheLargestFrame) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  client.Send(BuildRequest({.payload = Bytes(kMaxBody - 21, 7)}));
  const auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Payload().size(), kMaxBody - 21);
}

TEST(Server, AnswersAsItsRulesSay) {
  RunningSimulator simulator(With({"--answer", "601=size:3", "--answer", "602=error:4106", "--answer",
                                   "603=silent", "--answer", "604=delay:60"}));
  RawClient client(simulator.Port());
  for (const uint16_t port : std::initializer_list<uint16_t>{604, 603, 602, 601})
    client.Send(BuildRequest({.port = port, .invokeId = port}));
  auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->port, 602);
  EXPECT_EQ(answer->Error(), 4106u);
  EXPECT_EQ(answer->Payload(), "");
  answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->port, 601);
  EXPECT_EQ(FromText(answer->Payload()), (Bytes{0, 1, 2}));
  answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->port, 604);
}

TEST(Server, PublicationReachesEverySubscriberWithoutAnInvokeId) {
  RunningSimulator simulator(kPlain);
  RawClient first(simulator.Port());
  RawClient second(simulator.Port());
  RawClient other(simulator.Port());
  first.Send(BuildTopicRequest("sub", "a"));
  second.Send(BuildTopicRequest("sub", "a"));
  other.Send(BuildTopicRequest("sub", "b"));
  for (RawClient* client : {&first, &second, &other}) Settle(*client);
  const std::string_view data("x\0y", 3);
  other.Send(BuildTopicRequest("pub", "a", data, 1, 2));
  for (RawClient* client : {&first, &second}) {
    const auto message = client->ReadFrame();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->port, 103);
    EXPECT_EQ(message->InvokeId(), 0u);
    EXPECT_EQ(FromText(message->Payload()), test::BuildRecord("pub", "a", data, 1, 2));
  }
  Settle(other);
}

TEST(Server, SubscribingTwiceDeliversOnce) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  client.Send(BuildTopicRequest("sub", "a"));
  client.Send(BuildTopicRequest("sub", "a"));
  client.Send(BuildTopicRequest("pub", "a", "1"));
  client.Send(BuildRequest({.port = 600}));
  EXPECT_EQ(client.ReadFrame()->port, 103);
  EXPECT_EQ(client.ReadFrame()->port, 600);
}

TEST(Server, UnsubscribedTopicIsNotDelivered) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  client.Send(BuildTopicRequest("sub", "a"));
  client.Send(BuildTopicRequest("unsub", "a"));
  client.Send(BuildTopicRequest("pub", "a", "1"));
  client.Send(BuildRequest({.port = 600}));
  EXPECT_EQ(client.ReadFrame()->port, 600);
}

TEST(Server, SubscriberThatLeftIsForgotten) {
  RunningSimulator simulator(kPlain);
  RawClient publisher(simulator.Port());
  for (int i = 0; i < 20; ++i) {
    RawClient gone(simulator.Port());
    gone.Send(BuildTopicRequest("sub", "a"));
    publisher.Send(BuildTopicRequest("pub", "a", "1"));
  }
  Settle(publisher);
}

TEST(Server, TicksCountPerConnection) {
  RunningSimulator simulator(With({"--tick", "700=10"}));
  for (int i = 0; i < 2; ++i) {
    RawClient client(simulator.Port());
    for (const char* text : {"1", "2", "3"}) {
      const auto tick = client.ReadFrame();
      ASSERT_TRUE(tick);
      EXPECT_EQ(tick->port, 700);
      EXPECT_EQ(tick->InvokeId(), 0u);
      EXPECT_EQ(tick->Payload(), text);
    }
  }
}

TEST(Server, TickOfVersionZeroIsBareText) {
  RunningSimulator simulator(With({"--tick", "700=10:0"}));
  RawClient client(simulator.Port());
  const auto tick = client.ReadFrame();
  ASSERT_TRUE(tick);
  EXPECT_EQ(tick->version, 0);
  EXPECT_EQ(test::ToText(tick->body), "1");
}

TEST(Server, BurstArrivesWholeAndRequestsAreStillAnswered) {
  RunningSimulator simulator(With({"--burst", "load=20000:64"}));
  RawClient client(simulator.Port());
  client.Send(BuildTopicRequest("sub", "load"));
  client.Send(BuildRequest({.port = 600, .invokeId = 9}));
  uint64_t messages = 0;
  bool answered = false;
  while (messages < 20000 || !answered) {
    const auto frame = client.ReadFrame();
    ASSERT_TRUE(frame);
    if (frame->port == 600) {
      answered = true;
      continue;
    }
    ASSERT_EQ(GetLe<uint64_t>(&frame->body[13 + 24 + 4 + 5]), messages++);
  }
}

TEST(Server, EndlessBurstStopsWithTheSubscription) {
  RunningSimulator simulator(With({"--burst", "load=0:64"}));
  RawClient client(simulator.Port());
  client.Send(BuildTopicRequest("sub", "load"));
  ASSERT_EQ(client.ReadFrame()->port, 103);
  client.Send(BuildTopicRequest("unsub", "load"));
  client.Send(BuildRequest({.port = 600}));
  std::optional<test::Frame> frame;
  do {
    frame = client.ReadFrame();
    ASSERT_TRUE(frame);
  } while (frame->port == 103);
  EXPECT_EQ(frame->port, 600);
  EXPECT_TRUE(client.StaysSilent(50));
}

TEST(Server, BadFramesCloseTheirConnectionOnly) {
  RunningSimulator simulator(kPlain);
  RawClient bystander(simulator.Port());
  Bytes record = test::BuildRecord("sub", "a");
  PutLe(&record[8], UINT64_MAX);
  const std::vector<Bytes> bad{
      {0, 1, 1, 0, 0, 0, 0, 0},                            // length zero
      {0, 1, 1, 0, 0xFF, 0xFF, 0xFF, 0xFF},                // length of 4 GiB
      {0, 1, 1, 0, 2, 0, 0, 0, 1, 2},                      // no room for the inner header
      test::Join({{0, 0, 1, 0, 30, 0, 0, 0}, Bytes(30)}),  // another version
      BuildRequest({.port = 103, .payload = record}),
      BuildTopicRequest("shout", "a"),
  };
  for (const Bytes& bytes : bad) {
    RawClient client(simulator.Port());
    client.Send(bytes);
    EXPECT_TRUE(client.ReadAll().empty());
    EXPECT_EQ(client.State(), End::kClosed);
  }
  Settle(bystander);
}

TEST(Server, AnswersBeforeABadFrameStillArrive) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  const Bytes large = BuildRequest({.invokeId = 1, .payload = Bytes(8 * 1024 * 1024)});
  client.Send(large);
  client.Send(test::Join({Bytes(8), Bytes(100000, 1)}));
  const auto answer = client.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Payload().size(), 8u * 1024 * 1024);
  EXPECT_TRUE(client.ReadAll().empty());
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST(Server, ClientThatHalfClosesGetsItsAnswers) {
  RunningSimulator simulator(kPlain);
  RawClient client(simulator.Port());
  client.Send(BuildRequest({.payload = Bytes(1024 * 1024)}));
  client.HalfClose();
  ASSERT_TRUE(client.ReadFrame());
  EXPECT_TRUE(client.ReadAll().empty());
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST(Server, StopSendsWhatIsQueued) {
  RunningSimulator simulator(With({"--answer", "600=size:3000000"}));
  RawClient client(simulator.Port());
  client.Send(BuildRequest({.port = 600}));
  ASSERT_TRUE(client.Read(1));
  std::thread stopping([&] { simulator.Stop(); });
  const Bytes rest = client.ReadAll();
  stopping.join();
  EXPECT_EQ(rest.size() + 1, 3000000u + 21);
  EXPECT_EQ(client.State(), End::kClosed);
}

TEST(Server, ClientThatReadsNothingDoesNotGrowTheServer) {
  RunningSimulator simulator(With({"--answer", "600=size:1000000"}));
  RawClient greedy(simulator.Port());
  Bytes all;
  for (uint32_t i = 0; i < 4000; ++i) Append(all, BuildRequest({.port = 600, .invokeId = i}));
  greedy.Send(all);
  RawClient other(simulator.Port());
  Settle(other);
  for (int i = 0; i < 40; ++i) ASSERT_TRUE(greedy.ReadFrame());
}

TEST(Server, EveryListenerServes) {
  RunningSimulator simulator({"--listen", "127.0.0.1:0", "--listen", "127.0.0.2:0"});
  RawClient first(simulator.Port(0));
  RawClient second(simulator.Port(1), "127.0.0.2");
  Settle(first);
  Settle(second);
}

TEST(Server, SpinningServerAnswersToo) {
  RunningSimulator simulator(With({"--spin", "200"}));
  RawClient client(simulator.Port());
  for (int i = 0; i < 100; ++i) Settle(client);
}

TEST(Server, TakenPortIsReported) {
  RunningSimulator first(kPlain);
  EXPECT_THROW(RunningSimulator second({"--listen", "127.0.0.1:" + std::to_string(first.Port())}),
               std::runtime_error);
}

}  // namespace
}  // namespace zelsim
