// Keeps an eye on a bucket for as long as it lives: begins anew when a watcher is of no use any more, NATS
// was away say.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "Nats.h"

namespace zelgate {

// By key. What is deleted is not there.
using BucketContent = std::map<std::string, std::string>;

class BucketWatch {
 public:
  // `onChange` is called on a thread of this object's: with all that is there as soon as it is known, and
  // after changes. `keys` is what to look at, with the wildcards of subjects.
  BucketWatch(Nats& nats, std::string bucket, std::string keys,
              std::function<void(const BucketContent&)> onChange);
  ~BucketWatch();
  BucketWatch(const BucketWatch&) = delete;
  BucketWatch& operator=(const BucketWatch&) = delete;

 private:
  void Run();
  NatsResult Watch();

  Nats& nats_;
  const std::string bucket_;
  const std::string keys_;
  const std::function<void(const BucketContent&)> onChange_;
  std::atomic<bool> isStopping_ = false;
  std::thread thread_;
};

}  // namespace zelgate
