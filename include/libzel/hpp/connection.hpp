/// @file
/// Connections: requests, topics, routed messages. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/answer.hpp>
#include <libzel/hpp/device_id.hpp>
#include <libzel/hpp/protection.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel {

/// What happens to a connection.
enum class Event : int32_t {
  kConnected = ZEL_EVENT_CONNECTED,        ///< a connect or reconnect succeeded
  kPending = ZEL_EVENT_PENDING,            ///< a connect or reconnect is about to be tried
  kDisconnected = ZEL_EVENT_DISCONNECTED,  ///< an established connection was lost or closed
  kFailed = ZEL_EVENT_FAILED,              ///< a connect or reconnect failed
};

/// A publication on a subscribed topic. A NUL follows the data and is not counted.
struct TopicMessage {
  std::string_view topic;  ///< as it was subscribed
  Bytes data;              ///< what was published
  uint32_t idGroup = 0;    ///< the publisher's first word
  uint32_t idOffset = 0;   ///< the publisher's second word
};

/// On the thread that connects: the creating one, one that reconnects or sends, or the receive thread.
using EventCallback = std::function<void(const DeviceId& device, Event event)>;
/// On the connection's receive thread, one at a time.
using TopicCallback = std::function<void(const TopicMessage& message)>;
/// On the connection's receive thread, one at a time.
using RouteCallback = std::function<void(uint16_t port, Bytes payload)>;

/// The two addressing words that go with every request.
struct Address {
  uint32_t idGroup = 0;   ///< the first; what it means is the server's business
  uint32_t idOffset = 0;  ///< the second
};

/// One of several publications that are sent together.
struct Publication {
  std::string_view topic;  ///< the topic
  Bytes data;              ///< what is published
  Address address;         ///< its addressing words
};

/// One connection to one server. An empty one (moved from, released, or made by default) refuses everything
/// with ZEL_E_HANDLE. The destructor stops the receive thread and waits for a callback that runs.
class Connection {
 public:
  /// How a connection is made.
  struct Options {
    Milliseconds timeout{1500};  ///< for the connect; less than 100 counts as 100
    EventCallback onEvent;       ///< may be empty; called from here on, first before Create returns
  };

  Connection() = default;
  ~Connection() { Release(); }
  /// Takes the other's connection over; the other one is empty afterwards.
  Connection(Connection&& other) noexcept
      : handle_(std::exchange(other.handle_, 0)), targets_(std::move(other.targets_)) {}
  /// Releases this one's connection and takes the other's over.
  Connection& operator=(Connection&& other) noexcept {
    if (this == &other) return *this;
    Release();
    handle_ = std::exchange(other.handle_, 0);
    targets_ = std::move(other.targets_);
    return *this;
  }

  /// Makes a connection and connects it (libzel_createInstanceEx). A server that is not there is no failure:
  /// sends and the receive thread connect later, and the events tell.
  static ValueOf<Connection> Create(const DeviceId& device) { return Create(device, Options()); }
  /// The same, with options.
  static ValueOf<Connection> Create(const DeviceId& device, Options options) {
    Connection made;
    if (detail::IsNegative(options.timeout)) return {Result(ZEL_E_PARAM), std::move(made)};
    made.targets_ = std::make_unique<Targets>();
    made.targets_->onEvent = std::move(options.onEvent);
    made.handle_ = libzel_createInstanceEx(&device.Raw(), 0, detail::Clamp<int32_t>(options.timeout),
                                           made.targets_->onEvent ? CallEvent : nullptr, made.targets_.get());
    const Result result(made.handle_ != 0 ? ZEL_OK : FailureCode());
    return {result, std::move(made)};
  }

  /// Makes a connection without connecting it (libzelx_createInstance): its receive thread, which runs from
  /// here on, connects and restores the link. `onEvent` may be empty; it may be called before this returns.
  static ValueOf<Connection> CreateInBackground(const DeviceId& device, EventCallback onEvent = {}) {
    Connection made;
    made.targets_ = std::make_unique<Targets>();
    made.targets_->onEvent = std::move(onEvent);
    made.handle_ = libzelx_createInstance(&device.Raw(), made.targets_->onEvent ? CallEvent : nullptr,
                                          made.targets_.get());
    const Result result(made.handle_ != 0 ? ZEL_OK : FailureCode());
    return {result, std::move(made)};
  }

