// Requests and publications from NATS to devices. The simulator answers port 601 with the error 16388, 602
// not at all, 605 after 700 ms, and echoes the others.
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "CoreLab.h"

namespace gatecore {
namespace {

const std::string kServed = "127.0.0.2";

// How many requests on the port the device has got, by its own trace.
int RequestsSeen(int port) {
  const char* const path = std::getenv("ZEL_TRACE_1");
  std::ifstream trace(path != nullptr ? path : "/nowhere");
  int count = 0;
  for (std::string line; std::getline(trace, line);) {
    const bool isRequest = line.find(" dir=in ") != std::string::npos;
    if (isRequest && line.find(" port=" + std::to_string(port) + " ") != std::string::npos) ++count;
  }
  return count;
}

class AskTest : public SiteLab {
 protected:
  AskTest() {
    SetProfile("all", R"({"topics": ["echo/topic"]})");
    AddDevice(kServed);
    gate_ = StartGate("gate");
    EXPECT_TRUE(Until([&] { return IsUp(kServed); })) << gate_->Errors();
  }

  std::unique_ptr<Child> gate_;
};

TEST_F(AskTest, AnAnswerIsTheDevices) {
  const Reply reply = Ask(kServed, 600, "what");
  EXPECT_EQ(reply.verdict, "answered") << reply.reason;
  EXPECT_EQ(reply.data, "what");
  EXPECT_EQ(reply.error, "");
}

TEST_F(AskTest, AnErrorIsTheDevicesOwnWord) {
  const Reply reply = Ask(kServed, 601, "what");
  EXPECT_EQ(reply.verdict, "device-error");
  EXPECT_EQ(reply.error, "16388");
}

TEST_F(AskTest, SilenceMayBeSent) {
  const Reply reply = Ask(kServed, 602, "what", "300");
  EXPECT_EQ(reply.verdict, "may-be-sent");
  EXPECT_NE(reply.reason, "");
}

TEST_F(AskTest, NobodyIsNoResponders) { EXPECT_EQ(Ask("127.0.0.77", 600, "x").status, NATS_NO_RESPONDERS); }

TEST_F(AskTest, ALinkThatIsDownIsNotSent) {
  AddDevice("127.0.0.99");
  ASSERT_TRUE(gate_->Says("no link to 127.0.0.99.0.1"));
  Reply reply;
  ASSERT_TRUE(Until([&] { return (reply = Ask("127.0.0.99", 600, "x")).status == NATS_OK; }));
  EXPECT_EQ(reply.verdict, "not-sent");
  EXPECT_EQ(reply.reason, "no link to the device: connect 127.0.0.99:9999: refused");
}

TEST_F(AskTest, ATimeoutThatIsNoneIsNotSent) {
  for (const char* wrong : {"0", "-1", "1s", "600001"}) {
    EXPECT_EQ(Ask(kServed, 600, "x", wrong).verdict, "not-sent") << wrong;
  }
}

TEST_F(AskTest, ASubjectThatIsNoneIsNotSent) {
  zelgate::NatsMessage message("zel.core.ask." + TokenOf(kServed) + ".x.1.2", "", "");
  zelgate::NatsMessage answer;
  ASSERT_TRUE(Nats().Request(message, std::chrono::seconds(20), answer).IsOk());
  EXPECT_EQ(answer.Header("Zel-Verdict"), "not-sent");
}

TEST_F(AskTest, ManyRequestsAreOneDevicesAtATime) {
  std::vector<std::thread> askers;
  std::atomic<int> answered = 0;
  for (int i = 0; i < 8; ++i) {
    askers.emplace_back([&, i] {
      for (int k = 0; k < 25; ++k) {
        const std::string text = std::to_string(i * 100 + k);
        const Reply reply = Ask(kServed, 600, text);
        if (reply.verdict == "answered" && reply.data == text) ++answered;
      }
    });
  }
  for (std::thread& asker : askers) asker.join();
  EXPECT_EQ(answered, 200);
}

TEST_F(AskTest, APublicationIsWritten) {
  const Reply reply = Publish(kServed, "echo/topic", "hello");
  EXPECT_EQ(reply.verdict, "written") << reply.reason;
  const std::string subject = EventSubject(kServed, "t.echo.topic");
  ASSERT_TRUE(Until([&] { return CountEvents(subject) == 1; }))
      << "the simulator hands it to its subscribers";
  const StreamEvent event = Events(subject).front();
  EXPECT_EQ(event.data, "hello");
  EXPECT_EQ(event.group, "7");
  EXPECT_EQ(event.offset, "8");
}

TEST_F(AskTest, ADeviceThatNeverReadsHoldsUpNoOther) {
  // Answers that are waited for long take no thread.
  std::vector<std::thread> silent;
  for (int i = 0; i < 20; ++i) silent.emplace_back([this] { (void)Ask(kServed, 602, "x", "3000"); });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Ask(kServed, 600, "quick").verdict, "answered");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
  for (std::thread& asker : silent) asker.join();
}

TEST_F(AskTest, WhatComesWhileTheProcessStandsStillIsTooOld) {
  gate_->Stop();
  Reply reply;
  std::thread asker([&] { reply = Ask(kServed, 606, "late", "500"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // less than the lease
  gate_->Signal(SIGCONT);
  asker.join();
  EXPECT_EQ(reply.verdict, "not-sent");
  EXPECT_EQ(reply.reason, "it is older than its Zel-Timeout; ask again");
  EXPECT_EQ(RequestsSeen(606), 0);
}

TEST_F(AskTest, AProcessThatStoodStillLongerThanItsLeaseSendsNothing) {
  gate_->Stop();
  Reply reply;
  std::thread asker([&] { reply = Ask(kServed, 607, "late", "60000", std::chrono::seconds(8)); });
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));  // more than the holder's 3 s
  gate_->Signal(SIGCONT);
  asker.join();
  // The request may also have been dropped with the subscription: then nobody answers.
  EXPECT_TRUE(reply.status != NATS_OK || reply.verdict == "not-sent") << reply.verdict << reply.reason;
  EXPECT_TRUE(gate_->Says("lost the lease of"));
  ASSERT_TRUE(Until([&] { return Ask(kServed, 608, "again").verdict == "answered"; })) << gate_->Errors();
  EXPECT_EQ(RequestsSeen(607), 0);
  EXPECT_EQ(RequestsSeen(608), 1);
}

}  // namespace
}  // namespace gatecore
