#include "RouteQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using zelgate::Event;
using zelgate::Gap;
using zelgate::Policy;
using zelgate::RouteQueue;

Event MakeEvent(RouteQueue& queue, const std::string& route, const std::string& data = "x") {
  Event event;
  event.route = route;
  event.data = data;
  event.sequence = queue.NextSequence();
  return event;
}

bool PutNew(RouteQueue& queue, Policy policy, const std::string& route) {
  return queue.Put(policy, MakeEvent(queue, route));
}

// The sequence numbers of what may go now.
std::vector<uint64_t> GoingNow(RouteQueue& queue) {
  std::vector<uint64_t> numbers;
  while (const auto event = queue.Next()) numbers.push_back(event->sequence);
  return numbers;
}

TEST(RouteQueueTest, WhatBlocksGoesOneAtATimeInOrder) {
  RouteQueue queue;
  ASSERT_TRUE(PutNew(queue, Policy::kBlock, "a"));
  ASSERT_TRUE(PutNew(queue, Policy::kBlock, "b"));
  const auto first = queue.Next();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->sequence, 1U);
  EXPECT_FALSE(queue.Next());
  queue.Acknowledge(*first);
  EXPECT_EQ(GoingNow(queue), std::vector<uint64_t>{2});
}

TEST(RouteQueueTest, WhatBlocksWaitsWhenThereIsNoRoom) {
  RouteQueue queue;
  for (size_t i = 0; i < RouteQueue::kMostWaiting; ++i) ASSERT_TRUE(PutNew(queue, Policy::kBlock, "a"));
  Event event = MakeEvent(queue, "a", "kept");
  EXPECT_FALSE(queue.Put(Policy::kBlock, std::move(event)));
  EXPECT_EQ(event.data, "kept");
  ASSERT_TRUE(queue.Next());
  EXPECT_TRUE(queue.Put(Policy::kBlock, std::move(event)));
}

TEST(RouteQueueTest, BytesAreBoundedAsWell) {
  RouteQueue queue;
  EXPECT_TRUE(queue.Put(Policy::kBlock, MakeEvent(queue, "a", std::string(RouteQueue::kMostBytes + 1, 'x'))));
  EXPECT_FALSE(PutNew(queue, Policy::kBlock, "a"));
}

TEST(RouteQueueTest, TheLinkFindsRoomAlways) {
  RouteQueue queue;
  for (size_t i = 0; i < RouteQueue::kMostWaiting; ++i) ASSERT_TRUE(PutNew(queue, Policy::kBlock, "a"));
  queue.PutLink(MakeEvent(queue, ""));
  EXPECT_EQ(queue.Waiting(), RouteQueue::kMostWaiting + 1);
}

TEST(RouteQueueTest, TheOldestIsDroppedAndToldAsAGap) {
  RouteQueue queue;
  for (size_t i = 0; i < RouteQueue::kMostWaiting + 3; ++i) {
    ASSERT_TRUE(PutNew(queue, Policy::kDropOldest, "t/a"));
  }
  const std::vector<Gap> gaps = queue.TakeGaps();
  ASSERT_EQ(gaps.size(), 1U);
  EXPECT_EQ(gaps[0].route, "t/a");
  EXPECT_EQ(gaps[0].reason, "too many wait");
  EXPECT_EQ(gaps[0].count, 3U);
  EXPECT_EQ(gaps[0].first, 1U);
  EXPECT_EQ(gaps[0].last, 3U);
  EXPECT_EQ(queue.Dropped(), 3U);
  EXPECT_EQ(queue.Next()->sequence, 4U);
}

TEST(RouteQueueTest, SomeOfWhatMayDropAreUnderWayTogether) {
  RouteQueue queue;
  for (size_t i = 0; i < RouteQueue::kMostUnderWay + 1; ++i) {
    ASSERT_TRUE(PutNew(queue, Policy::kDropOldest, "t/a"));
  }
  EXPECT_EQ(GoingNow(queue).size(), RouteQueue::kMostUnderWay);
}

TEST(RouteQueueTest, OnlyTheNewestWaits) {
  RouteQueue queue;
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(PutNew(queue, Policy::kLatestOnly, "t/a"));
  const auto newest = queue.Next();
  ASSERT_TRUE(newest);
  EXPECT_EQ(newest->sequence, 4U);
  const std::vector<Gap> gaps = queue.TakeGaps();
  ASSERT_EQ(gaps.size(), 1U);
  EXPECT_EQ(gaps[0].count, 3U);
  ASSERT_TRUE(PutNew(queue, Policy::kLatestOnly, "t/a"));
  EXPECT_FALSE(queue.Next()) << "one is under way";
  queue.Acknowledge(*newest);
  EXPECT_EQ(queue.Next()->sequence, 5U);
}

