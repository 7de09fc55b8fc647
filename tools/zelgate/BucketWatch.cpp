#include "BucketWatch.h"

#include <chrono>
#include <optional>
#include <utility>

#include "Reminder.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kWatchLook{250};
// What changes together is told together.
constexpr std::chrono::milliseconds kTogether{20};
constexpr int kLooksBetweenTries = 4;

}  // namespace

BucketWatch::BucketWatch(Nats& nats, std::string bucket, std::string keys,
                         std::function<void(const BucketContent&)> onChange)
    : nats_(nats),
      bucket_(std::move(bucket)),
      keys_(std::move(keys)),
      onChange_(std::move(onChange)),
      thread_([this] { Run(); }) {}

BucketWatch::~BucketWatch() {
  isStopping_ = true;
  thread_.join();
}

void BucketWatch::Run() {
  Reminder reminder;
  while (!isStopping_) {
    const NatsResult ended = nats_.IsUp() ? Watch() : NatsResult();
    if (!ended) reminder.Warn(ended.why);
    for (int i = 0; i < kLooksBetweenTries && !isStopping_; ++i) std::this_thread::sleep_for(kWatchLook);
  }
}

// Returns when the watcher is of no use any more. What was told before holds until all is known anew.
NatsResult BucketWatch::Watch() {
  KeyValue bucket;
  KeyWatcher watcher;
  NatsResult result = bucket.Open(nats_, bucket_);
  if (result) result = bucket.Watch(keys_, watcher);
  BucketContent content;
  bool isComplete = false;
  bool isNew = true;
  while (result && !isStopping_) {
    std::optional<KeyEntry> entry;
    result = watcher.Next(isComplete && isNew ? kTogether : kWatchLook, entry, isComplete);
    if (entry && entry->isDeleted) content.erase(entry->key);
    if (entry && !entry->isDeleted) content[entry->key] = entry->value;
    if (!entry && isComplete && std::exchange(isNew, false)) onChange_(content);
    isNew = isNew || entry.has_value();
  }
  return result;
}

}  // namespace zelgate
