/// @file
/// The library, and the devices that it finds. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/device_id.hpp>
#include <libzel/hpp/options.hpp>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace zel {

/// A device that answered a scan.
struct Device {
  std::string address;             ///< dotted IPv4, where the answer came from
  std::optional<DeviceId> id;      ///< empty when the device's own text is no identifier
  std::string idText;              ///< the identifier as the device wrote it
  std::string hardwareAddress;     ///< of the frame with that address; may be empty
  std::string hostName;            ///< its host name
  std::string serialNumber;        ///< its "serialNo"
  std::string secondSerialNumber;  ///< its "sn"
  std::string protocolVersion;     ///< its "zelVersion"
  std::string runtimeVersion;      ///< its "rteVersion"
  std::string systemVersion;       ///< its "vorlinVersion"
};

/// On the library's scan thread; discovery waits while it runs.
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

/// The first Library sets the library up, the last one lets it go.
class LibraryCount {
 public:
  static Result Enter(const Protection& wanted) {
    LibraryCount& all = Instance();
    const std::lock_guard<std::mutex> lock(all.mutex_);
    const Result protection = all.Protect(wanted);
    if (all.count_ == 0) all.start_ = Result(libzel_init());
    ++all.count_;
    return all.start_ ? protection : all.start_;
  }
  static void Leave() {
    LibraryCount& all = Instance();
    const std::lock_guard<std::mutex> lock(all.mutex_);
    if (--all.count_ != 0) return;
    (void)libzel_stopZelScan();
    (void)libzel_destory();  // always 0
  }

 private:
  static LibraryCount& Instance() {
    static auto* const all = new LibraryCount;
    return *all;
  }

  /// What the first Library of the process wanted holds until the process ends. One that wants nothing else
  /// takes it as it is.
  Result Protect(const Protection& wanted) {
    if (!first_) {
      first_ = wanted;
      protection_ = wanted.Apply();
      return protection_;
    }
    if (wanted == *first_) return protection_;
    return Result(wanted.IsDefault() ? ZEL_OK : LIBZELX_E_TOO_LATE);
  }

  std::mutex mutex_;
  int count_ = 0;
  std::optional<Protection> first_;
  Result protection_;
  Result start_;
};

/// The one scan callback of the program.
class ScanTarget {
 public:
  static ScanTarget& Instance() {
    static auto* const target = new ScanTarget;
    return *target;
  }

  /// Waits for a call of the earlier callback that is going on, except on its own thread.
  void Set(DeviceCallback callback, const void* owner) {
    const auto earlier = slot_.Exchange(std::move(callback));
    std::unique_lock<std::mutex> lock(mutex_);
    owner_ = owner;
    if (runner_ == std::this_thread::get_id()) return;
    const uint64_t present = calls_;
    ended_.wait(lock, [&] { return runner_ == std::thread::id() || calls_ != present; });
  }

  bool IsOwner(const void* owner) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return owner_ == owner;
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
  const void* owner_ = nullptr;
  uint64_t calls_ = 0;
};

}  // namespace detail

/// The library's version.
struct Version {
  uint32_t majorNumber = 0;  ///< the 0 of 0.2.3
  uint32_t minorNumber = 0;  ///< the 2 of 0.2.3
  uint32_t patchNumber = 0;  ///< the 3 of 0.2.3
};

/// The state of discovery: whether no device answered, or it is broken.
struct DiscoveryState {
  bool isRunning = false;    ///< while it asks and hears
  uint32_t adapters = 0;     ///< on how many adapters it asks
  std::string adapterNames;  ///< their names, joined by commas; cut at 511 bytes
  uint32_t restarts = 0;     ///< how often it was started again after a failure
  uint64_t answers = 0;      ///< answers taken
  uint64_t dropped = 0;      ///< answers dropped: malformed, or from networks that may not answer
  std::string reason;        ///< why it does not run; empty while it does, and before it was started
};

