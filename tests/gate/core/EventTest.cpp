// What devices send, in the site's stream. The simulator's bursts on "few" are 100 messages, on "many" 2000;
// on "large" one of 2 MiB; port 700 ticks.
#include <csignal>
#include <cstring>
#include <set>
#include <thread>

#include "CoreLab.h"

namespace gatecore {
namespace {

const std::string kDevice = "127.0.0.2";

uint64_t CounterOf(const std::string& data) {
  uint64_t number = 0;
  std::memcpy(&number, data.data(), std::min(sizeof number, data.size()));
  return number;
}

class EventTest : public SiteLab {
 protected:
  void ServeTopics(const std::string& topics, const std::string& ports = "[]") {
    SetProfile("all", R"({"topics": )" + topics + R"(, "ports": )" + ports + "}");
    AddDevice(kDevice);
    gate_ = StartGate("gate");
  }
  // The numbers of the burst's messages, in the order of the stream.
  std::vector<uint64_t> Numbers(const std::string& topic) {
    std::vector<uint64_t> numbers;
    for (const StreamEvent& event : Events(EventSubject(kDevice, "t." + topic)))
      numbers.push_back(CounterOf(event.data));
    return numbers;
  }
  bool HasAll(const std::string& topic, uint64_t count) {
    return Until([&] { return CountEvents(EventSubject(kDevice, "t." + topic)) >= count; });
  }
  std::string LinkTexts() {
    std::string texts;
    for (const StreamEvent& event : Events(EventSubject(kDevice, "link"))) texts += event.data + "\n";
    return texts;
  }