  /// Stops the receive thread, waits for its callback, closes. Again does nothing.
  void Release() {
    if (handle_ != 0) (void)libzel_releaseInstance(handle_);  // always ZEL_E_HANDLE
    handle_ = 0;  // not before: until here a callback that runs may use this object
    targets_.reset();
  }

  /// True unless it is empty; it says nothing about the link.
  bool IsOpen() const { return handle_ != 0; }
  /// For the functions of libzel.h; still owned by this object.
  ZelInstance Handle() const { return handle_; }

  /// @name Options
  /// Of this connection alone. It begins with what the Library has for new ones.
  /// @{

  /// Sets one. ZEL_E_PARAM: out of range; nothing was set. ZEL_E_HANDLE: also for an option of the process.
  Result Set(Option option, int64_t value) {
    return IsOpen() ? detail::SetOption(handle_, option, value) : Result(ZEL_E_HANDLE);
  }
  Result Set(TimeOption option, Milliseconds time) {
    return IsOpen() ? detail::SetOption(handle_, option, time) : Result(ZEL_E_HANDLE);
  }
  /// What it is now.
  ValueOf<int64_t> Get(Option option) const {
    return IsOpen() ? detail::GetOption(handle_, option) : ValueOf<int64_t>{Result(ZEL_E_HANDLE), 0};
  }
  ValueOf<Milliseconds> Get(TimeOption option) const {
    return IsOpen() ? detail::GetOption(handle_, option)
                    : ValueOf<Milliseconds>{Result(ZEL_E_HANDLE), Milliseconds(0)};
  }
  /// @}

  /// @name The receive thread
  /// Topics, routed messages and answers come through it, and it restores a lost link.
  /// @{

  /// Starts it; again while it runs does nothing.
  Result StartLoop() { return Result(libzel_loop_start(handle_)); }
  /// Stops it, and waits for a callback that runs.
  Done StopLoop() { return Done(libzel_loop_stop(handle_)); }
  /// Connects again, whatever the present state, and subscribes the topics again. ZEL_E_DISCONNECTED when the
  /// server could not be reached.
  LinkResult Reconnect(Milliseconds timeout) {
    if (detail::IsNegative(timeout)) return Told(ZEL_E_PARAM);
    if (libzel_reconnect(handle_, detail::Clamp<int32_t>(timeout))) return Told(ZEL_OK);
    const int32_t code = libzel_get_errno();
    return Told(code == ZEL_E_HANDLE ? code : ZEL_E_DISCONNECTED);
  }
  /// Whether the link is up at this moment.
  bool IsUp() const { return IsOpen() && detail::IsUp(handle_); }
  /// What has been counted since the connection was made.
  ValueOf<libzelx_Stats> Stats() const {
    libzelx_Stats stats{};
    stats.size = sizeof stats;
    const Result result(IsOpen() ? libzelx_getStats(handle_, &stats) : ZEL_E_HANDLE);
    return {result, stats};
  }
  /// Sets the least time between two automatic reconnects, 2 s in a new connection. A negative one is refused
  /// (ZEL_E_PARAM).
  Result SetReconnectInterval(std::chrono::seconds interval) {
    if (interval < std::chrono::seconds::zero()) return Result(ZEL_E_PARAM);
    constexpr std::chrono::seconds::rep kMost = (std::numeric_limits<uint32_t>::max)();
    return Result(
        libzel_reconnect_delay_set(handle_, static_cast<uint32_t>((std::min)(interval.count(), kMost))));
  }
  /// @}

  /// @name Requests
  /// Any number of threads at the same time, beside topics, routed messages and publications; each gets its
  /// own answer. They start the receive thread.
  /// @{

