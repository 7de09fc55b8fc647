#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ShardBook.h"
#include "ShardShare.h"

namespace {

using namespace std::chrono_literals;
using zelgate::GateClock;
using zelgate::HolderKey;
using zelgate::PlanShards;
using zelgate::ShardBook;
using zelgate::ShardKey;
using zelgate::ShardOf;
using zelgate::ShardPlan;

constexpr GateClock::time_point kShardStart{1000s};

TEST(ShardShareTest, ADeviceIsInOneShardForGood) {
  // Processes of different releases must agree.
  EXPECT_EQ(ShardOf("10-20-0-7-0-1", 1024), 859);
  EXPECT_EQ(ShardOf("10-20-0-7-0-1", 1), 0);
}

TEST(ShardShareTest, DevicesSpread) {
  std::map<int, int> counts;
  for (int i = 0; i < 10000; ++i) {
    ++counts[ShardOf("10-20-" + std::to_string(i / 256) + "-" + std::to_string(i % 256) + "-0-1", 8)];
  }
  for (const auto& [shard, count] : counts) EXPECT_NEAR(count, 1250, 200) << shard;
}

TEST(ShardShareTest, ALoneHolderTakesAll) {
  const std::vector<std::string> owners(10);
  EXPECT_EQ(PlanShards(owners, {"a"}, {}, "a", 100).take.size(), 10U);
}

TEST(ShardShareTest, APlanHasAMost) {
  const std::vector<std::string> owners(10);
  EXPECT_EQ(PlanShards(owners, {"a"}, {}, "a", 4).take.size(), 4U);
}

TEST(ShardShareTest, AFullHolderTakesNothing) {
  const std::vector<std::string> owners(10);
  EXPECT_TRUE(PlanShards(owners, {"a"}, {"a"}, "a", 100).take.empty());
}

TEST(ShardShareTest, WhatAFullHolderLeavesIsSharedByTheOthers) {
  std::vector<std::string> owners(10);
  owners[0] = "full";
  EXPECT_EQ(PlanShards(owners, {"a", "full"}, {"full"}, "a", 100).take.size(), 9U);
  owners.assign(10, "a");
  EXPECT_TRUE(PlanShards(owners, {"a", "full"}, {"full"}, "a", 100).handOver.empty());
}

TEST(ShardShareTest, AFullHolderKeepsWhatItHas) {
  const std::vector<std::string> owners(10, "a");
  EXPECT_TRUE(PlanShards(owners, {"a", "b"}, {"a"}, "a", 100).handOver.empty());
}

TEST(ShardShareTest, NobodyTakesWhatAnotherHas) {
  const std::vector<std::string> owners = {"b", "b", "", "a"};
  const ShardPlan plan = PlanShards(owners, {"a", "b"}, {}, "a", 100);
  EXPECT_EQ(plan.take, std::vector<int>{2});
  EXPECT_TRUE(plan.handOver.empty());
}

TEST(ShardShareTest, WhatIsAboveTheShareIsHandedOver) {
  const std::vector<std::string> owners(10, "a");
  const ShardPlan plan = PlanShards(owners, {"a", "b"}, {}, "a", 100);
  EXPECT_EQ(plan.handOver.size(), 5U);
  EXPECT_TRUE(plan.take.empty());
}

// Plays processes that act one after the other, until nobody has anything to do.
int StepsUntilStill(std::vector<std::string>& owners, const std::vector<std::string>& holders) {
  for (int step = 1; step < 1000; ++step) {
    bool isStill = true;
    for (const std::string& holder : holders) {
      const ShardPlan plan = PlanShards(owners, holders, {}, holder, 16);
      for (const int shard : plan.take) owners[static_cast<size_t>(shard)] = holder;
      for (const int shard : plan.handOver) owners[static_cast<size_t>(shard)].clear();
      isStill = isStill && plan.take.empty() && plan.handOver.empty();
    }
    if (isStill) return step;
  }
  return -1;
}

TEST(ShardShareTest, AllAreHeldInTheEndAndNobodyHasFarMore) {
  std::vector<std::string> owners(1024);
  const std::vector<std::vector<std::string>> times = {
      {"a"}, {"a", "b"}, {"a", "b", "c"}, {"b", "c"}, {"c", "d", "e", "f", "g"}};
  for (const auto& holders : times) {
    for (std::string& owner : owners) {
      if (std::find(holders.begin(), holders.end(), owner) == holders.end()) owner.clear();
    }
    EXPECT_GT(StepsUntilStill(owners, holders), 0);
    const auto share = static_cast<std::ptrdiff_t>((1024 + holders.size() - 1) / holders.size());
    EXPECT_EQ(std::count(owners.begin(), owners.end(), ""), 0);
    for (const std::string& holder : holders)
      EXPECT_LE(std::count(owners.begin(), owners.end(), holder), share);
  }
}

TEST(ShardBookTest, AShardIsItsLivingHolders) {
  ShardBook book(2);
  book.See(HolderKey("a"), "{}", 1, false, kShardStart);
  book.See(ShardKey(1), "a", 2, false, kShardStart);
  EXPECT_EQ(book.Owners(), (std::vector<std::string>{"", "a"}));
  EXPECT_EQ(book.RevisionOf(1), 2U);
  EXPECT_FALSE(book.RevisionOf(0));
}

TEST(ShardBookTest, AShardOfAHolderThatIsGoneIsNobodys) {
  ShardBook book(1);
  book.See(HolderKey("a"), "{}", 1, false, kShardStart);
  book.See(ShardKey(0), "a", 2, false, kShardStart);
  book.See(HolderKey("a"), "", 3, true, kShardStart);
  EXPECT_EQ(book.Owners(), std::vector<std::string>{""});
  EXPECT_EQ(book.RevisionOf(0), 2U);
}

TEST(ShardBookTest, AnEmptyValueEndsAHolder) {
  ShardBook book(1);
  book.See(HolderKey("a"), "{}", 1, false, kShardStart);
  book.See(HolderKey("a"), "", 2, false, kShardStart);
  EXPECT_TRUE(book.Holders().empty());
}

TEST(ShardBookTest, AHolderSaysThatItIsFull) {
  ShardBook book(1);
  book.See(HolderKey("a"), R"({"full":true})", 1, false, kShardStart);
  book.See(HolderKey("b"), R"({"full":false})", 2, false, kShardStart);
  book.See(HolderKey("c"), "[]", 3, false, kShardStart);
  EXPECT_EQ(book.FullHolders(), std::set<std::string>{"a"});
  book.See(HolderKey("a"), "{}", 4, false, kShardStart);
  EXPECT_TRUE(book.FullHolders().empty());
}

TEST(ShardBookTest, AHolderThatDoesNotRenewMayBeEnded) {
  ShardBook book(1);
  book.See(HolderKey("a"), "{}", 1, false, kShardStart);
  book.See(HolderKey("b"), "{}", 2, false, kShardStart);
  book.See(HolderKey("b"), "{}", 3, false, kShardStart + 2s);
  const auto dead = book.DeadHolders(kShardStart + 4s);
  ASSERT_EQ(dead.size(), 1U);
  EXPECT_EQ(dead[0].holder, "a");
  EXPECT_EQ(dead[0].revision, 1U);
}

TEST(ShardBookTest, AnOlderWordOfAShardIsNotTaken) {
  ShardBook book(1);
  book.See(HolderKey("a"), "{}", 1, false, kShardStart);
  book.See(ShardKey(0), "a", 5, false, kShardStart);
  book.See(ShardKey(0), "", 4, false, kShardStart);
  EXPECT_EQ(book.Owners(), std::vector<std::string>{"a"});
}

TEST(ShardBookTest, OtherKeysAreLeftAlone) {
  ShardBook book(1);
  for (const char* key : {"find", "shard.1", "shard.x", "shard.", "shard.-1", "run"}) {
    book.See(key, "a", 1, false, kShardStart);
  }
  EXPECT_TRUE(book.Holders().empty());
  EXPECT_EQ(book.Owners(), std::vector<std::string>{""});
}

}  // namespace
