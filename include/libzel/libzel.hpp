// libzel for C++17 and later: the functions of libzel.h as objects that clean up after themselves. Header
// only; link the same library as a C program does. What a function does to the wire, and its every code, is
// said in libzel.h.
//
// Conventions:
//
//  1. Errors are values. A call gives a zel::Result, or a zel::ValueOf<T> that is one with a value: a code,
//  its text,
//     and true in a condition when the code is 0. Nothing here throws but for lack of memory
//     (std::bad_alloc).
//  2. Threads. Every member function may be called from any thread, but for what libzel.h says of Receive.
//  Making,
//     moving, releasing and destroying an object are not for use beside other calls on the same object.
//  3. Callbacks are std::functions. They are copied, and a copy lives until it can no longer be running: one
//  that is
//     replaced, unsubscribed or unrouted while it runs is destroyed when it returns. Whatever it refers to by
//     reference must live until the receive thread is stopped (StopLoop, Release, the destructor); those wait
//     for a callback.
//  4. Never stop, release or destroy a Connection, nor the Library, from a callback: it may run on the very
//  thread that
//     is waited for, and then the process ends.
//  5. An exception that leaves a callback never reaches the library: it is given to the handler that was set
//  with
//     zel::SetExceptionHandler, on the callback's thread. Without a handler it ends the process
//     (std::terminate). A file transfer whose callback threw is stopped.
//  6. Views (zel::Bytes, std::string_view) that a callback is given are valid during the call only.
#ifndef LIBZEL_LIBZEL_HPP
#define LIBZEL_LIBZEL_HPP

#include <libzel/libzel.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace zel {

using Milliseconds = std::chrono::milliseconds;

// ---- Results ----------------------------------------------------------------------------------------------

// Codes that this header adds to those of libzel.h.
inline constexpr int32_t kErrorTooLong = 4109;  // the data does not fit into a message; nothing was sent
inline constexpr int32_t kErrorCancelled = -2;  // a file transfer was stopped by its callback or by Cancel

// The most payload bytes that a request carries.
inline constexpr size_t kMaxPayload = 10485760 - 29;

// A code and its text. Small: pass it by value.
class [[nodiscard]] Result {
 public:
  constexpr Result() = default;
  constexpr explicit Result(int32_t code) : code_(code) {}

  constexpr bool IsOk() const { return code_ == ZEL_OK; }
  constexpr explicit operator bool() const { return IsOk(); }
  constexpr int32_t Code() const { return code_; }
  // The constant English text of the code.
  const char* Text() const {
    return code_ == kErrorCancelled ? "transfer cancelled" : libzel_strerror(code_);
  }
  // Says on purpose that a result does not matter.
  constexpr void Ignore() const {}

  friend constexpr bool operator==(Result left, Result right) { return left.code_ == right.code_; }
  friend constexpr bool operator!=(Result left, Result right) { return left.code_ != right.code_; }

 private:
  int32_t code_ = ZEL_OK;
};

// A result with a value. The value of a failed call is empty (T{}) unless the call says otherwise.
template <typename T>
class [[nodiscard]] ValueOf : public Result {
 public:
  ValueOf(Result result, T value) : Result(result), value_(std::move(value)) {}

  T& operator*() & { return value_; }
  const T& operator*() const& { return value_; }
  T&& operator*() && { return std::move(value_); }
  T* operator->() { return &value_; }
  const T* operator->() const { return &value_; }

 private:
  T value_;
};

// ---- Bytes ------------------------------------------------------------------------------------------------

// A view of bytes that somebody else owns (a std::span takes one as it is), made from anything that holds
// bytes or characters in a row: a string, a literal (without its NUL), a std::vector<uint8_t>, a std::array,
// a std::span, or a pointer and a size.
class Bytes {
 public:
  constexpr Bytes() = default;
  constexpr Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  Bytes(const char* text) : Bytes(std::string_view(text)) {}
  Bytes(std::string_view text) : data_(reinterpret_cast<const uint8_t*>(text.data())), size_(text.size()) {}
  template <typename Container,
            typename Item = std::remove_pointer_t<decltype(std::declval<Container&>().data())>,
            typename = std::enable_if_t<sizeof(Item) == 1 && std::is_trivially_copyable_v<Item> &&
                                        !std::is_same_v<std::decay_t<Container>, Bytes>>>
  Bytes(const Container& container)
      : data_(reinterpret_cast<const uint8_t*>(container.data())), size_(container.size()) {}

