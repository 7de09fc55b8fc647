// A pool of reusable objects: one block of N slots with a free list, and the heap when they are all taken, so
// running out is never an error. Any thread may take and return objects.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <unordered_map>

#include "utils/Log.h"
#include "utils/Mutex.h"

namespace libzel {

template <typename T, int32_t N>
class CObjectPool {
 public:
  static constexpr int32_t kHeapIndex = -1;

  struct Slot {
    Slot* next = nullptr;
    int32_t index = kHeapIndex;
    bool pooled = false;
    bool inUse = false;
    T object{};
  };

  CObjectPool() { initPool(); }

  // Again on a pool that has its block only logs.
  void initPool() {
    ZEL_LOG_AS(kInitPool, kInfo, "ObjectPool init pool");
    if (!MakeBlock()) ZEL_LOG_AS(kInitPool, kError, "ObjectPool Memory already init");
  }

  // A slot in use, the caller's until it is returned. Its object is as the last user left it.
  Slot* Take() {
    const MutexLock lock(mutex_);
    Slot* slot = free_;
    if (slot != nullptr) {
      free_ = slot->next;
    } else {
      auto fresh = std::make_unique<Slot>();
      slot = fresh.get();
      heap_.emplace(slot, std::move(fresh));
    }
    slot->inUse = true;
    return slot;
  }

  // Returning a slot that is not in use does nothing. `slot` is one of this pool's block
  // or a heap slot in use.
  void Return(Slot* slot) {
    const MutexLock lock(mutex_);
    if (const auto owned = heap_.find(slot); owned != heap_.end()) {
      heap_.erase(owned);
      return;
    }
    if (!IsPooled(slot) || !slot->inUse) return;
    slot->inUse = false;
    slot->next = free_;
    free_ = slot;
  }

 private:
  static constexpr std::string_view kInitPool = "CObjectPool<ZelResponse,100>::initPool";

  // False when there is one.
  bool MakeBlock() {
    const MutexLock lock(mutex_);
    if (block_ != nullptr) return false;
    block_ = std::make_unique<std::array<Slot, N>>();
    for (int32_t index = N - 1; index >= 0; --index) {
      Slot& slot = (*block_)[static_cast<size_t>(index)];
      slot.index = index;
      slot.pooled = true;
      slot.next = free_;
      free_ = &slot;
    }
    return true;
  }

  bool IsPooled(const Slot* slot) const ZEL_REQUIRES(mutex_) {
    return slot >= block_->data() && slot < block_->data() + N;
  }

  Mutex mutex_;
  std::unique_ptr<std::array<Slot, N>> block_ ZEL_GUARDED_BY(mutex_);
  Slot* free_ ZEL_GUARDED_BY(mutex_) = nullptr;
  std::unordered_map<Slot*, std::unique_ptr<Slot>> heap_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
