// Holds a process's share of the site's shards: renews its lease, takes shards that nobody has, ends the
// leases of holders that do not renew, and hands over what is above its share.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Lease.h"
#include "Nats.h"
#include "Reminder.h"
#include "ShardBook.h"

namespace zelgate {

// All are called on the keeper's thread.
struct ShardTasks {
  // These shards are this process's from now on.
  std::function<void(const std::vector<int>& shards)> onTaken;
  // They are not any more, or will not be: their devices are let go when this returns.
  std::function<void(const std::vector<int>& shards)> onLost;
  // True while the process has all the devices it may have.
  std::function<bool()> isFull;
  // Shards with devices that it cannot serve, because it is full.
  std::function<std::vector<int>()> excess;
  // How many devices are served, for people who look at the lease.
  std::function<size_t()> devices;
};

class ShardKeeper {
 public:
  ShardKeeper(Nats& nats, int shards, ShardTasks tasks);
  // As Stop.
  ~ShardKeeper();
  ShardKeeper(const ShardKeeper&) = delete;
  ShardKeeper& operator=(const ShardKeeper&) = delete;

  void Start();
  // Ends the thread, lets the devices go, and lets others have the shards at once.
  void Stop();

  // By this machine's clock, at this moment. Any thread, before each write to a device.
  bool IsValid() const { return term_.IsValid(GateClock::now()); }
  std::chrono::milliseconds ValidFor() const { return term_.Left(GateClock::now()); }
  size_t Count() const { return count_; }
  // The name in leases; another one after each loss of the lease.
  std::string Holder() const;

 private:
  void Run();
  void Step();
  bool Listen();
  void Hear();
  bool IsEarlierSelf(const std::string& key) const;
  void EndDead();
  void Share();
  void HandOver(const std::vector<int>& shards);
  std::vector<int> Excess(const std::vector<std::string>& holders) const;
  void WriteOwner(int shard, const std::string& holder);
  void FollowBook();
  void BeginAnew();
  void Drop(const std::vector<int>& shards);
  std::string Describe() const;
  void Complain(const NatsResult& result);

  Nats& nats_;
  const int shards_;
  const ShardTasks tasks_;
  const std::string process_;
  int generation_ = 0;

  mutable std::mutex holderMutex_;
  std::string holder_;  // guarded by holderMutex_

  LeaseTerm term_;
  KeyValue bucket_;
  std::unique_ptr<KeyWatcher> watcher_;
  bool isComplete_ = false;  // the watcher has told what was there
  ShardBook book_;
  std::unique_ptr<Lease> lease_;
  std::set<int> own_;
  std::set<std::string> leftOver_;  // keys of this process's earlier names
  std::atomic<size_t> count_ = 0;
  Reminder reminder_;
  std::atomic<bool> isStopping_ = false;
  std::thread thread_;
};

}  // namespace zelgate
