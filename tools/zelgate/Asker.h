// Takes requests and publications from NATS to the devices that are served here, and answers each with a
// verdict. Nothing is ever sent twice: what may have left is never repeated, and what comes too late is not
// sent at all.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Nats.h"
#include "ServedDevice.h"
#include "StallWatch.h"
#include "Subjects.h"

namespace zelgate {

class Asker {
 public:
  // `isLeaseValid` is asked right before each write to a device.
  Asker(Nats& nats, Subjects subjects, std::function<bool()> isLeaseValid);
  // As if Forget had been called for all.
  ~Asker();
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  // Takes what is for this device from now on.
  NatsResult Serve(const std::shared_ptr<ServedDevice>& device);
  // When it returns nothing for the device is being written; what waited is answered as not sent. Answers of
  // the device may still come.
  void Forget(const std::string& token);

  struct Figures {
    uint64_t answered = 0;
    uint64_t deviceErrors = 0;
    uint64_t notSent = 0;
    uint64_t mayBeSent = 0;
    uint64_t written = 0;
  };
  Figures GetFigures() const;

 private:
  struct Job {
    NatsMessage message;
    GateClock::time_point arrivedAt;
    GateClock::duration age{};  // before it arrived
  };
  // What waits for one device; one thread at a time works on it, so that a device that does not read holds up
  // no other.
  struct Line {
    std::shared_ptr<ServedDevice> device;
    NatsSubscription requests;
    NatsSubscription publications;
    std::deque<Job> jobs;
    bool isBusy = false;  // being worked on, or among the ready ones
    bool isGone = false;
  };
  struct Verdict {
    const char* text;
    std::string reason;
    uint32_t deviceError = 0;
  };

  void Put(const std::shared_ptr<Line>& line, NatsMessage message);
  void End(Line& line);
  void Work();
  void Tick();
  void Do(ServedDevice& device, Job& job);
  void Ask(ServedDevice& device, const Job& job, std::chrono::milliseconds left);
  void Publish(ServedDevice& device, const Job& job, std::chrono::milliseconds left);
  void OnAnswer(const std::string& reply, const zel::Answer& answer);
  void Refuse(const NatsMessage& message, const std::string& why);
  void Answer(const std::string& reply, const Verdict& verdict, zel::Bytes data);
  void Count(std::string_view verdict);

  Nats& nats_;
  const Subjects subjects_;
  const std::function<bool()> isLeaseValid_;
  std::atomic<bool> isGentle_ = true;  // subscriptions end gently; not after one took too long

  mutable std::mutex mutex_;  // guards the following
  std::condition_variable changed_;
  std::condition_variable idle_;
  std::map<std::string, std::shared_ptr<Line>> lines_;
  std::deque<std::shared_ptr<Line>> ready_;
  StallWatch stalls_{GateClock::now()};
  Figures figures_;
  bool isStopping_ = false;

  std::vector<std::thread> workers_;
  std::thread ticker_;
};

}  // namespace zelgate
