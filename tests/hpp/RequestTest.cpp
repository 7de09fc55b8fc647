// Requests of a zel::Connection: from several threads, their answers, and why there is none.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Device.h"
#include "Gathered.h"

namespace zeltest {
namespace {

using zel::Milliseconds;
constexpr Milliseconds kPlenty{20000};
constexpr uint16_t kEcho = 600;
constexpr uint16_t kRefuses = 601;
constexpr uint16_t kSilent = 602;
constexpr uint16_t kMegabyte = 603;

// An instance of a device that nobody is.
zel::Connection ConnectToNobody() {
  (void)TheLibrary();
  return *zel::Connection::Create(*zel::DeviceId::Parse("127.0.0.9.0.1"), {Milliseconds(200), nullptr});
}

// How many of the thread's questions got another answer than what was asked.
int WrongAnswers(zel::Connection& connection, int thread, int count) {
  int wrong = 0;
  for (int i = 0; i < count; ++i) {
    const std::string question =
        "thread " + std::to_string(thread) + " question " + std::string(static_cast<size_t>(i % 50), 'x');
    const zel::Answer answer = connection.Request(kEcho, {}, question, kPlenty);
    if (!answer || zel::Bytes(*answer).AsText() != question) ++wrong;
  }
  return wrong;
}

int WrongAnswersOfThreads(zel::Connection& connection, int threads, int count) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&, i] { wrong += WrongAnswers(connection, i, count); });
  }
  for (auto& thread : all) thread.join();
  return wrong;
}

TEST(RequestTest, ThreeThreadsGetTheirOwnAnswers) {
  zel::Connection connection = Connect();
  EXPECT_EQ(WrongAnswersOfThreads(connection, 3, 100), 0);
}

// Each publication that comes back is published again, so that there is always some, and never a heap of it.
TEST(RequestTest, EightThreadsGetTheirOwnAnswersBesideEverythingElse) {
  std::atomic<int> topics{0}, routed{0};
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.Subscribe("press/4", [&](const zel::TopicMessage& message) {
    ++topics;
    connection.Publish("press/4", message.data).Ignore();
  }));
  ASSERT_TRUE(connection.Route(700, [&](uint16_t, zel::Bytes) { ++routed; }));
  ASSERT_TRUE(connection.StartLoop());
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(connection.Publish("press/4", "21.5"));
  EXPECT_EQ(WrongAnswersOfThreads(connection, 8, 100), 0);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while ((topics == 0 || routed == 0) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  EXPECT_GT(topics, 0);
  EXPECT_GT(routed, 0);
}

