// A table that any thread may change and one thread reads: for the reader, looking up the same entry again costs no lock
// as long as nothing has changed.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>

#include "utils/Mutex.h"

namespace libzel {

template <typename Key, typename Value>
class LookupTable {
 public:
  using Map = std::map<Key, Value, std::less<>>;
  struct Entry {
    Key key{};
    Value value{};
  };

  // False when the key has an entry, which stays.
  bool Insert(const Key& key, const Value& value) {
    const MutexLock lock(mutex_);
    return NoteChange(entries_.emplace(key, value).second);
  }
  // Inserts, or replaces the key's entry.
  void Set(const Key& key, const Value& value) {
    const MutexLock lock(mutex_);
    entries_.insert_or_assign(key, value);
    (void)NoteChange(true);
  }
  // False when the key has no entry.
  bool Erase(const Key& key) {
    const MutexLock lock(mutex_);
    return NoteChange(entries_.erase(key) != 0);
  }
  bool Contains(const Key& key) {
    const MutexLock lock(mutex_);
    return entries_.contains(key);
  }
  Map Copy() {
    const MutexLock lock(mutex_);
    return entries_;
  }

  // The reader's alone: the entry as it is now, good until the reader's next look; null when there is none.
  template <typename LikeKey>
  const Entry* Find(const LikeKey& key) {
    if (foundAt_ == changes_.load(std::memory_order_acquire) && found_.key == key) return &found_;
    const MutexLock lock(mutex_);
    const auto entry = entries_.find(key);
    if (entry == entries_.end()) return nullptr;
    found_ = {entry->first, entry->second};
    foundAt_ = changes_.load(std::memory_order_relaxed);
    return &found_;
  }

 private:
  bool NoteChange(bool isChanged) ZEL_REQUIRES(mutex_) {
    if (isChanged) changes_.fetch_add(1, std::memory_order_release);
    return isChanged;
  }

  Mutex mutex_;
  Map entries_ ZEL_GUARDED_BY(mutex_);
  std::atomic<uint64_t> changes_{0};

  // The reader's own.
  Entry found_;
  uint64_t foundAt_ = UINT64_MAX;
};

}  // namespace libzel