  constexpr const uint8_t* data() const { return data_; }
  constexpr size_t size() const { return size_; }
  constexpr bool empty() const { return size_ == 0; }
  constexpr const uint8_t* begin() const { return data_; }
  constexpr const uint8_t* end() const { return data_ + size_; }
  constexpr uint8_t operator[](size_t index) const { return data_[index]; }

  std::string_view AsText() const { return {reinterpret_cast<const char*>(data_), size_}; }
  std::vector<uint8_t> Copy() const { return {begin(), end()}; }

 private:
  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

// ---- Exceptions in callbacks ------------------------------------------------------------------------------

// Called on the thread of a callback that threw; must not throw itself.
using ExceptionHandler = std::function<void(std::exception_ptr)>;

namespace detail {

// A replaceable callback. Whoever calls it holds a copy of its own, so that it is never destroyed while it
// runs.
template <typename Signature>
class Slot {
 public:
  using Function = std::function<Signature>;
  using Held = std::shared_ptr<const Function>;

  // Gives back what was there, for the caller to let go of outside every lock: its destructor may be
  // anything.
  Held Exchange(Function function) {
    Held fresh = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    const std::lock_guard<std::mutex> lock(mutex_);
    std::swap(function_, fresh);
    return fresh;
  }
  Held Get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return function_;
  }

 private:
  mutable std::mutex mutex_;
  Held function_;
};

// The objects below are never destroyed: the library's own threads run until the process ends.
inline Slot<void(std::exception_ptr)>& ExceptionSlot() {
  static auto* const slot = new Slot<void(std::exception_ptr)>;
  return *slot;
}

// Runs a piece of a callback; false when it threw.
template <typename Function>
bool Contain(Function&& function) noexcept {
  try {
    function();
    return true;
  } catch (...) {
    const auto handler = ExceptionSlot().Get();
    if (handler == nullptr) std::terminate();
    (*handler)(std::current_exception());
    return false;
  }
}

template <typename Number>
Number Clamp(Milliseconds time) {
  using Limits = std::numeric_limits<Number>;
  if (time.count() <= 0) return 0;
  if (static_cast<uint64_t>(time.count()) > static_cast<uint64_t>((Limits::max)())) return (Limits::max)();
  return static_cast<Number>(time.count());
}

}  // namespace detail

// Sets the handler for all callbacks of this program; an empty one brings back std::terminate.
inline void SetExceptionHandler(ExceptionHandler handler) {
  (void)detail::ExceptionSlot().Exchange(std::move(handler));
}

// ---- Device identifiers -----------------------------------------------------------------------------------

// A device's identifier: six bytes, ordered from the first to the last. Zero by default.
class DeviceId {
 public:
  constexpr DeviceId() = default;
  constexpr DeviceId(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5)
      : id_{{b0, b1, b2, b3, b4, b5}} {}
  constexpr explicit DeviceId(const ZelDeviceId& id) : id_(id) {}

  // Six decimals from 0 to 255 joined by ".", and nothing else. Stricter than libzel_makeZelDeviceId, which
  // takes anything.
  static std::optional<DeviceId> Parse(std::string_view text) {
    DeviceId parsed;
    for (size_t i = 0; i < 6; ++i) {
      const size_t size = (std::min)(text.find('.'), text.size());
      if ((i < 5) == (size == text.size()) || !ParseByte(text.substr(0, size), parsed.id_.bytes[i]))
        return {};
      text.remove_prefix((std::min)(size + 1, text.size()));
    }
    return parsed;
  }
  // This machine's identifier (libzel_getLocalZelDeviceId).
  static ValueOf<DeviceId> Local() {
    DeviceId id;
    const Result result(libzel_getLocalZelDeviceId(&id.id_));
    return {result, id};
  }
  // Asks the host (dotted IPv4) for its identifier (libzel_getRemoteZelDeviceId).
  static ValueOf<DeviceId> Of(const std::string& host, Milliseconds timeout) {
    DeviceId id;
    const Result result(libzel_getRemoteZelDeviceId(host.c_str(), detail::Clamp<int32_t>(timeout), &id.id_));
    return {result, result ? id : DeviceId()};
  }
  // Gives the host this identifier (libzel_setRemoteZelDeviceId).
  Result AssignTo(const std::string& host, Milliseconds timeout) const {
    return Result(
        libzel_setRemoteZelDeviceId(host.c_str(), ToString().c_str(), detail::Clamp<int32_t>(timeout)));
  }

