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
  static Result Enter() {
    LibraryCount& all = Instance();
    const std::lock_guard<std::mutex> lock(all.mutex_);
    if (all.count_ == 0) all.start_ = Result(libzel_init());
    ++all.count_;
    return all.start_;
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

  std::mutex mutex_;
  int count_ = 0;
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

/// The library, set up (libzel_init) for the life of this object: make one before anything else, and let it
/// go after every Connection. There may be several; the last one lets the library go. Discovery's thread goes
/// on until the process ends; only the callback ends with the object that it was given to.
class Library {
 public:
  /// Starts the library; Start says how that went. The log is set up before, so that no line goes elsewhere.
  explicit Library(const Options& options = Options())
      : log_(options), start_(detail::LibraryCount::Enter()) {}
  ~Library() {
    if (detail::ScanTarget::Instance().IsOwner(this)) {
      StopScan().Ignore();
      OnDevice(nullptr).Ignore();
    }
    detail::LibraryCount::Leave();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// How libzel_init ended.
  Result Start() const { return start_; }

  /// The version of the library that is loaded (libzel_version).
  static Version GetVersion() {
    Version version{};
    (void)libzel_version(&version.majorNumber, &version.minorNumber, &version.patchNumber);  // always 0
    return version;
  }

  /// Sets, replaces or (empty) removes the callback for found devices. When it returns the earlier callback
  /// does not run any more, unless this is called from that callback.
  Result OnDevice(DeviceCallback callback) {
    detail::ScanTarget::Instance().Set(std::move(callback), this);
    return Result(libzel_registerZelScanEvent(detail::ScanTarget::Call, nullptr));
  }
  /// Asks all networks every 1 to 2 seconds from now on. A device is reported each time that it answers.
  Result StartScan() { return Result(libzel_startZelScan()); }
  /// Asks no longer.
  Result StopScan() { return Result(libzel_stopZelScan()); }

 private:
  detail::LogChoice log_;
  Result start_;
};

}  // namespace zel