TEST(RequestTest, EndOfAnotherLibraryLosesNoRequest) {
  (void)TheLibrary();
  std::atomic<int> wrong{0};
  std::vector<std::thread> all;
  for (int i = 0; i < 8; ++i) {
    all.emplace_back([&, i] {
      for (int round = 0; round < 5; ++round) {
        const zel::Library own;
        auto connection = zel::Connection::Create(TheDevice());
        wrong += WrongAnswers(*connection, i, 20);
      }
    });
  }
  for (auto& thread : all) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(RequestTest, AnswerOfAMegabyteIsWhole) {
  zel::Connection connection = Connect();
  const zel::Answer answer = connection.Request(kMegabyte, {}, {}, kPlenty);
  EXPECT_TRUE(answer) << answer.Text();
  EXPECT_EQ(answer->size(), 1048576U);
}

TEST(RequestTest, LongestAnswerIsWhole) {
  std::vector<uint8_t> question(zel::kMaxPayload);
  for (size_t i = 0; i < question.size(); ++i) question[i] = static_cast<uint8_t>(i * 7 >> 3);
  zel::Connection connection = Connect();
  const zel::Answer answer = connection.Request(kEcho, {}, question, kPlenty);
  EXPECT_TRUE(answer) << answer.Text();
  EXPECT_TRUE(*answer == question);
}

TEST(RequestTest, DevicesErrorIsToldFromTheLibrarys) {
  zel::Connection connection = Connect();
  const zel::Answer refused = connection.Request(kRefuses, {}, "x", kPlenty);
  EXPECT_FALSE(refused);
  EXPECT_TRUE(refused.IsAnswered());
  EXPECT_EQ(refused.DeviceError(), 5U);
  EXPECT_EQ(refused.Code(), 5);
  EXPECT_EQ(refused->size(), 3U);
  EXPECT_EQ(refused.Reason(), "");
}

TEST(RequestTest, RefusedConnectIsTheReasonAndNothingWasSent) {
  zel::Connection connection = ConnectToNobody();
  ASSERT_TRUE(connection.SetReconnectInterval(std::chrono::seconds(0)));
  const zel::Answer answer = connection.Request(kEcho, {}, "x", Milliseconds(2000));
  EXPECT_EQ(answer.Code(), ZEL_E_DISCONNECTED);
  EXPECT_FALSE(answer.IsAnswered());
  EXPECT_FALSE(answer.MayBeSent());
  EXPECT_EQ(answer.DeviceError(), 0U);
  EXPECT_EQ(answer.Reason(), "connect 127.0.0.9:9999: refused");
}

TEST(RequestTest, LastFailureTellsForEveryOtherCall) {
  zel::Connection up = Connect();
  EXPECT_EQ(up.LastFailure(), "");
  zel::Connection down = ConnectToNobody();
  EXPECT_EQ(down.Publish("t", "x").Code(), ZEL_E_DISCONNECTED);
  EXPECT_EQ(down.LastFailure(), "connect 127.0.0.9:9999: refused");
}

TEST(RequestTest, EveryCallThatNeedsTheLinkTellsTheReason) {
  const std::string refused = "connect 127.0.0.9:9999: refused";
  zel::Connection down = ConnectToNobody();
  EXPECT_EQ(down.Reconnect(Milliseconds(100)).Reason(), refused);
  EXPECT_EQ(down.Send(kEcho, {}, "x", Milliseconds(100)).Reason(), refused);
  EXPECT_EQ(down.Receive(Milliseconds(100)).Reason(), refused);
  EXPECT_EQ(down.Publish("t", "x").Reason(), refused);
  EXPECT_EQ(down.PublishWithin("t", "x", Milliseconds(100)).Reason(), refused);
  EXPECT_EQ(down.PublishMany({{"t", "x", {}}}, Milliseconds(100)).Reason(), refused);
  EXPECT_EQ(down.Flush(Milliseconds(100)).Reason(), refused);
  EXPECT_EQ(down.Subscribe("t", [](const zel::TopicMessage&) {}).Reason(), refused);
  EXPECT_EQ(down.RequestAsync(kEcho, {}, "x", Milliseconds(100), [](const zel::Answer&) {}).Reason(),
            refused);
}

TEST(RequestTest, CallThatWentWellHasNoReason) {
  zel::Connection down = ConnectToNobody();
  EXPECT_EQ(down.PublishWithin("t", "x", Milliseconds(-1)).Reason(), "");
  zel::Connection up = Connect();
  EXPECT_EQ(up.Publish("t", "x").Reason(), "");
}

TEST(RequestTest, LinkIsToldToBeUpOrDown) {
  EXPECT_TRUE(Connect().IsUp());
  EXPECT_FALSE(ConnectToNobody().IsUp());
}

TEST(RequestTest, SilenceMayHaveBeenSent) {
  zel::Connection connection = Connect();
  const zel::Answer answer = connection.Request(kSilent, {}, "x", Milliseconds(100));
  EXPECT_EQ(answer.Code(), ZEL_E_TIMEOUT);
  EXPECT_FALSE(answer.IsAnswered());
  EXPECT_TRUE(answer.MayBeSent());
  EXPECT_EQ(answer.Reason(), "");
}

TEST(RequestTest, WhatDoesNotFitIsRefusedUnsent) {
  zel::Connection connection = Connect();
  const std::vector<uint8_t> large(zel::kMaxPayload + 1);
  const zel::Answer answer = connection.Request(kEcho, {}, large, kPlenty);
  EXPECT_EQ(answer.Code(), zel::kErrorTooLong);
  EXPECT_FALSE(answer.MayBeSent());
}

TEST(RequestTest, NegativeTimeoutIsRefused) {
  constexpr Milliseconds kNegative{-1};
  zel::Connection connection = Connect();
  EXPECT_EQ(connection.Request(kEcho, {}, "x", kNegative).Code(), ZEL_E_PARAM);
  EXPECT_EQ(connection.RequestAsync(kEcho, {}, "x", kNegative, [](const zel::Answer&) {}).Code(),
            ZEL_E_PARAM);
  EXPECT_EQ(connection.Send(kEcho, {}, "x", kNegative).Code(), ZEL_E_PARAM);
  EXPECT_EQ(connection.Receive(kNegative).Code(), ZEL_E_PARAM);
  EXPECT_EQ(connection.Reconnect(kNegative).Code(), ZEL_E_PARAM);
  EXPECT_EQ(connection.SetReconnectInterval(std::chrono::seconds(-1)).Code(), ZEL_E_PARAM);
  EXPECT_EQ(zel::Connection::Create(TheDevice(), {kNegative, nullptr}).Code(), ZEL_E_PARAM);
  EXPECT_EQ(zel::DeviceId::Of(kDeviceHost, kNegative).Code(), ZEL_E_PARAM);
  EXPECT_EQ(TheDevice().AssignTo(kDeviceHost, kNegative).Code(), ZEL_E_PARAM);
}

TEST(RequestTest, CallbackOnTheReceiveThreadIsToldThatItWouldBlock) {
  Gathered<zel::Answer> answers;
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.Route(
      700, [&](uint16_t, zel::Bytes) { answers.Add(connection.Request(kEcho, {}, "x", kPlenty)); }));
  ASSERT_TRUE(connection.StartLoop());
  ASSERT_TRUE(answers.Await(1));
  EXPECT_EQ(answers.All().at(0).Code(), LIBZELX_E_WOULD_BLOCK);
  EXPECT_FALSE(answers.All().at(0).MayBeSent());
  EXPECT_STREQ(answers.All().at(0).Text(), "called on the thread that it would wait for");
  ASSERT_TRUE(connection.StopLoop());
}