  std::string ToString() const {
    std::string text;
    for (const uint8_t byte : id_.bytes) {
      if (!text.empty()) text += '.';
      text += std::to_string(byte);
    }
    return text;
  }
  constexpr const ZelDeviceId& Raw() const { return id_; }

  friend bool operator==(const DeviceId& left, const DeviceId& right) { return left.Compare(right) == 0; }
  friend bool operator!=(const DeviceId& left, const DeviceId& right) { return left.Compare(right) != 0; }
  friend bool operator<(const DeviceId& left, const DeviceId& right) { return left.Compare(right) < 0; }
  friend bool operator>(const DeviceId& left, const DeviceId& right) { return left.Compare(right) > 0; }
  friend bool operator<=(const DeviceId& left, const DeviceId& right) { return left.Compare(right) <= 0; }
  friend bool operator>=(const DeviceId& left, const DeviceId& right) { return left.Compare(right) >= 0; }

 private:
  static bool ParseByte(std::string_view digits, uint8_t& byte) {
    if (digits.empty() || digits.size() > 3) return false;
    unsigned value = 0;
    for (const char digit : digits) {
      if (digit < '0' || digit > '9') return false;
      value = value * 10 + static_cast<unsigned>(digit - '0');
    }
    byte = static_cast<uint8_t>(value);
    return value <= 255;
  }
  int Compare(const DeviceId& other) const {
    return std::memcmp(id_.bytes, other.id_.bytes, sizeof id_.bytes);
  }

  ZelDeviceId id_{};
};

// ---- The library ------------------------------------------------------------------------------------------

// A device that answered a scan.
struct Device {
  std::string address;          // dotted IPv4, where the answer came from
  std::optional<DeviceId> id;   // empty when the device's own text is no identifier
  std::string idText;           // as the device wrote it
  std::string hardwareAddress;  // of the frame with that address; may be empty
  std::string hostName, serialNumber, secondSerialNumber;
  std::string protocolVersion, runtimeVersion, systemVersion;
};

// On the library's scan thread; discovery waits while it runs.
using DeviceCallback = std::function<void(const Device&)>;

namespace detail {

inline Device ToDevice(const ZelScanResult& raw) {
  Device device;
  device.address = raw.ip;
  device.id = DeviceId::Parse(raw.zelDeviceId);
  device.idText = raw.zelDeviceId;
  device.hardwareAddress = raw.frameMacAddr;
  device.hostName = raw.hostName;
  device.serialNumber = raw.serialNo;
  device.secondSerialNumber = raw.sn;
  device.protocolVersion = raw.zelVersion;
  device.runtimeVersion = raw.rteVersion;
  device.systemVersion = raw.vorlinVersion;
  return device;
}

// The one scan callback of the program.
class ScanTarget {
 public:
  static ScanTarget& Instance() {
    static auto* const target = new ScanTarget;
    return *target;
  }

  // Waits for a call of the earlier callback that is going on, except on its own thread.
  void Set(DeviceCallback callback) {
    const auto earlier = slot_.Exchange(std::move(callback));
    std::unique_lock<std::mutex> lock(mutex_);
    if (runner_ == std::this_thread::get_id()) return;
    const uint64_t present = calls_;
    ended_.wait(lock, [&] { return runner_ == std::thread::id() || calls_ != present; });
  }

  static void Call(ZelScanResult raw, void* /*user*/) {
    ScanTarget& target = Instance();
    target.Enter();
    (void)Contain([&] {
      if (const auto callback = target.slot_.Get()) (*callback)(ToDevice(raw));
    });
    target.Leave();
  }

 private:
  void Enter() {
    const std::lock_guard<std::mutex> lock(mutex_);
    runner_ = std::this_thread::get_id();
    ++calls_;
  }
  void Leave() {
    const std::lock_guard<std::mutex> lock(mutex_);
    runner_ = std::thread::id();
    ended_.notify_all();
  }