TEST(RouteQueueTest, RoutesThatMayDropTakeTurns) {
  RouteQueue queue;
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(PutNew(queue, Policy::kDropOldest, "t/a"));
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(PutNew(queue, Policy::kDropOldest, "t/b"));
  EXPECT_EQ(GoingNow(queue), (std::vector<uint64_t>{1, 3, 2, 4}));
}

TEST(RouteQueueTest, ABlockedRouteHoldsUpNoneThatMayDrop) {
  RouteQueue queue;
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(PutNew(queue, Policy::kBlock, "t/a"));
  ASSERT_TRUE(PutNew(queue, Policy::kDropOldest, "t/b"));
  EXPECT_EQ(GoingNow(queue), (std::vector<uint64_t>{1, 3}));
}

TEST(RouteQueueTest, ANewerAcknowledgementFirstIsAGap) {
  RouteQueue queue;
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(PutNew(queue, Policy::kDropOldest, "t/a"));
  const auto older = queue.Next();
  const auto newer = queue.Next();
  queue.Acknowledge(*newer);
  const std::vector<Gap> gaps = queue.TakeGaps();
  ASSERT_EQ(gaps.size(), 1U);
  EXPECT_EQ(gaps[0].reason, "order may be broken");
  EXPECT_EQ(gaps[0].first, 2U);
  queue.Acknowledge(*older);
  EXPECT_TRUE(queue.TakeGaps().empty());
  EXPECT_EQ(queue.Dropped(), 0U);
}

TEST(RouteQueueTest, GapsBecomeOneWhileOneIsBeingTold) {
  RouteQueue queue;
  queue.AddGap("t/a", "too long", queue.NextSequence(), 10);
  ASSERT_EQ(queue.TakeGaps().size(), 1U);
  Event telling = MakeEvent(queue, "");
  telling.isGap = true;
  queue.PutLink(std::move(telling));
  queue.AddGap("t/a", "too long", queue.NextSequence(), 20);
  queue.AddGap("t/a", "too long", queue.NextSequence(), 15);
  EXPECT_TRUE(queue.TakeGaps().empty());
  queue.Acknowledge(*queue.Next());
  const std::vector<Gap> gaps = queue.TakeGaps();
  ASSERT_EQ(gaps.size(), 1U);
  EXPECT_EQ(gaps[0].count, 2U);
  EXPECT_EQ(gaps[0].bytes, 20U);
}

TEST(RouteQueueTest, ItIsEmptyWhenNothingWaitsOrIsUnderWay) {
  RouteQueue queue;
  EXPECT_TRUE(queue.IsEmpty());
  ASSERT_TRUE(PutNew(queue, Policy::kBlock, "a"));
  EXPECT_FALSE(queue.IsEmpty());
  const auto event = queue.Next();
  EXPECT_FALSE(queue.IsEmpty());
  queue.Acknowledge(*event);
  EXPECT_TRUE(queue.IsEmpty());
}

// Any mix of policies: what was put is under way once, or was dropped and counted, and nothing else.
TEST(RouteQueueTest, EveryMessageIsDeliveredOrInAGap) {
  RouteQueue queue;
  std::vector<Event> underWay;
  uint64_t put = 0;
  uint64_t delivered = 0;
  uint64_t inGaps = 0;
  uint32_t random = 12345;
  for (int i = 0; i < 20000; ++i) {
    random = random * 1664525 + 1013904223;
    const auto policy = static_cast<Policy>((random >> 8) % 3);
    const std::string route =
        "t/" + std::to_string(static_cast<int>(policy)) + std::to_string((random >> 12) % 2);
    if ((random >> 20) % 3 != 0) put += PutNew(queue, policy, route) ? 1 : 0;
    if ((random >> 24) % 2 != 0) {
      if (auto event = queue.Next()) underWay.push_back(std::move(*event));
    } else if (!underWay.empty()) {
      queue.Acknowledge(underWay.front());
      underWay.erase(underWay.begin());
      ++delivered;
    }
    for (const Gap& gap : queue.TakeGaps()) inGaps += gap.count;
  }
  EXPECT_EQ(put, delivered + underWay.size() + queue.Waiting() + inGaps);
  EXPECT_EQ(inGaps, queue.Dropped());
}

}  // namespace
