// What a process knows of its site's shards: who lives, who has which, and at which revision. It is told what
// the bucket of leases says. Pure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "LeaseTerm.h"

namespace zelgate {

// Keys of the bucket.
std::string HolderKey(const std::string& holder);  // "run.HOLDER", whose value is a JSON object for people
std::string ShardKey(int shard);                   // "shard.N", whose value is the holder; empty: nobody's

class ShardBook {
 public:
  explicit ShardBook(int shards) : shards_(static_cast<size_t>(shards)) {}

  // Any key of the bucket; those of others are left alone.
  void See(const std::string& key, const std::string& value, uint64_t revision, bool isDeleted,
           GateClock::time_point now);

  // Those whose lease is not known to be over.
  std::vector<std::string> Holders() const;
  // Those of them that say that they can take no more: "full": true.
  std::set<std::string> FullHolders() const;
  // Those that have not renewed for so long that they may be ended, by a write with the revision.
  struct Dead {
    std::string holder;
    uint64_t revision = 0;
  };
  std::vector<Dead> DeadHolders(GateClock::time_point now) const;
  void End(const std::string& holder);

  // Of each shard: its living holder, or empty.
  std::vector<std::string> Owners() const;
  // The revision to name in a write; nothing for a key that was never there.
  std::optional<uint64_t> RevisionOf(int shard) const { return shards_[static_cast<size_t>(shard)].revision; }
  // When one's own key was last seen to change says whether one hears at all.
  std::optional<uint64_t> HolderRevision(const std::string& holder) const {
    return holders_.RevisionOf(holder);
  }

 private:
  struct Shard {
    std::string holder;
    std::optional<uint64_t> revision;
  };
  std::vector<Shard> shards_;
  LeaseWatch holders_;
  std::set<std::string> full_;
};

}  // namespace zelgate