  Slot<void(const Device&)> slot_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::thread::id runner_;
  uint64_t calls_ = 0;
};

}  // namespace detail

struct Version {
  uint32_t majorNumber = 0;
  uint32_t minorNumber = 0;
  uint32_t patchNumber = 0;
};

// The library, set up (libzel_init) for the life of this object: make one before anything else, and let it go
// after every Connection. Discovery's thread goes on until the process ends; only its callback ends with this
// object.
class Library {
 public:
  Library() : start_(libzel_init()) {}
  ~Library() {
    StopScan().Ignore();
    OnDevice(nullptr).Ignore();
    (void)libzel_destory();  // always 0
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // How libzel_init ended.
  Result Start() const { return start_; }

  static Version GetVersion() {
    Version version{};
    (void)libzel_version(&version.majorNumber, &version.minorNumber, &version.patchNumber);  // always 0
    return version;
  }

  // Sets, replaces or (empty) removes the callback for found devices. When it returns the earlier callback
  // does not run any more, unless this is called from that callback.
  Result OnDevice(DeviceCallback callback) {
    detail::ScanTarget::Instance().Set(std::move(callback));
    return Result(libzel_registerZelScanEvent(detail::ScanTarget::Call, nullptr));
  }
  // Ask all networks every 1 to 2 seconds from now on, or no longer. A device is reported each time that it
  // answers.
  Result StartScan() { return Result(libzel_startZelScan()); }
  Result StopScan() { return Result(libzel_stopZelScan()); }

 private:
  Result start_;
};

// ---- Connections ------------------------------------------------------------------------------------------

enum class Event : int32_t {
  kConnected = ZEL_EVENT_CONNECTED,
  kPending = ZEL_EVENT_PENDING,
  kDisconnected = ZEL_EVENT_DISCONNECTED,
  kFailed = ZEL_EVENT_FAILED,
};

// A publication on a subscribed topic. A NUL follows the data and is not counted.
struct TopicMessage {
  std::string_view topic;
  Bytes data;
  uint32_t idGroup = 0;
  uint32_t idOffset = 0;
};

// On the thread that connects: the creating one, one that reconnects or sends, or the receive thread.
using EventCallback = std::function<void(const DeviceId& device, Event event)>;
// On the connection's receive thread, one at a time.
using TopicCallback = std::function<void(const TopicMessage& message)>;
using RouteCallback = std::function<void(uint16_t port, Bytes payload)>;

// The two addressing words that go with every request.
struct Address {
  uint32_t idGroup = 0;
  uint32_t idOffset = 0;
};

// One connection to one server. An empty one (moved from, released, or made by default) refuses everything
// with ZEL_E_HANDLE. The destructor stops the receive thread and waits for a callback that runs.
class Connection {
 public:
  struct Options {
    Milliseconds timeout{1500};  // for the connect; less than 100 counts as 100
    EventCallback onEvent;       // may be empty; called from here on, first before Create returns
  };

  Connection() = default;
  ~Connection() { Release(); }
  Connection(Connection&& other) noexcept
      : handle_(std::exchange(other.handle_, 0)), targets_(std::move(other.targets_)) {}
  Connection& operator=(Connection&& other) noexcept {
    if (this == &other) return *this;
    Release();
    handle_ = std::exchange(other.handle_, 0);
    targets_ = std::move(other.targets_);
    return *this;
  }

  // Makes a connection and connects it (libzel_createInstanceEx). A server that is not there is no failure:
  // sends and the receive thread connect later, and the events tell.
  static ValueOf<Connection> Create(const DeviceId& device) { return Create(device, Options()); }
  static ValueOf<Connection> Create(const DeviceId& device, Options options) {
    Connection made;
    made.targets_ = std::make_unique<Targets>();
    made.targets_->onEvent = std::move(options.onEvent);
    made.handle_ = libzel_createInstanceEx(&device.Raw(), 0, detail::Clamp<int32_t>(options.timeout),
                                           made.targets_->onEvent ? CallEvent : nullptr, made.targets_.get());
    const Result result(made.handle_ != 0 ? ZEL_OK : FailureCode());
    return {result, std::move(made)};
  }

