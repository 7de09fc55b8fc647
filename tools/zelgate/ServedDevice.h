// One device that this process serves: its connection, what is delivered of it, and the events that wait for
// the stream.
#pragma once

#include <libzel/libzel.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "DeviceTable.h"
#include "EventWriter.h"
#include "LinkEvent.h"
#include "Profile.h"
#include "RouteQueue.h"
#include "Subjects.h"

namespace zelgate {

// Made by std::make_shared. Any thread, but for Open, SetRoutes and Close, which one thread at a time calls.
class ServedDevice : public EventSource, public std::enable_shared_from_this<ServedDevice> {
 public:
  // `token` is the device's in subjects; `epoch` is of this serving of it and no other.
  ServedDevice(DeviceFacts facts, std::string token, Subjects subjects, EventWriter& writer,
               std::string holder, const std::string& epoch);
  ~ServedDevice() override;
  ServedDevice(const ServedDevice&) = delete;
  ServedDevice& operator=(const ServedDevice&) = delete;

  // Connects, in the background, and delivers these routes. Nothing after a Close.
  void Open(const Routes& routes);
  // Other routes from now on; those that stay are not touched.
  void SetRoutes(const Routes& routes);
  // Lets the device go. When it returns nothing of it is running; what came is still published.
  void Close();

  const DeviceFacts& Facts() const { return facts_; }
  const std::string& Token() const { return token_; }
  // The link at this moment.
  bool IsUp() const;
  // As it was last told, for the table of devices.
  DeviceLink Link() const;
  uint64_t Dropped() const;

  // For requests and publications: nothing after Close. It must not be kept.
  zel::Connection* Connection() { return connection_.IsOpen() ? &connection_ : nullptr; }
  std::string LastFailure() const { return connection_.LastFailure(); }

  std::optional<Event> NextEvent() override;
  void EventDone(const Event& event, const std::string& refusal) override;
  const std::string& MessagePrefix() const override { return prefix_; }

 private:
  void OnEvent(zel::Event event);
  void SubscribeFirst();
  void OnUp();
  void OnDown(const std::string& reason);
  void Tell(const std::string& kind, const std::string& reason);
  void TellLocked(const std::string& kind, const std::string& reason);
  void TellGapsLocked();
  void OnMessage(const Route& route, const zel::TopicMessage* topic, zel::Bytes data);
  void Accept(const Route& route, Event&& event);
  void Add(const Route& route);
  void Remove(const Route& route);
  LinkNote Note() const;
  Event LinkEvent(std::string text);

  const DeviceFacts facts_;
  const std::string token_;
  const Subjects subjects_;
  EventWriter& writer_;
  const std::string holder_;
  const std::string prefix_;

  std::mutex openMutex_;       // held while the connection is made, so that its thread waits for it
  bool isSubscribed_ = false;  // of the connection's first attempt
  zel::Connection connection_;

  mutable std::mutex mutex_;  // guards the following
  std::condition_variable changed_;
  Routes routes_;
  RouteQueue queue_;
  DeviceLink link_;
  bool isDownTold_ = false;
  bool isClosing_ = false;
};

}  // namespace zelgate