  /// Sends a request and waits for its answer, which is whole, however long it is. The time-out is for all of
  /// it: connect, write, wait. From a callback on the receive thread it is refused (LIBZELX_E_WOULD_BLOCK).
  Answer Request(uint16_t port, Address address, Bytes data, Milliseconds timeout) {
    libzelx_Request request;
    if (const int32_t code = Fill(request, port, address, data, timeout)) return detail::Unsent(code);
    detail::AnswerRoom room;
    libzelx_Outcome outcome{};
    outcome.size = sizeof outcome;
    (void)libzelx_requestEx(handle_, &request, room.data(), room.kSize, &outcome);  // the outcome has it
    const bool isAnswered = outcome.result == ZEL_OK;
    return Answer(outcome, room.Copy(isAnswered ? (std::min)(outcome.answerLength, room.kSize) : 0),
                  detail::ReasonOf(handle_, outcome.result));
  }
  /// Sends a request and does not wait: the callback gets the answer, once. It may be called from a callback.
  /// When the code is not 0 the callback will not run.
  LinkValueOf<Ticket> RequestAsync(uint16_t port, Address address, Bytes data, Milliseconds timeout,
                                   AnswerCallback callback) {
    libzelx_Request request;
    Ticket ticket;
    if (!callback) return {Result(ZEL_E_PARAM), ticket};
    if (const int32_t code = Fill(request, port, address, data, timeout)) return {Result(code), ticket};
    auto& callbacks = detail::AnswerCallbacks::Instance();
    ticket.key_ = callbacks.Add({handle_, std::move(callback)});
    const Result result(libzelx_requestAsync(handle_, &request, detail::AnswerCallbacks::Call,
                                             reinterpret_cast<void*>(ticket.key_), &ticket.number_));
    if (!result) (void)callbacks.Take(ticket.key_);
    return {result, ticket, detail::ReasonOf(handle_, result.Code())};
  }
  /// The same with a future of the answer, which is there in every case, and ready at once when the request
  /// could not be sent, or was cancelled. Do not wait for it in a callback on the receive thread.
  PendingAnswer RequestAsync(uint16_t port, Address address, Bytes data, Milliseconds timeout) {
    auto promised = std::make_shared<detail::PromisedAnswer>();
    std::future<Answer> future = promised->Future();
    const auto asked = RequestAsync(port, address, data, timeout,
                                    [promised](Answer answer) { promised->Keep(std::move(answer)); });
    if (!asked) promised->Keep(detail::NotAsked(handle_, asked.Code()));
    return {std::move(future), *asked};
  }
  /// Gives up waiting for an answer; what was sent stays sent. True when the callback has not run and never
  /// will. False when it has run, after waiting for it if it runs on another thread, and for a ticket that is
  /// not this connection's.
  bool Cancel(const Ticket& ticket) {
    if (libzelx_cancel(handle_, ticket.number_) != ZEL_OK) return false;
    (void)detail::AnswerCallbacks::Instance().Take(ticket.key_);
    return true;
  }
  /// Why the link last failed, in one sentence; empty when it never did. It stays when the link comes back.
  std::string LastFailure() const { return detail::LastFailure(handle_); }
  /// @}

  /// @name Requests by hand
  /// One thread at a time, and not while the receive thread runs, which every call above starts: both would
  /// read the same stream.
  /// @{

  /// Sends a request. The time-out is for restoring a lost link, not for the write (libzel_sync_send).
  LinkResult Send(uint16_t port, Address address, Bytes data, Milliseconds timeout) {
    if (detail::IsNegative(timeout)) return Told(ZEL_E_PARAM);
    if (data.size() > kMaxPayload) return Told(kErrorTooLong);
    const int32_t sent =
        libzel_sync_send(handle_, port, address.idGroup, address.idOffset, data.data(),
                         static_cast<uint32_t>(data.size()), detail::Clamp<uint32_t>(timeout));
    return Told(sent > 0 ? ZEL_OK : FailureCode());
  }
  /// Waits for the answer to the last request and writes at most `size` bytes of it; the rest of a longer one
  /// is lost. The value is the number of bytes written, also when the server's answer carries an error, which
  /// is then the code.
  LinkValueOf<size_t> Receive(uint8_t* buffer, size_t size, Milliseconds timeout) {
    if (detail::IsNegative(timeout)) return {Result(ZEL_E_PARAM), 0};
    const auto room = static_cast<uint32_t>((std::min<size_t>)(size, (std::numeric_limits<int32_t>::max)()));
    const int32_t got = libzel_sync_recv(handle_, nullptr, buffer, room, detail::Clamp<uint32_t>(timeout));
    const int32_t error = libzel_get_errno();
    if (got >= 0) return {Result(error), (std::min)(static_cast<size_t>(got), size)};
    const int32_t code = error != ZEL_OK ? error : ZEL_E_DISCONNECTED;
    return {Result(code), 0, detail::ReasonOf(handle_, code)};
  }
  /// As above, into memory of its own, for up to 10485760 bytes.
  LinkValueOf<std::vector<uint8_t>> Receive(Milliseconds timeout) {
    detail::AnswerRoom room;
    const auto got = Receive(room.data(), room.kSize, timeout);
    return {got, room.Copy(*got), got.Reason()};
  }
  /// @}