  // Stops the receive thread, waits for its callback, closes. Again does nothing.
  void Release() {
    if (handle_ != 0) (void)libzel_releaseInstance(std::exchange(handle_, 0));  // always ZEL_E_HANDLE
    targets_.reset();
  }

  bool IsOpen() const { return handle_ != 0; }
  // For the functions of libzel.h; still owned by this object.
  ZelInstance Handle() const { return handle_; }

  // ---- The receive thread: topics and routed messages come through it, and it restores a lost link.
  Result StartLoop() { return Result(libzel_loop_start(handle_)); }
  // Waits for a callback that runs.
  Result StopLoop() { return Result(libzel_loop_stop(handle_)); }
  // False with code ZEL_E_DISCONNECTED when the server could not be reached.
  Result Reconnect(Milliseconds timeout) {
    if (libzel_reconnect(handle_, detail::Clamp<int32_t>(timeout))) return Result();
    const int32_t code = libzel_get_errno();
    return Result(code == ZEL_E_HANDLE ? code : ZEL_E_DISCONNECTED);
  }
  Result SetReconnectInterval(std::chrono::duration<uint32_t> interval) {
    return Result(libzel_reconnect_delay_set(handle_, interval.count()));
  }

  // ---- Requests. One thread at a time, and not while the receive thread runs: both would read the same
  // stream.
  Result Send(uint16_t port, Address address, Bytes data, Milliseconds timeout) {
    if (data.size() > kMaxPayload) return Result(kErrorTooLong);
    const int32_t sent =
        libzel_sync_send(handle_, port, address.idGroup, address.idOffset, data.data(),
                         static_cast<uint32_t>(data.size()), detail::Clamp<uint32_t>(timeout));
    return Result(sent > 0 ? ZEL_OK : FailureCode());
  }
  // Waits for the answer to the last request and writes at most `size` bytes of it. The value is the number
  // of bytes written, also when the server's answer carries an error, which is then the code.
  ValueOf<size_t> Receive(uint8_t* buffer, size_t size, Milliseconds timeout) {
    const auto room = static_cast<uint32_t>((std::min<size_t>)(size, (std::numeric_limits<int32_t>::max)()));
    const int32_t got = libzel_sync_recv(handle_, nullptr, buffer, room, detail::Clamp<uint32_t>(timeout));
    const int32_t code = libzel_get_errno();
    if (got < 0) return {Result(code != ZEL_OK ? code : ZEL_E_DISCONNECTED), 0};
    return {Result(code), (std::min)(static_cast<size_t>(got), size)};
  }
  // As above, into memory of its own: at most `maxSize` bytes, and the rest of a longer answer is lost.
  ValueOf<std::vector<uint8_t>> Receive(Milliseconds timeout, size_t maxSize = kDefaultAnswerSize) {
    std::vector<uint8_t> answer(maxSize);
    const ValueOf<size_t> got = Receive(answer.data(), answer.size(), timeout);
    answer.resize(*got);
    return {got, std::move(answer)};
  }
  // Sends, and waits for the answer. The time-out is for each of both.
  ValueOf<std::vector<uint8_t>> Request(uint16_t port, Address address, Bytes data, Milliseconds timeout,
                                        size_t maxSize = kDefaultAnswerSize) {
    const Result sent = Send(port, address, data, timeout);
    if (!sent) return {sent, {}};
    return Receive(timeout, maxSize);
  }

  // ---- Topics
  Result Publish(const std::string& topic, Bytes data, Address address = {}) {
    if (data.size() > kMaxPayload || topic.size() > kMaxPayload ||
        data.size() + topic.size() + kPublicationOverhead > kMaxPayload) {
      return Result(kErrorTooLong);
    }
    return Result(libzel_publish(handle_, address.idGroup, address.idOffset, topic.c_str(), data.data(),
                                 static_cast<uint32_t>(data.size())));
  }
  // Subscribes, or gives a subscribed topic another callback. Start the receive thread to hear something.
  // When the send fails the code says so, and the subscription stays and is sent again with the next connect.
  Result Subscribe(const std::string& topic, TopicCallback callback) {
    if (targets_ == nullptr) return Result(ZEL_E_HANDLE);
    TopicSlot& slot = targets_->TopicOf(topic);
    const auto earlier = slot.Exchange(std::move(callback));
    return Result(libzel_subscribe(handle_, topic.c_str(), CallTopic, &slot));
  }
  // From here on no call of the callback begins; one that runs is not waited for.
  Result Unsubscribe(const std::string& topic) {
    if (targets_ == nullptr) return Result(ZEL_E_HANDLE);
    const auto earlier = targets_->TopicOf(topic).Exchange(nullptr);
    return Result(libzel_unsubscribe(handle_, topic.c_str()));
  }

