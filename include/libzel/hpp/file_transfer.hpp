/// @file
/// Sending files. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/device_id.hpp>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace zel {

/// Where a transfer is.
enum class FileState : uint8_t {
  kRegistered = 0,  ///< told to the library; nothing was sent
  kGoingOn = 1,     ///< on its way
  kFinished = 2,    ///< the device has the last chunk
  kFailed = 3,      ///< this step failed
};

/// One step of a transfer.
struct FileProgress {
  DeviceId device;                           ///< where the file goes
  uint32_t transfer = 0;                     ///< the transfer's number
  float progress = 0;                        ///< 0 to 1: chunks sent by chunk count
  Result result;                             ///< of this step
  FileState state = FileState::kRegistered;  ///< after this step
};

/// False asks for the transfer to stop. The first call is on the thread that calls SendFile, the others are
/// on the library's transfer thread.
using FileCallback = std::function<bool(const FileProgress&)>;

namespace detail {

class Transfer {
 public:
  Transfer(FileCallback callback, uint32_t steps) : callback_(std::move(callback)), stepsLeft_(steps) {}

  /// False when the library is to stop. Called by one thread at a time.
  bool Report(const FileProgress& progress) {
    bool goOn = true;
    if (callback_ && !Contain([&] { goOn = callback_(progress); })) goOn = false;
    FileCallback finished;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!goOn) cancelled_ = true;
    if (first_.IsOk()) first_ = progress.result;
    if (progress.state == FileState::kRegistered) {
      /// A transfer without a file would hold up all later ones. A cancelled one still does its first step.
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
  /// Lets go of the callback outside the lock.
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

/// The transfers that go on, by the number that the library is given in place of a pointer: a call that comes
/// after the end finds nothing, and nothing dangles.
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

/// How many messages a file takes: its description, its chunks, and an empty one when no chunk is short.
inline uint32_t StepsOf(const std::string& path) {
  constexpr uint64_t kChunkSize = 8192;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const auto end = static_cast<std::streamoff>(file.tellg());
  const uint64_t size = end > 0 ? static_cast<uint64_t>(end) : 0;
  return static_cast<uint32_t>(
      (std::min<uint64_t>)(2 + size / kChunkSize, (std::numeric_limits<uint32_t>::max)()));
}

}  // namespace detail

/// A file on its way. Letting go of this object lets the transfer go on.
class FileTransfer {
 public:
  /// The library's number of it, 0 for the first.
  uint32_t Number() const { return number_; }
  /// True when nothing more comes of it.
  bool IsOver() const { return transfer_->IsOver(); }
  /// How it ended: its first error, kErrorCancelled, or 0; empty when it goes on after this time. Not for use
  /// in a transfer's callback.
  std::optional<Result> Wait(Milliseconds timeout) { return transfer_->Await(timeout); }
  /// Stops it after the step that it is in.
  void Cancel() { transfer_->Cancel(); }

 private:
  friend FileTransfer SendFile(const DeviceId&, uint16_t, const std::string&, const std::string&,
                               FileCallback);
  FileTransfer(uint32_t number, std::shared_ptr<detail::Transfer> transfer)
      : number_(number), transfer_(std::move(transfer)) {}

  uint32_t number_;
  std::shared_ptr<detail::Transfer> transfer_;
};

/// Sends a local file to a port of a device (ZelFileTransfer) and returns at once; one transfer runs after
/// the other. A file that cannot be sent is over at once with ZEL_E_FILE_OPEN. The device's errors do not end
/// a transfer; a callback that gives false does.
inline FileTransfer SendFile(const DeviceId& device, uint16_t port, const std::string& localPath,
                             const std::string& remotePath, FileCallback callback = nullptr) {
  auto transfer = std::make_shared<detail::Transfer>(std::move(callback), detail::StepsOf(localPath));
  const uintptr_t key = detail::Transfers::Instance().Add(transfer);
  const uint32_t number = ZelFileTransfer({device.Raw(), port}, 0, 0, localPath.c_str(), remotePath.c_str(),
                                          detail::Transfers::Call, reinterpret_cast<void*>(key));
  return FileTransfer(number, std::move(transfer));
}

}  // namespace zel
