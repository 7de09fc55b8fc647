#include "zelclient/RequestTable.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <thread>
#include <vector>

#include "libzel/libzelx.h"
#include "support/Wire.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

using Entry = RequestTable::Entry;
using Reader = RequestTable::Reader;
using Taken = RequestTable::Taken;
using zeltest::Bytes;
using zeltest::Text;

// A message as the decoder gives it.
struct Frame {
  Frame(uint16_t port, uint32_t invokeId, const Bytes& payload, uint32_t error = 0)
      : bytes(zeltest::Answer(port, invokeId, payload, error)) {}
  FrameView view() const { return *FrameDecoder::Whole(bytes, kMaxReceivedBody); }

  Bytes bytes;
};

class RequestTableTest : public testing::Test {
 protected:
  // A request of a caller, with room for 8 bytes.
  struct Asker {
    std::array<uint8_t, 8> room{};
    PendingRequest request;
  };

  RequestTableTest() { link->setConnected(true); }
  ~RequestTableTest() override {
    for (Asker& asker : askers) table.Leave(asker.request);
  }

  PendingRequest& Enter(uint32_t invokeId, uint16_t port = 600, int64_t timeoutMs = 10000) {
    Asker& asker = askers.emplace_back();
    Prepare(asker.request, port, timeoutMs);
    asker.request.room = asker.room;
    EXPECT_EQ(table.Enter(asker.request, invokeId), Entry::kDone);
    return asker.request;
  }
  uint64_t EnterWithCallback(uint32_t invokeId, int64_t timeoutMs = 10000) {
    auto request = std::make_unique<PendingRequest>();
    Prepare(*request, 600, timeoutMs);
    request->callback = [](uint64_t, const libzelx_Outcome* out, const void* answer, void* user) {
      static_cast<RequestTableTest*>(user)->outcomes.push_back({out->result, answer != nullptr});
    };
    request->user = this;
    const uint64_t ticket = request->ticket = RequestTable::NextTicket();
    EXPECT_EQ(table.Enter(request, invokeId), Entry::kDone);
    (void)table.NoteSent(ticket);
    return ticket;
  }
  Taken Take(const Frame& frame, Reader reader = Reader::kReceiveThread) {
    const Taken taken = table.Take(frame.view(), reader);
    table.WakeAnswered();
    return taken;
  }

  struct Outcome {
    int32_t result;
    bool hasAnswer;
  };

  std::shared_ptr<SocketLink> link = std::make_shared<SocketLink>(platform::kNoSocket);
  RequestTable table;
  std::list<Asker> askers;
  std::vector<Outcome> outcomes;

 private:
  void Prepare(PendingRequest& request, uint16_t port, int64_t timeoutMs) const {
    request.port = port;
    request.end = RequestTable::Clock::now() + std::chrono::milliseconds(timeoutMs);
    request.link = link;
  }
};

TEST_F(RequestTableTest, GivesAnAnswerToItsRequest) {
  PendingRequest& request = Enter(7);
  EXPECT_EQ(Take({600, 7, Text("ab"), 5}), Taken::kLastAnswer);
  table.Await(request);
  EXPECT_EQ(request.result, 0);
  EXPECT_EQ(request.deviceError, 5U);
  EXPECT_EQ(request.answerLength, 2U);
  EXPECT_EQ(askers.back().room[1], 'b');
}

TEST_F(RequestTableTest, WakesManyCallersTogether) {
  constexpr uint32_t kCallers = 200;  // more than are kept for one waking
  std::vector<std::thread> callers;
  for (uint32_t id = 1; id <= kCallers; ++id) {
    callers.emplace_back([this, &request = Enter(id)] { table.Await(request); });
  }
  for (uint32_t id = 1; id <= kCallers; ++id) {
    const Frame frame(600, id, {});
    EXPECT_NE(table.Take(frame.view(), Reader::kReceiveThread), Taken::kNo);
  }
  table.WakeAnswered();
  for (std::thread& caller : callers) caller.join();
  for (const Asker& asker : askers) EXPECT_EQ(asker.request.result, 0);
}

TEST_F(RequestTableTest, CutsALongAnswerToTheRoomAndTellsItsLength) {
  PendingRequest& request = Enter(7);
  EXPECT_EQ(Take({600, 7, Bytes(100000, 'x')}), Taken::kLastAnswer);
  table.Await(request);
  EXPECT_EQ(request.answerLength, 100000U);
  EXPECT_EQ(askers.back().room[7], 'x');
}

TEST_F(RequestTableTest, KnowsAnswersByTheirIdentifiers) {
  (void)Enter(7);
  EXPECT_EQ(Take({600, 8, {}}), Taken::kNo);
  EXPECT_EQ(table.InFlight(), 1U);
}

TEST_F(RequestTableTest, TakesNoTopicForAnAnswer) {
  (void)Enter(7);
  EXPECT_EQ(Take({kTopicPort, 7, {}}), Taken::kNo);
}

TEST_F(RequestTableTest, TakesAnAnswerOfTheTopicPortWhereItWasAsked) {
  (void)Enter(7, kTopicPort);
  EXPECT_EQ(Take({kTopicPort, 7, {}}), Taken::kLastAnswer);
}