  /// @name Topics
  /// @{

  /// Publishes the data on a topic.
  LinkResult Publish(std::string_view topic, Bytes data, Address address = {}) {
    if (data.size() > kMaxPayload || topic.size() > kMaxPayload ||
        data.size() + topic.size() + kPublicationOverhead > kMaxPayload) {
      return Told(kErrorTooLong);
    }
    return Told(libzel_publish(handle_, address.idGroup, address.idOffset, std::string(topic).c_str(),
                               data.data(), static_cast<uint32_t>(data.size())));
  }
  /// The same in bounded time, whatever it waits for. ZEL_E_TIMEOUT: another thread's write took it, or the
  /// peer did not read the whole frame; then the link is dropped.
  LinkResult PublishWithin(std::string_view topic, Bytes data, Milliseconds timeout, Address address = {}) {
    if (detail::IsNegative(timeout)) return Told(ZEL_E_PARAM);
    if (data.size() > kMaxPayload) return Told(kErrorTooLong);
    return Told(libzelx_publish(handle_, address.idGroup, address.idOffset, std::string(topic).c_str(),
                                data.data(), static_cast<uint32_t>(data.size()),
                                detail::Clamp<uint32_t>(timeout)));
  }
  /// Publishes them all, in order, packed into few writes, in bounded time: far quicker than one call for
  /// each. The value is how many were handed to the system whole, also on failure. kErrorTooLong: one does
  /// not fit, and none was sent.
  LinkValueOf<size_t> PublishMany(const std::vector<Publication>& all, Milliseconds timeout) {
    if (detail::IsNegative(timeout)) return {Result(ZEL_E_PARAM), 0};
    std::vector<std::string> topics;
    std::vector<libzelx_Message> messages;
    topics.reserve(all.size());  // so that none moves
    for (const Publication& one : all) {
      if (one.data.size() > kMaxPayload) return {Result(kErrorTooLong), 0};
      topics.emplace_back(one.topic);
      messages.push_back({sizeof(libzelx_Message), topics.back().c_str(), one.address.idGroup,
                          one.address.idOffset, one.data.data(), static_cast<uint32_t>(one.data.size()), 0});
    }
    size_t sent = 0;
    const int32_t code = libzelx_publishMany(handle_, messages.data(), messages.size(),
                                             detail::Clamp<uint32_t>(timeout), &sent);
    return {Result(code), sent, detail::ReasonOf(handle_, code)};
  }
  /// Waits until the peer's system has acknowledged all that was written. ZEL_E_TIMEOUT: not yet.
  /// ZEL_E_PROTOCOL: the system cannot tell (Windows).
  LinkResult Flush(Milliseconds timeout) {
    return Told(detail::IsNegative(timeout) ? ZEL_E_PARAM
                                            : libzelx_flush(handle_, detail::Clamp<uint32_t>(timeout)));
  }
  /// Subscribes, or gives a subscribed topic another callback. Start the receive thread to hear something.
  /// When the send fails the code says so, and the subscription stays and is sent again with the next
  /// connect.
  LinkResult Subscribe(std::string_view topic, TopicCallback callback) {
    if (targets_ == nullptr) return Told(ZEL_E_HANDLE);
    const std::string name(topic);
    TopicSlot& slot = targets_->TopicOf(name);
    const auto earlier = slot.Exchange(std::move(callback));
    return Told(libzel_subscribe(handle_, name.c_str(), CallTopic, &slot));
  }
  /// From here on no call of the callback begins; one that runs is not waited for.
  LinkResult Unsubscribe(std::string_view topic) {
    if (targets_ == nullptr) return Told(ZEL_E_HANDLE);
    const std::string name(topic);
    const auto earlier = targets_->TopicOf(name).Exchange(nullptr);
    return Told(libzel_unsubscribe(handle_, name.c_str()));
  }
  /// @}

  /// @name Routed messages
  /// @{

