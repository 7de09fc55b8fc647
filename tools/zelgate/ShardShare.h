// Which shards of a site a process is to take, and which to hand over, so that all are held and everybody has
// about the same number. Pure.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zelgate {

// The shard of a device's token: the same in every process of the site.
int ShardOf(std::string_view device, int shards);

struct ShardPlan {
  std::vector<int> take;      // that nobody has
  std::vector<int> handOver;  // of one's own
};

// `owners`: of each shard, empty when nobody has it; `holders`: all living ones, oneself (`self`) among them.
// `most` is how many shards one plan takes or hands over. `full`: those holders that have all the devices
// they may have. They keep what they have and take nothing; the others share the rest.
ShardPlan PlanShards(const std::vector<std::string>& owners, const std::vector<std::string>& holders,
                     const std::set<std::string>& full, const std::string& self, size_t most);

}  // namespace zelgate