TEST_F(RequestTableTest, TakesNoMessageOfAnotherVersion) {
  (void)Enter(7);
  Frame frame(600, 7, {});
  frame.bytes[1] = 2;
  EXPECT_EQ(Take(frame), Taken::kNo);
}

TEST_F(RequestTableTest, TakesNoMessageThatIsTooShortForAnAnswer) {
  (void)Enter(7);
  const Bytes bytes = zeltest::Message(1, 600, Bytes(kZoeHeaderSize - 1));
  EXPECT_EQ(table.Take(*FrameDecoder::Whole(bytes, kMaxReceivedBody), Reader::kReceiveThread), Taken::kNo);
}

TEST_F(RequestTableTest, RefusesAnIdentifierThatWaits) {
  (void)Enter(7);
  PendingRequest other;
  EXPECT_EQ(table.Enter(other, 7), Entry::kTaken);
  auto called = std::make_unique<PendingRequest>();
  called->ticket = RequestTable::NextTicket();
  EXPECT_EQ(table.Enter(called, 7), Entry::kTaken);
  EXPECT_NE(called, nullptr);
  EXPECT_FALSE(table.Holds(called->ticket));
}

TEST_F(RequestTableTest, RefusesAllWhenClosed) {
  table.Close(LIBZELX_E_CANCELLED);
  PendingRequest request;
  EXPECT_EQ(table.Enter(request, 7), Entry::kClosed);
  table.Open();
  (void)Enter(7);
}

TEST_F(RequestTableTest, EndsAWaitWhenItsTimeIsOver) {
  PendingRequest& request = Enter(7, 600, 1);
  table.Await(request);
  EXPECT_EQ(request.result, ZEL_E_TIMEOUT);
}

TEST_F(RequestTableTest, KnowsALateAnswerOnce) {
  table.Await(Enter(7, 600, 1));
  EXPECT_EQ(Take({600, 7, {}}), Taken::kLate);
  EXPECT_EQ(Take({600, 7, {}}), Taken::kNo);
}

TEST_F(RequestTableTest, KnowsNoLateAnswerOnAnotherLink) {
  table.Await(Enter(7, 600, 1));
  table.ForgetGone();
  EXPECT_EQ(Take({600, 7, {}}), Taken::kNo);
}

TEST_F(RequestTableTest, ClosingEndsAll) {
  PendingRequest& request = Enter(7);
  (void)EnterWithCallback(8);
  table.Close(LIBZELX_E_CANCELLED);
  table.Await(request);
  table.RunDue();
  EXPECT_EQ(request.result, LIBZELX_E_CANCELLED);
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(outcomes[0].result, LIBZELX_E_CANCELLED);
}

TEST_F(RequestTableTest, LostLinkEndsItsRequestsAlone) {
  PendingRequest& request = Enter(7);
  table.FailLost();
  EXPECT_EQ(table.InFlight(), 1U);
  link->setConnected(false);
  table.FailLost();
  table.Await(request);
  EXPECT_EQ(request.result, ZEL_E_DISCONNECTED);
}

TEST_F(RequestTableTest, RunsACallbackOnceWithItsAnswer) {
  const uint64_t ticket = EnterWithCallback(7);
  EXPECT_EQ(Take({600, 7, {}}), Taken::kAnswer);
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_TRUE(outcomes[0].hasAnswer);
  EXPECT_EQ(table.Cancel(ticket), 1);
  EXPECT_EQ(outcomes.size(), 1U);
}

TEST_F(RequestTableTest, CallerThatReadsLeavesAnswersWithCallbacksAlone) {
  (void)EnterWithCallback(7);
  EXPECT_EQ(Take({600, 7, {}}, Reader::kCaller), Taken::kNo);
  EXPECT_TRUE(outcomes.empty());
}

TEST_F(RequestTableTest, KeepsAnAnswerThatAnotherReaderFoundForTheReceiveThread) {
  (void)EnterWithCallback(7);
  EXPECT_EQ(Take({600, 7, Text("kept")}, Reader::kSynchronousReceive), Taken::kAnswer);
  EXPECT_TRUE(outcomes.empty());
  EXPECT_EQ(table.MsUntilDue(), 0);
  table.RunDue();
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_TRUE(outcomes[0].hasAnswer);
}

TEST_F(RequestTableTest, CancelledOneRunsNoCallback) {
  const uint64_t ticket = EnterWithCallback(7);
  EXPECT_EQ(table.Cancel(ticket), 0);
  EXPECT_EQ(Take({600, 7, {}}), Taken::kLate);
  table.RunDue();
  EXPECT_TRUE(outcomes.empty());
}

TEST_F(RequestTableTest, TellsWhenACallbackIsDue) {
  EXPECT_EQ(table.MsUntilDue(), INT64_MAX);
  (void)EnterWithCallback(7, 5000);
  EXPECT_GT(table.MsUntilDue(), 0);
  EXPECT_LE(table.MsUntilDue(), 5000);
}

TEST_F(RequestTableTest, OverdueCallbackIsToldTheTimeIsOver) {
  (void)EnterWithCallback(7, 0);
  table.RunDue();
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(outcomes[0].result, ZEL_E_TIMEOUT);
  EXPECT_FALSE(outcomes[0].hasAnswer);
}

}  // namespace
}  // namespace libzel