  // ---- Routed messages
  // Hands the messages on a port (501 to 65535) to a callback. A port that has one keeps it (ZEL_E_ROUTER).
  Result Route(uint16_t port, RouteCallback callback) {
    if (targets_ == nullptr) return Result(ZEL_E_HANDLE);
    return targets_->Route(handle_, port, std::move(callback));
  }
  // From here on no call of the callback begins; one that runs is not waited for. Ports up to 500, which are
  // the library's own, are refused (ZEL_E_RESERVED_PORT).
  Result Unroute(uint16_t port) {
    if (targets_ == nullptr) return Result(ZEL_E_HANDLE);
    return targets_->Unroute(handle_, port);
  }

 private:
  using TopicSlot = detail::Slot<void(const TopicMessage&)>;
  using RouteSlot = detail::Slot<void(uint16_t, Bytes)>;

  static constexpr size_t kDefaultAnswerSize = 65536;
  static constexpr size_t kPublicationOverhead = 38;
  static constexpr uint16_t kLastReservedPort = 500;

  // What the library's user pointers point to. Slots are made once for every topic and port and stay where
  // they are until the connection is released, after its thread, so a late call finds at worst an empty one.
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
    // These two calls of the library neither send nor call back, so the lock may be held over them.
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

// ---- File transfer ----------------------------------------------------------------------------------------

enum class FileState : uint8_t { kRegistered = 0, kGoingOn = 1, kFinished = 2, kFailed = 3 };

struct FileProgress {
  DeviceId device;
  uint32_t transfer = 0;  // the transfer's number
  float progress = 0;     // 0 to 1: chunks sent by chunk count
  Result result;          // of this step
  FileState state = FileState::kRegistered;
};

// False asks for the transfer to stop. The first call is on the thread that calls SendFile, the others are on
// the library's transfer thread.
using FileCallback = std::function<bool(const FileProgress&)>;

namespace detail {

class Transfer {
 public:
  Transfer(FileCallback callback, uint32_t steps) : callback_(std::move(callback)), stepsLeft_(steps) {}

  // False when the library is to stop. Called by one thread at a time.
  bool Report(const FileProgress& progress) {
    bool goOn = true;
    if (callback_ && !Contain([&] { goOn = callback_(progress); })) goOn = false;
    FileCallback finished;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!goOn) cancelled_ = true;
    if (first_.IsOk()) first_ = progress.result;
    if (progress.state == FileState::kRegistered) {
      // A transfer without a file would hold up all later ones. A cancelled one still does its first step.
      if (!progress.result) Finish(finished);
      return progress.result.IsOk() && !cancelled_;
    }
    --stepsLeft_;
    const bool isOver = progress.state == FileState::kFinished || stepsLeft_ == 0 ||
                        progress.result.Code() == ZEL_E_FILE_TRANSFER;
    if (!isOver && cancelled_ && first_.IsOk()) first_ = Result(kErrorCancelled);
    if (isOver || cancelled_) Finish(finished);
    return !cancelled_;
  }

  std::optional<Result> Await(Milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!ended_.wait_for(lock, timeout, [this] { return isOver_; })) return {};
    return first_;
  }
  void Cancel() {
    const std::lock_guard<std::mutex> lock(mutex_);
    cancelled_ = true;
  }
  bool IsOver() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return isOver_;
  }

 private:
  // Lets go of the callback outside the lock.
  void Finish(FileCallback& finished) {
    isOver_ = true;
    finished.swap(callback_);
    ended_.notify_all();
  }

  FileCallback callback_;  // the reporting thread's own
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  uint32_t stepsLeft_;
  bool cancelled_ = false;
  bool isOver_ = false;
  Result first_;
};

