// Callbacks that remember what they were called with, and waits for it. Any thread may use them. Time-outs
// are in ms.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "libzel/libzel.h"
#include "support/ElapsedTime.h"
#include "support/Wire.h"

namespace zeltest {

inline constexpr int kRecorderPatienceMs = 10000;

template <typename Item>
class Recorder {
 public:
  void Add(Item item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    added_.notify_all();
  }

  std::vector<Item> All() const {
    const std::lock_guard lock(mutex_);
    return items_;
  }
  size_t Count() const {
    const std::lock_guard lock(mutex_);
    return items_.size();
  }

  // Whether at least `count` items are there in time.
  bool Await(size_t count, int timeoutMs = kRecorderPatienceMs) const {
    return AwaitThat([count](const std::vector<Item>& items) { return items.size() >= count; }, timeoutMs);
  }
  template <typename Condition>
  bool AwaitThat(Condition condition, int timeoutMs = kRecorderPatienceMs) const {
    std::unique_lock lock(mutex_);
    return added_.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs),
                             [&] { return condition(items_); });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable added_;
  std::vector<Item> items_;
};

struct SeenEvent {
  int32_t event;
  ZelDeviceId device;
  std::thread::id thread;
  std::chrono::steady_clock::time_point when;
};

class EventRecorder : public Recorder<SeenEvent> {
 public:
  static void Callback(const ZelDeviceId* device, void* user, int32_t event) {
    static_cast<EventRecorder*>(user)->Add(
        {event, *device, std::this_thread::get_id(), std::chrono::steady_clock::now()});
  }

  std::vector<int32_t> Numbers() const {
    std::vector<int32_t> numbers;
    for (const SeenEvent& seen : All()) numbers.push_back(seen.event);
    return numbers;
  }
  bool AwaitEvent(int32_t event, size_t times = 1, int timeoutMs = kRecorderPatienceMs) const {
    return AwaitThat(
        [=](const std::vector<SeenEvent>& events) {
          size_t count = 0;
          for (const SeenEvent& seen : events) count += seen.event == event ? 1U : 0U;
          return count >= times;
        },
        timeoutMs);
  }
};

struct SeenTopic {
  uint32_t idGroup;
  uint32_t idOffset;
  std::string topic;
  Bytes data;
  bool endsWithNul;
  std::thread::id thread;
};

class TopicRecorder : public Recorder<SeenTopic> {
 public:
  static void Callback(uint32_t idGroup, uint32_t idOffset, const char* topic, const uint8_t* data,
                       uint32_t length, void* user) {
    static_cast<TopicRecorder*>(user)->Add({idGroup, idOffset, topic, Bytes(data, data + length),
                                            data[length] == 0, std::this_thread::get_id()});
  }
};

struct SeenMessage {
  uint16_t port;
  Bytes payload;
  std::thread::id thread;
};

class MessageRecorder : public Recorder<SeenMessage> {
 public:
  static void Callback(uint16_t port, const uint8_t* payload, uint32_t length, void* user) {
    static_cast<MessageRecorder*>(user)->Add(
        {port, Bytes(payload, payload + length), std::this_thread::get_id()});
  }
};

// Looks again and again until the condition holds or the time has run out.
template <typename Condition>
bool Eventually(Condition condition, int timeoutMs = kRecorderPatienceMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace zeltest