TEST(RequestTest, CallbackMayAskAnotherConnection) {
  Gathered<std::string> answers;
  zel::Connection other = Connect();
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.Route(700, [&](uint16_t, zel::Bytes) {
    answers.Add(std::string(zel::Bytes(*other.Request(kEcho, {}, "from a callback", kPlenty)).AsText()));
  }));
  ASSERT_TRUE(connection.StartLoop());
  ASSERT_TRUE(answers.Await(2));
  EXPECT_EQ(answers.All().at(0), "from a callback");
  ASSERT_TRUE(connection.StopLoop());
}

// As when a request restores its link, and the event callback asks another connection.
TEST(RequestTest, RequestInsideARequestHasRoomOfItsOwn) {
  const uint8_t* kept = nullptr;
  {
    zel::detail::AnswerRoom outer, inner;
    EXPECT_NE(outer.data(), inner.data());
    kept = outer.data();
  }
  EXPECT_EQ(zel::detail::AnswerRoom().data(), kept);
}

// ---- Without waiting --------------------------------------------------------------------------------------

TEST(RequestTest, CallbackGetsTheAnswer) {
  Gathered<zel::Answer> answers;
  zel::Connection connection = Connect();
  const auto asked = connection.RequestAsync(kEcho, {1, 2}, "what", kPlenty,
                                             [&](zel::Answer a) { answers.Add(std::move(a)); });
  EXPECT_TRUE(asked) << asked.Text();
  EXPECT_NE(asked->Number(), 0U);
  ASSERT_TRUE(answers.Await(1));
  EXPECT_EQ(zel::Bytes(*answers.All().at(0)).AsText(), "what");
  EXPECT_FALSE(connection.Cancel(*asked));
}

TEST(RequestTest, CallbackMayAskOn) {
  Gathered<std::string> answers;
  zel::Connection connection = Connect();
  const auto add = [&](const zel::Answer& a) { answers.Add(std::string(zel::Bytes(*a).AsText())); };
  EXPECT_TRUE(connection.RequestAsync(kEcho, {}, "first", kPlenty, [&](const zel::Answer& a) {
    add(a);
    connection.RequestAsync(kEcho, {}, "second", kPlenty, add).Ignore();
  }));
  ASSERT_TRUE(answers.Await(2));
  EXPECT_EQ(answers.All(), (std::vector<std::string>{"first", "second"}));
}

