#include "ShardBook.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>

namespace zelgate {
namespace {

constexpr std::string_view kHolderPrefix = "run.";
constexpr std::string_view kShardPrefix = "shard.";

}  // namespace

std::string HolderKey(const std::string& holder) { return std::string(kHolderPrefix) + holder; }

std::string ShardKey(int shard) { return std::string(kShardPrefix) + std::to_string(shard); }

void ShardBook::See(const std::string& key, const std::string& value, uint64_t revision, bool isDeleted,
                    GateClock::time_point now) {
  if (key.starts_with(kHolderPrefix)) {
    const std::string holder = key.substr(kHolderPrefix.size());
    // An empty value ends a holder that did not renew.
    if (isDeleted || value.empty()) return End(holder);
    const auto object = nlohmann::json::parse(value, nullptr, false);
    const bool isFull = object.is_object() && object.value("full", nlohmann::json()) == true;
    if (isFull) full_.insert(holder);
    if (!isFull) full_.erase(holder);
    return holders_.See(holder, revision, now);
  }
  if (!key.starts_with(kShardPrefix)) return;
  size_t shard = shards_.size();
  (void)std::from_chars(key.data() + kShardPrefix.size(), key.data() + key.size(), shard);
  if (shard >= shards_.size() || revision < shards_[shard].revision.value_or(0)) return;
  shards_[shard] = {isDeleted ? "" : value, revision};
}

std::vector<std::string> ShardBook::Holders() const { return holders_.Keys(); }

std::set<std::string> ShardBook::FullHolders() const { return full_; }

void ShardBook::End(const std::string& holder) {
  holders_.Forget(holder);
  full_.erase(holder);
}

std::vector<ShardBook::Dead> ShardBook::DeadHolders(GateClock::time_point now) const {
  std::vector<Dead> dead;
  for (const std::string& holder : holders_.Over(now)) {
    dead.push_back({holder, holders_.RevisionOf(holder).value_or(0)});
  }
  return dead;
}

std::vector<std::string> ShardBook::Owners() const {
  const std::vector<std::string> holders = holders_.Keys();  // in order
  std::vector<std::string> owners;
  owners.reserve(shards_.size());
  for (const Shard& shard : shards_) {
    const bool lives = std::binary_search(holders.begin(), holders.end(), shard.holder);
    owners.push_back(lives ? shard.holder : "");
  }
  return owners;
}

}  // namespace zelgate