// The transfers that go on, by the number that the library is given in place of a pointer: a call that comes
// after the end finds nothing, and nothing dangles.
class Transfers {
 public:
  static Transfers& Instance() {
    static auto* const transfers = new Transfers;
    return *transfers;
  }

  uintptr_t Add(std::shared_ptr<Transfer> transfer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_[++last_] = std::move(transfer);
    return last_;
  }

  static int32_t Call(const ZelDeviceId* device, uint32_t transfer, float progress, uint32_t error,
                      uint8_t state, void* user) {
    constexpr int32_t kStop = -1;
    const auto key = reinterpret_cast<uintptr_t>(user);
    const std::shared_ptr<Transfer> entry = Instance().Find(key);
    if (entry == nullptr) return 0;
    const bool goOn = entry->Report({DeviceId(*device), transfer, progress,
                                     Result(static_cast<int32_t>(error)), static_cast<FileState>(state)});
    if (entry->IsOver()) Instance().Remove(key);
    return goOn ? 0 : kStop;
  }

 private:
  std::shared_ptr<Transfer> Find(uintptr_t key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(key);
    return entry != entries_.end() ? entry->second : nullptr;
  }
  void Remove(uintptr_t key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.erase(key);
  }

  std::mutex mutex_;
  std::map<uintptr_t, std::shared_ptr<Transfer>> entries_;
  uintptr_t last_ = 0;
};

// How many messages a file takes: its description, its chunks, and an empty one when no chunk is short.
inline uint32_t StepsOf(const std::string& path) {
  constexpr uint64_t kChunkSize = 8192;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const auto end = static_cast<std::streamoff>(file.tellg());
  const uint64_t size = end > 0 ? static_cast<uint64_t>(end) : 0;
  return static_cast<uint32_t>(
      (std::min<uint64_t>)(2 + size / kChunkSize, (std::numeric_limits<uint32_t>::max)()));
}

}  // namespace detail

// A file on its way. Letting go of this object lets the transfer go on.
class FileTransfer {
 public:
  // The library's number of it, 0 for the first.
  uint32_t Number() const { return number_; }
  bool IsOver() const { return transfer_->IsOver(); }
  // How it ended: its first error, kErrorCancelled, or 0; empty when it goes on after this time. Not for use
  // in a transfer's callback.
  std::optional<Result> Wait(Milliseconds timeout) { return transfer_->Await(timeout); }
  // Stops it after the step that it is in.
  void Cancel() { transfer_->Cancel(); }

 private:
  friend FileTransfer SendFile(const DeviceId&, uint16_t, const std::string&, const std::string&,
                               FileCallback);
  FileTransfer(uint32_t number, std::shared_ptr<detail::Transfer> transfer)
      : number_(number), transfer_(std::move(transfer)) {}

  uint32_t number_;
  std::shared_ptr<detail::Transfer> transfer_;
};

// Sends a local file to a port of a device (ZelFileTransfer) and returns at once; one transfer runs after the
// other. A file that cannot be sent is over at once with ZEL_E_FILE_OPEN. The device's errors do not end a
// transfer; a callback that gives false does.
inline FileTransfer SendFile(const DeviceId& device, uint16_t port, const std::string& localPath,
                             const std::string& remotePath, FileCallback callback = nullptr) {
  auto transfer = std::make_shared<detail::Transfer>(std::move(callback), detail::StepsOf(localPath));
  const uintptr_t key = detail::Transfers::Instance().Add(transfer);
  const uint32_t number = ZelFileTransfer({device.Raw(), port}, 0, 0, localPath.c_str(), remotePath.c_str(),
                                          detail::Transfers::Call, reinterpret_cast<void*>(key));
  return FileTransfer(number, std::move(transfer));
}

}  // namespace zel

namespace std {

template <>
struct hash<zel::DeviceId> {
  size_t operator()(const zel::DeviceId& id) const noexcept {
    uint64_t bits = 0;
    for (const uint8_t byte : id.Raw().bytes) bits = bits << 8 | byte;
    return hash<uint64_t>()(bits * 0x9E3779B97F4A7C15U);
  }
};

}  // namespace std

#endif  // LIBZEL_LIBZEL_HPP
