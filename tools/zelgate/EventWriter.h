// Publishes the events of all devices into the site's stream: many under way at a time, each until the stream
// has acknowledged it, again and under the same name when the acknowledgement does not come.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "LeaseTerm.h"
#include "Nats.h"
#include "Reminder.h"
#include "RouteQueue.h"

namespace zelgate {

// Where events come from. The writer keeps it alive while something of it is waiting or under way.
class EventSource {
 public:
  virtual ~EventSource() = default;
  // The next event that may go; none when nothing may. Any thread.
  virtual std::optional<Event> NextEvent() = 0;
  // The stream has it, or will never (`refusal` says why, to be told as a gap). Any thread.
  virtual void EventDone(const Event& event, const std::string& refusal) = 0;
  // Together with the event's number, what the stream knows an event by: never used twice.
  virtual const std::string& MessagePrefix() const = 0;

 private:
  friend class EventWriter;
  // Wishes that its events be taken, which one thread at a time does.
  std::atomic<uint32_t> pumps_ = 0;
};

class EventWriter {
 public:
  // `window` events at most are under way.
  EventWriter(Nats& nats, int window);
  ~EventWriter();
  EventWriter(const EventWriter&) = delete;
  EventWriter& operator=(const EventWriter&) = delete;

  // Once, with a connection that has been started.
  NatsResult Start();
  // The source has something; what may go goes. Does not wait.
  void Pump(const std::shared_ptr<EventSource>& source);
  // When NATS is there again.
  void Resume();
  // Waits until nothing is under way or waits for its turn. False when the time is over before.
  bool Drain(std::chrono::milliseconds timeout);

  // Data that are longer can't be published.
  int64_t MostData() const;
  struct Figures {
    uint64_t acknowledged = 0;
    uint64_t repeated = 0;  // published again for want of an acknowledgement
    uint64_t refused = 0;
    size_t underWay = 0;
    size_t window = 0;
  };
  Figures GetFigures() const;

 private:
  struct Slot {
    std::shared_ptr<EventSource> source;  // null: free
    Event event;
    std::shared_ptr<const NatsMessage> message;
    uint32_t use = 0;  // so that a late acknowledgement is not taken for another event's
    uint64_t order = 0;
    int attempts = 0;
    GateClock::time_point dueAt;  // then it is published again
  };

  std::optional<size_t> TakeSlot(const std::shared_ptr<EventSource>& source);
  void FreeSlot(size_t index);
  void PumpOnce(const std::shared_ptr<EventSource>& source);
  void PumpWaiting();
  void PumpThoseThatWait();
  void Fill(size_t index, Event&& event);
  void Publish(size_t index);
  void OnAcknowledgement(const NatsMessage& message);
  std::optional<size_t> SlotOf(std::string_view subject) const;
  void Finish(size_t index, const std::string& refusal);
  void Postpone(size_t index, const std::string& why);
  void RepeatDue();
  void Run();

  Nats& nats_;
  const size_t window_;
  std::string inbox_;
  std::atomic<uint32_t> waitingPumps_ = 0;
  NatsSubscription acknowledgements_;

  mutable std::mutex mutex_;         // guards the following
  std::condition_variable changed_;  // for the writer's thread
  std::condition_variable idle_;     // nothing is under way
  std::vector<Slot> slots_;
  std::vector<size_t> free_;
  std::deque<std::shared_ptr<EventSource>> waiting_;  // for a slot, or for NATS; each once
  std::unordered_set<const EventSource*> isWaiting_;
  Figures figures_;
  uint64_t lastOrder_ = 0;
  bool isStopping_ = false;
  bool wantsAll_ = false;  // publish again what is under way: the connection is a new one

  Reminder reminder_;
  std::thread thread_;
};

}  // namespace zelgate