  /// Hands the messages on a port (501 to 65535) to a callback. A port that has one keeps it (ZEL_E_ROUTER).
  Result Route(uint16_t port, RouteCallback callback) {
    if (targets_ == nullptr) return Result(ZEL_E_HANDLE);
    return targets_->Route(handle_, port, std::move(callback));
  }
  /// From here on no call of the callback begins; one that runs is not waited for. Ports up to 500, which are
  /// the library's own, are refused (ZEL_E_RESERVED_PORT).
  Result Unroute(uint16_t port) {
    if (targets_ == nullptr) return Result(ZEL_E_HANDLE);
    return targets_->Unroute(handle_, port);
  }
  /// @}

 private:
  using TopicSlot = detail::Slot<void(const TopicMessage&)>;
  using RouteSlot = detail::Slot<void(uint16_t, Bytes)>;

  static constexpr size_t kPublicationOverhead = 38;
  static constexpr uint16_t kLastReservedPort = 500;

  /// What the library's user pointers point to. Slots are made once for every topic and port and stay where
  /// they are until the connection is released, after its thread, so a late call finds at worst an empty one.
  struct Targets {
    EventCallback onEvent;
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<TopicSlot>> topics;
    std::map<uint16_t, std::unique_ptr<RouteSlot>> routes;

    TopicSlot& TopicOf(const std::string& topic) {
      const std::lock_guard<std::mutex> lock(mutex);
      auto& slot = topics[topic.c_str()];  // as the library sees it: up to the first NUL
      if (slot == nullptr) slot = std::make_unique<TopicSlot>();
      return *slot;
    }
    /// These two calls of the library neither send nor call back, so the lock may be held over them.
    Result Route(ZelInstance handle, uint16_t port, RouteCallback callback) {
      RouteSlot::Held earlier;
      const std::lock_guard<std::mutex> lock(mutex);
      auto& slot = routes[port];
      if (slot == nullptr) slot = std::make_unique<RouteSlot>();
      if (slot->Get() != nullptr) return Result(ZEL_E_ROUTER);
      (void)slot->Exchange(std::move(callback));
      const Result result(libzel__registerRouterEvent(handle, port, CallRoute, slot.get()));
      if (!result) earlier = slot->Exchange(nullptr);
      return result;
    }
    Result Unroute(ZelInstance handle, uint16_t port) {
      if (port <= kLastReservedPort) return Result(ZEL_E_RESERVED_PORT);
      RouteSlot::Held earlier;
      const std::lock_guard<std::mutex> lock(mutex);
      const auto slot = routes.find(port);
      if (slot != routes.end()) earlier = slot->second->Exchange(nullptr);
      return Result(libzel__unregisterRouterEvent(handle, port));
    }
  };

  /// 0, or why it cannot be sent.
  static int32_t Fill(libzelx_Request& request, uint16_t port, Address address, Bytes data,
                      Milliseconds timeout) {
    if (detail::IsNegative(timeout)) return ZEL_E_PARAM;
    if (data.size() > kMaxPayload) return kErrorTooLong;
    request = {};
    request.size = sizeof request;
    request.port = port;
    request.group = address.idGroup;
    request.offset = address.idOffset;
    request.data = data.data();
    request.length = static_cast<uint32_t>(data.size());
    request.timeoutMs = detail::Clamp<uint32_t>(timeout);
    return ZEL_OK;
  }

  LinkResult Told(int32_t code) const { return LinkResult(Result(code), detail::ReasonOf(handle_, code)); }

  static int32_t FailureCode() {
    const int32_t code = libzel_get_errno();
    return code != ZEL_OK ? code : ZEL_E_DISCONNECTED;
  }

  static void CallEvent(const ZelDeviceId* device, void* user, int32_t event) {
    const auto* const targets = static_cast<const Targets*>(user);
    (void)detail::Contain([&] { targets->onEvent(DeviceId(*device), static_cast<Event>(event)); });
  }
  static void CallTopic(uint32_t idGroup, uint32_t idOffset, const char* topic, const uint8_t* data,
                        uint32_t length, void* user) {
    (void)detail::Contain([&] {
      const auto callback = static_cast<TopicSlot*>(user)->Get();
      if (callback != nullptr) (*callback)({topic, Bytes(data, length), idGroup, idOffset});
    });
  }
  static void CallRoute(uint16_t port, const uint8_t* payload, uint32_t length, void* user) {
    (void)detail::Contain([&] {
      const auto callback = static_cast<RouteSlot*>(user)->Get();
      if (callback != nullptr) (*callback)(port, Bytes(payload, length));
    });
  }

  ZelInstance handle_ = 0;
  std::unique_ptr<Targets> targets_;
};

}  // namespace zel