TEST(RequestTest, CancelledCallbackIsLetGoOfAndNeverRuns) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = held;
  Gathered<int> calls;
  zel::Connection connection = Connect();
  const auto asked =
      connection.RequestAsync(kSilent, {}, "x", kPlenty, [&, held](const zel::Answer&) { calls.Add(*held); });
  held.reset();
  EXPECT_FALSE(seen.expired());
  EXPECT_TRUE(connection.Cancel(*asked));
  EXPECT_TRUE(seen.expired());
  EXPECT_FALSE(connection.Cancel(*asked));
  connection.Release();
  EXPECT_TRUE(calls.All().empty());
}

TEST(RequestTest, ReleaseEndsWhatWaits) {
  Gathered<int> codes;
  zel::Connection connection = Connect();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(connection.RequestAsync(kSilent, {}, "x", kPlenty,
                                        [&](const zel::Answer& answer) { codes.Add(answer.Code()); }));
  }
  connection.Release();
  EXPECT_EQ(codes.All(), std::vector<int>(3, LIBZELX_E_CANCELLED));
}

TEST(RequestTest, CallbackIsToldThatNoAnswerCame) {
  Gathered<zel::Answer> answers;
  zel::Connection connection = Connect();
  EXPECT_TRUE(connection.RequestAsync(kSilent, {}, "x", Milliseconds(50),
                                      [&](zel::Answer a) { answers.Add(std::move(a)); }));
  ASSERT_TRUE(answers.Await(1));
  EXPECT_EQ(answers.All().at(0).Code(), ZEL_E_TIMEOUT);
  EXPECT_TRUE(answers.All().at(0).MayBeSent());
}

TEST(RequestTest, FutureGetsTheAnswer) {
  zel::Connection connection = Connect();
  std::vector<std::future<zel::Answer>> answers;
  for (int i = 0; i < 20; ++i) {
    answers.push_back(connection.RequestAsync(kEcho, {}, std::to_string(i), kPlenty));
  }
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(zel::Bytes(*answers.at(static_cast<size_t>(i)).get()).AsText(), std::to_string(i));
  }
}

TEST(RequestTest, FutureIsCancelledByItsTicket) {
  zel::Connection connection = Connect();
  auto pending = connection.RequestAsync(kSilent, {}, "x", kPlenty);
  EXPECT_NE(pending.Ticket().Number(), 0U);
  EXPECT_TRUE(connection.Cancel(pending.Ticket()));
  ASSERT_EQ(pending.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  const zel::Answer answer = pending.get();
  EXPECT_EQ(answer.Code(), zel::kErrorCancelled);
  EXPECT_TRUE(answer.MayBeSent());
  EXPECT_FALSE(connection.Cancel(pending.Ticket()));
}

TEST(RequestTest, FutureIsReadyWhenTheRequestCouldNotBeSent) {
  zel::Connection connection = ConnectToNobody();
  auto future = connection.RequestAsync(kEcho, {}, "x", Milliseconds(100));
  ASSERT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  const zel::Answer answer = future.get();
  EXPECT_EQ(answer.Code(), ZEL_E_DISCONNECTED);
  EXPECT_EQ(answer.Reason(), "connect 127.0.0.9:9999: refused");
}

TEST(RequestTest, RefusedCallbackIsNotKept) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = held;
  zel::Connection connection = ConnectToNobody();
  EXPECT_EQ(connection
                .RequestAsync(kEcho, {}, "x", Milliseconds(100),
                              [kept = std::move(held)](const zel::Answer&) { (void)kept; })
                .Code(),
            ZEL_E_DISCONNECTED);
  EXPECT_TRUE(seen.expired());
  EXPECT_EQ(connection.RequestAsync(kEcho, {}, "x", kPlenty, nullptr).Code(), ZEL_E_PARAM);
}

}  // namespace
}  // namespace zeltest
