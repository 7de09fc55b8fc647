#include "ShardShare.h"

#include <algorithm>
#include <cstdint>

namespace zelgate {
namespace {

uint64_t HashOf(std::string_view text) {
  uint64_t hash = 14695981039346656037U;
  for (const char letter : text) hash = (hash ^ static_cast<uint8_t>(letter)) * 1099511628211U;
  return hash ^ hash >> 32;
}

}  // namespace

int ShardOf(std::string_view device, int shards) {
  return static_cast<int>(HashOf(device) % static_cast<uint64_t>(shards));
}

ShardPlan PlanShards(const std::vector<std::string>& owners, const std::vector<std::string>& holders,
                     const std::set<std::string>& full, const std::string& self, size_t most) {
  ShardPlan plan;
  if (full.contains(self)) return plan;
  const auto isShared = [&](const std::string& owner) { return !full.contains(owner); };
  const auto shared = static_cast<size_t>(std::count_if(owners.begin(), owners.end(), isShared));
  const auto people = static_cast<size_t>(std::count_if(holders.begin(), holders.end(), isShared));
  const size_t share = people == 0 ? 0 : (shared + people - 1) / people;
  auto own = static_cast<size_t>(std::count(owners.begin(), owners.end(), self));
  // Everybody begins somewhere else, so that not all reach for the same ones.
  const size_t start = owners.empty() ? 0 : HashOf(self) % owners.size();
  for (size_t i = 0; i < owners.size() && own < share && plan.take.size() < most; ++i) {
    const size_t shard = (start + i) % owners.size();
    if (!owners[shard].empty()) continue;
    plan.take.push_back(static_cast<int>(shard));
    ++own;
  }
  for (size_t i = owners.size(); i > 0 && own > share && plan.handOver.size() < most; --i) {
    const size_t shard = (start + i - 1) % owners.size();
    if (owners[shard] != self) continue;
    plan.handOver.push_back(static_cast<int>(shard));
    --own;
  }
  return plan;
}

}  // namespace zelgate