/// The library, set up (libzel_init) for the life of this object: make one before anything else, and let it
/// go after every Connection. There may be several; the last one lets the library go. Discovery's thread goes
/// on until the process ends; only the callback ends with the object that it was given to.
///
/// The options of the first one hold for the process, also after it: a later one that chooses none takes them
/// as they are. The log is each one's own.
class Library {
 public:
  /// Starts the library; Start says how that went. The log is set up before, so that no line goes elsewhere.
  explicit Library(const Options& options = Options())
      : log_(options), start_(detail::LibraryCount::Enter(options.Protection())) {}
  ~Library() {
    if (detail::ScanTarget::Instance().IsOwner(this)) {
      StopScan();
      OnDevice(nullptr);
    }
    detail::LibraryCount::Leave();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// How libzel_init ended. When it went well, but not all options could be had: LIBZELX_E_TOO_LATE (an
  /// earlier Library chose others, or libzel_init was called before the first one), or ZEL_E_PARAM (a value
  /// out of range, networks that cannot be read). The library runs then, with the options that it has.
  Result Start() const { return start_; }

  /// The version of the library that is loaded (libzel_version).
  static Version GetVersion() {
    Version version{};
    (void)libzel_version(&version.majorNumber, &version.minorNumber, &version.patchNumber);  // always 0
    return version;
  }

  /// Sets, replaces or (empty) removes the callback for found devices. When it returns the earlier callback
  /// does not run any more, unless this is called from that callback.
  Done OnDevice(DeviceCallback callback) {
    detail::ScanTarget::Instance().Set(std::move(callback), this);
    return Done(libzel_registerZelScanEvent(detail::ScanTarget::Call, nullptr));
  }
  /// Asks all networks every 1 to 2 seconds from now on. A device is reported each time that it answers.
  /// Starts discovery when it does not run. ZEL_E_RESOURCE: it is broken, Discovery has the reason. The scan
  /// is on then, too, and finds devices as soon as discovery runs (TimeOption::kDiscoveryRetry).
  Result StartScan() {
    const Result started = StartDiscovery();
    const Result scan(libzel_startZelScan());
    return started ? scan : started;
  }
  /// Asks no longer.
  Done StopScan() { return Done(libzel_stopZelScan()); }

  /// @name Discovery
  /// Under protection it has no socket and sends no packet until it is started, by this or by a scan.
  /// @{

  /// Starts it; again does nothing. ZEL_E_RESOURCE: it could not be started, Discovery has the reason.
  Result StartDiscovery() { return Result(libzelx_startDiscovery()); }
  /// Its state now.
  DiscoveryState Discovery() const {
    libzelx_Discovery raw{};
    raw.size = sizeof raw;
    (void)libzelx_getDiscovery(&raw);  // all zero when it fails
    return {raw.running != 0, raw.adapters, raw.adapterList, raw.restarts,
            raw.answers,      raw.dropped,  raw.reason};
  }
  /// @}

  /// @name Routes
  /// The hosts of identifiers, for connections made later.
  /// @{

  /// Pins the host (dotted IPv4) of an identifier. Under protection (Option::kKeepRoutes) discovery leaves it
  /// alone. ZEL_E_PARAM: no address, or Option::kMaxRoutes are known.
  Result PinRoute(const DeviceId& device, const std::string& host) {
    return Result(libzelx_setRoute(&device.Raw(), host.c_str()));
  }
  /// Forgets what is known of an identifier, pinned or heard.
  Done ForgetRoute(const DeviceId& device) { return Done(libzelx_setRoute(&device.Raw(), nullptr)); }
  /// The host that a connection made now would get: the one that is known, else the identifier's first four
  /// bytes.
  std::string RouteOf(const DeviceId& device) const {
    char host[16] = "";
    (void)libzelx_getRoute(&device.Raw(), host, sizeof host);  // empty when it fails
    return host;
  }
  /// @}

  /// @name Single options
  /// Of the process; one of a connection is the value that connections made later begin with.
  /// @{

  /// Sets one. LIBZELX_E_TOO_LATE: it must be among the Options of the first Library. ZEL_E_PARAM: out of
  /// range; nothing was set.
  Result Set(Option option, int64_t value) { return detail::SetOption(0, option, value); }
  Result Set(TimeOption option, Milliseconds time) { return detail::SetOption(0, option, time); }
  /// What it is now.
  ValueOf<int64_t> Get(Option option) const { return detail::GetOption(0, option); }
  ValueOf<Milliseconds> Get(TimeOption option) const { return detail::GetOption(0, option); }
  /// @}

 private:
  detail::LogChoice log_;
  Result start_;
};

}  // namespace zel
