// How long callbacks and what they hold live, and what becomes of exceptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Device.h"
#include "Gathered.h"

namespace zeltest {
namespace {

bool AwaitMoreThan(const std::atomic<int>& count, int bound) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (count <= bound && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  return count > bound;
}

// Holds something that the test can see being let go of.
struct Held {
  std::shared_ptr<int> what = std::make_shared<int>(1);
  std::weak_ptr<int> seen = what;
  std::shared_ptr<int> Take() { return std::move(what); }
};

TEST(CallbackTest, ReplacedCallbackIsLetGoOf) {
  Held held;
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.Subscribe("a", [kept = held.Take()](const zel::TopicMessage&) { (void)kept; }));
  EXPECT_FALSE(held.seen.expired());
  ASSERT_TRUE(connection.Subscribe("a", [](const zel::TopicMessage&) {}));
  EXPECT_TRUE(held.seen.expired());
}

TEST(CallbackTest, UnroutedCallbackIsLetGoOf) {
  Held held;
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.Route(800, [kept = held.Take()](uint16_t, zel::Bytes) { (void)kept; }));
  EXPECT_FALSE(held.seen.expired());
  ASSERT_TRUE(connection.Unroute(800));
  EXPECT_TRUE(held.seen.expired());
}

TEST(CallbackTest, RefusedCallbackIsNotKept) {
  Held held;
  zel::Connection connection = Connect();
  EXPECT_FALSE(connection.Route(1, [kept = held.Take()](uint16_t, zel::Bytes) { (void)kept; }));
  EXPECT_TRUE(held.seen.expired());
}

TEST(CallbackTest, ReleaseLetsGoOfAll) {
  Held onEvent, onTopic, onRoute;
  zel::Connection connection = Connect(
      {zel::Milliseconds(1500), [kept = onEvent.Take()](const zel::DeviceId&, zel::Event) { (void)kept; }});
  ASSERT_TRUE(connection.Subscribe("a", [kept = onTopic.Take()](const zel::TopicMessage&) { (void)kept; }));
  ASSERT_TRUE(connection.Route(800, [kept = onRoute.Take()](uint16_t, zel::Bytes) { (void)kept; }));
  connection.Release();
  EXPECT_TRUE(onEvent.seen.expired());
  EXPECT_TRUE(onTopic.seen.expired());
  EXPECT_TRUE(onRoute.seen.expired());
}

TEST(CallbackTest, RunningCallbackOutlivesItsReplacement) {
  Held held;
  Gathered<bool> steps;
  std::atomic<bool> replaced{false};
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.StartLoop());
  ASSERT_TRUE(connection.Subscribe("a", [&, kept = held.Take()](const zel::TopicMessage&) {
    steps.Add(true);
    while (!replaced) std::this_thread::yield();
    steps.Add(*kept == 1);
  }));
  ASSERT_TRUE(connection.Publish("a", "x"));
  ASSERT_TRUE(steps.Await(1));
  ASSERT_TRUE(connection.Subscribe("a", [](const zel::TopicMessage&) {}));
  EXPECT_FALSE(held.seen.expired());
  replaced = true;
  ASSERT_TRUE(steps.Await(2));
  EXPECT_TRUE(steps.All().at(1));
  ASSERT_TRUE(connection.StopLoop());
  EXPECT_TRUE(held.seen.expired());
}

TEST(CallbackTest, CallbackMayEndItsOwnSubscription) {
  Held held;
  Gathered<int> results;
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.StartLoop());
  ASSERT_TRUE(connection.Subscribe("a", [&, kept = held.Take()](const zel::TopicMessage&) {
    results.Add(connection.Unsubscribe("a").Code());
    results.Add(*kept);
  }));
  ASSERT_TRUE(connection.Publish("a", "x"));
  ASSERT_TRUE(results.Await(2));
  EXPECT_EQ(results.All(), (std::vector<int>{0, 1}));
  ASSERT_TRUE(connection.StopLoop());
  EXPECT_TRUE(held.seen.expired());
}

TEST(CallbackTest, NoneBeginsAfterUnsubscribe) {
  std::atomic<bool> ended{false};
  std::atomic<int> late{0};
  std::atomic<int> calls{0};
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.StartLoop());
  ASSERT_TRUE(connection.Subscribe("flood", [&](const zel::TopicMessage&) {
    if (ended) ++late;
    ++calls;
  }));
  EXPECT_TRUE(AwaitMoreThan(calls, 1000));
  ASSERT_TRUE(connection.Unsubscribe("flood"));
  // The one that ran meanwhile may still have to look at the flag; no second one does.
  ended = true;
  ASSERT_TRUE(connection.StopLoop());
  EXPECT_LE(late, 1);
}

TEST(CallbackTest, CallbacksAreReplacedWhileMessagesPour) {
  std::atomic<int> wrong{0};
  std::atomic<int> calls{0};
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.StartLoop());
  for (int round = 0; round < 200; ++round) {
    auto held = std::make_shared<std::string>("round " + std::to_string(round));
    ASSERT_TRUE(connection.Subscribe("flood", [&, held, expected = *held](const zel::TopicMessage& message) {
      if (*held != expected || message.data.size() != 64) ++wrong;
      ++calls;
    }));
    ASSERT_TRUE(AwaitMoreThan(calls, calls));
    if (round % 10 == 9) {
      ASSERT_TRUE(connection.Unsubscribe("flood"));
    }
  }
  ASSERT_TRUE(connection.StopLoop());
  EXPECT_EQ(wrong, 0);
}

TEST(CallbackTest, ReleaseWaitsForTheCallback) {
  Gathered<int> steps;
  std::atomic<bool> ended{false};
  zel::Connection connection = Connect();
  ASSERT_TRUE(connection.Route(700, [&](uint16_t, zel::Bytes) {
    if (steps.All().empty()) {
      steps.Add(1);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      ended = true;
    }
  }));
  ASSERT_TRUE(connection.StartLoop());
  ASSERT_TRUE(steps.Await(1));
  connection.Release();
  EXPECT_TRUE(ended);
}

TEST(CallbackTest, ExceptionGoesToTheHandlerAndTheThreadGoesOn) {
  Gathered<std::string> texts;
  zel::SetExceptionHandler([&](std::exception_ptr thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const std::exception& e) {
      texts.Add(e.what());
    }
  });
  {
    zel::Connection connection = Connect({zel::Milliseconds(1500), [](const zel::DeviceId&, zel::Event) {
                                            throw std::runtime_error("event");
                                          }});
    ASSERT_TRUE(connection.Route(700, [](uint16_t, zel::Bytes) { throw std::runtime_error("route"); }));
    ASSERT_TRUE(
        connection.Subscribe("a", [](const zel::TopicMessage&) { throw std::runtime_error("topic"); }));
    ASSERT_TRUE(connection.StartLoop());
    ASSERT_TRUE(connection.Publish("a", "x"));
    const auto count = [](const std::vector<std::string>& all, const char* text) {
      return std::count(all.begin(), all.end(), text);
    };
    EXPECT_TRUE(texts.AwaitThat([&](const std::vector<std::string>& all) {
      return count(all, "event") == 2 && count(all, "topic") == 1 && count(all, "route") >= 2;
    }));
  }
  zel::SetExceptionHandler(nullptr);
}

#ifndef _WIN32
TEST(CallbackTest, ExceptionWithoutAHandlerEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        zel::Connection connection = Connect({zel::Milliseconds(1500), [](const zel::DeviceId&, zel::Event) {
                                                throw std::runtime_error("nobody takes me");
                                              }});
      },
      "nobody takes me");
}
#endif

}  // namespace
}  // namespace zeltest