  std::unique_ptr<Child> gate_;
};

std::vector<uint64_t> Counted(uint64_t count) {
  std::vector<uint64_t> numbers;
  for (uint64_t i = 0; i < count; ++i) numbers.push_back(i);
  return numbers;
}

TEST_F(EventTest, TopicsAreInTheStreamInOrderWithTheirHeaders) {
  ServeTopics(R"(["few"])");
  ASSERT_TRUE(HasAll("few", 100)) << gate_->Errors();
  EXPECT_EQ(Numbers("few"), Counted(100));
  const StreamEvent first = Events(EventSubject(kDevice, "t.few")).front();
  EXPECT_EQ(first.data.size(), 64U);
  EXPECT_EQ(first.group, "0");
  EXPECT_EQ(first.offset, "0");
  EXPECT_TRUE(first.time.starts_with("20") && first.time.ends_with("Z")) << first.time;
  EXPECT_EQ(first.id, first.id.substr(0, first.id.find('.')) + "." + TokenOf(kDevice) + "." + first.sequence);
}

TEST_F(EventTest, PortsAreInTheStream) {
  ServeTopics("[]", "[700]");
  ASSERT_TRUE(Until([&] { return CountEvents(EventSubject(kDevice, "p.700")) >= 3; })) << gate_->Errors();
  EXPECT_EQ(Events(EventSubject(kDevice, "p.700")).front().group, "");
}

TEST_F(EventTest, LinkEventsAreInTheStream) {
  ServeTopics("[]");
  ASSERT_TRUE(Until([&] { return CountEvents(EventSubject(kDevice, "link")) >= 2; })) << gate_->Errors();
  const std::string texts = LinkTexts();
  EXPECT_NE(texts.find(R"({"event":"serving","device":"127.0.0.2.0.1",)"), std::string::npos) << texts;
  EXPECT_NE(texts.find(R"({"event":"up",)"), std::string::npos) << texts;
}

TEST_F(EventTest, ADeviceThatIsNotThereIsSaid) {
  AddDevice("127.0.0.99");
  const auto gate = StartGate("gate");
  EXPECT_TRUE(gate->Says("no link to 127.0.0.99.0.1 (press-99): connect 127.0.0.99:9999: refused; "));
  ASSERT_TRUE(Until([&] { return LinkOf("127.0.0.99").find("refused") != std::string::npos; }))
      << LinkOf("127.0.0.99");
}

TEST_F(EventTest, TheTableSaysThatTheLinkIsUp) {
  ServeTopics("[]");
  EXPECT_TRUE(Until([&] { return IsUp(kDevice); })) << LinkOf(kDevice);
}

TEST_F(EventTest, TwinsAreSaidAndNotServed) {
  SetProfile("all", R"({"topics": ["few"]})");
  AddDevice(kDevice, "127.0.0.3");
  const auto gate = StartGate("gate");
  EXPECT_TRUE(gate->Says("several devices have the identifier 127.0.0.2.0.1: none of them is served"));
  ASSERT_TRUE(Until([&] { return !LinkOf(kDevice).empty(); }));
  EXPECT_NE(LinkOf(kDevice).find("twins"), std::string::npos) << LinkOf(kDevice);
  EXPECT_EQ(CountEvents(EventSubject(kDevice, ">")), 0U);
}

TEST_F(EventTest, AMessageThatIsTooLongIsAGapWithItsSize) {
  ServeTopics(R"(["large"])");
  ASSERT_TRUE(Until([&] { return LinkTexts().find("\"gap\"") != std::string::npos; })) << gate_->Errors();
  const std::string texts = LinkTexts();
  EXPECT_NE(texts.find(R"("route":"t/large","reason":"longer than max_payload of the server","count":1,)"),
            std::string::npos)
      << texts;
  EXPECT_NE(texts.find(R"("bytes":2097152)"), std::string::npos) << texts;
}

TEST_F(EventTest, NothingIsLostWhileTheServerStandsStill) {
  ServeTopics(R"(["many"])");
  ASSERT_TRUE(HasAll("many", 20)) << gate_->Errors();
  Server().Stop();
  std::this_thread::sleep_for(std::chrono::milliseconds(700));  // less than what makes the lease end
  Server().Signal(SIGCONT);
  ASSERT_TRUE(HasAll("many", 2000)) << gate_->Errors();
  EXPECT_EQ(Numbers("many"), Counted(2000));
}

TEST_F(EventTest, ASmallWindowLosesNothing) {
  more_ = "[limits]\nwindow = 1\n";
  ServeTopics(R"(["many"])", "[700]");  // the simulator sends one burst at a time on a connection
  ASSERT_TRUE(HasAll("many", 2000)) << gate_->Errors();
  EXPECT_EQ(Numbers("many"), Counted(2000));
  EXPECT_TRUE(Until([&] { return CountEvents(EventSubject(kDevice, "p.700")) >= 3; })) << gate_->Errors();
}

TEST_F(EventTest, NothingIsLostWhenTheServerIsKilled) {
  ServeTopics(R"(["many"])");
  ASSERT_TRUE(HasAll("many", 20)) << gate_->Errors();
  KillServer();
  StartServer();
  ASSERT_TRUE(HasAll("many", 2000)) << gate_->Errors();
  // The lease may have ended meanwhile: then the device was served anew, and its burst began anew.
  const auto numbers = Numbers("many");
  const std::set<uint64_t> all(numbers.begin(), numbers.end());
  EXPECT_EQ(all.size(), 2000U);
}

TEST_F(EventTest, DroppedMessagesAreAGap) {
  ServeTopics(R"([{"topic": "many", "policy": "latest-only"}])");
  const auto dropped = [&] {
    uint64_t count = 0;
    for (const StreamEvent& event : Events(EventSubject(kDevice, "link"))) {
      const size_t at = event.data.find("\"count\":");
      if (at != std::string::npos) count += std::stoull(event.data.substr(at + 8));
    }
    return count;
  };
  // Every message is in the stream or in a gap.
  EXPECT_TRUE(Until([&] { return CountEvents(EventSubject(kDevice, "t.many")) + dropped() == 2000; }))
      << CountEvents(EventSubject(kDevice, "t.many")) << " and " << dropped();
  EXPECT_EQ(Numbers("many").back(), 1999U);
}

TEST_F(EventTest, AProfileIsAppliedLive) {
  ServeTopics("[]");
  ASSERT_TRUE(Until([&] { return IsUp(kDevice); }));
  SetProfile("more", R"({"devices": {"name": "press-?"}, "topics": ["few"]})");
  ASSERT_TRUE(HasAll("few", 100)) << gate_->Errors();
  const uint64_t ups = CountEvents(EventSubject(kDevice, "link"));
  EXPECT_EQ(ups, 2U) << "the connection is another one";
}

TEST_F(EventTest, AProfileThatIsNoneIsSaidAndTheEarlierOneStays) {
  ServeTopics("[]", "[700]");
  ASSERT_TRUE(Until([&] { return CountEvents(EventSubject(kDevice, "p.700")) >= 1; }));
  SetProfile("all", "{\"topic\": 1}");
  EXPECT_TRUE(gate_->Says("the profile all is not taken, the earlier one stays: \"topic\" is no key"));
  const uint64_t before = CountEvents(EventSubject(kDevice, "p.700"));
  EXPECT_TRUE(Until([&] { return CountEvents(EventSubject(kDevice, "p.700")) > before; }));
}

TEST_F(EventTest, ADeviceThatIsTakenOutIsLetGo) {
  ServeTopics("[]");
  ASSERT_TRUE(Until([&] { return IsUp(kDevice); }));
  RemoveDevice(kDevice);
  EXPECT_TRUE(Until([&] { return LinkTexts().find("\"released\"") != std::string::npos; })) << LinkTexts();
  EXPECT_EQ(Ask(kDevice, 600, "x").status, NATS_NO_RESPONDERS);
}

TEST_F(EventTest, ItWaitsForItsServerAndSaysSo) {
  SetProfile("all", "{}");
  AddDevice(kDevice);
  KillServer();
  const auto gate = StartGate("gate");
  EXPECT_TRUE(gate->Says("no NATS server at nats://127.0.0.1:4222 yet"));
  StartServer();
  EXPECT_TRUE(Until([&] { return IsUp(kDevice); })) << gate->Errors();
}

TEST_F(EventTest, ASignalEndsItInOrder) {
  ServeTopics("[]");
  ASSERT_TRUE(Until([&] { return IsUp(kDevice); }));
  gate_->Signal(SIGTERM);
  EXPECT_EQ(gate_->Wait(), 0) << gate_->Errors();
  EXPECT_NE(LinkTexts().find("\"released\""), std::string::npos) << LinkTexts();
}

}  // namespace
}  // namespace gatecore
