/// @file
/// Sending files. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/device_id.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace zel {

/// Where a transfer is.
enum class FileState : uint8_t {
  kGoingOn = 1,   ///< on its way
  kFinished = 2,  ///< over: the device has taken all of it
  kFailed = 3,    ///< over: the result says why
};

/// One step of a transfer.
struct FileProgress {
  DeviceId device;                        ///< where the file goes
  uint64_t transfer = 0;                  ///< the transfer's number; 0 when it could not begin
  float progress = 0;                     ///< 0 to 1: bytes that the device has taken, of all
  Result result;                          ///< with kFailed: as FileTransfer::Wait gives it
  FileState state = FileState::kGoingOn;  ///< after this step; kFinished or kFailed in the last one, once
  uint64_t sent = 0;                      ///< bytes that the device has taken
  uint64_t total = 0;                     ///< the file's length when it was opened
  uint32_t deviceError = 0;               ///< the device's own error word; 0 when it has none
  uint64_t readOffset = 0;                ///< with ZEL_E_FILE_READ: where the file could not be read
};

/// False stops the transfer. Runs on a thread of the library; the end of a transfer that cannot begin is told
/// on the thread that calls SendFile.
using FileCallback = std::function<bool(const FileProgress&)>;

namespace detail {

/// Owns itself from its begin to its end.
class Transfer {
 public:
  Transfer(const DeviceId& device, FileCallback callback) : device_(device), callback_(std::move(callback)) {}

  static void Begin(const std::shared_ptr<Transfer>& transfer, uint16_t port, const std::string& localPath,
                    const std::string& remotePath) {
    transfer->self_ = transfer;
    const ZelDeviceAddr target{transfer->device_.Raw(), port};
    libzelx_FileEvent event{};
    event.result = libzelx_sendFile(&target, localPath.c_str(), remotePath.c_str(), OnEvent, transfer.get(),
                                    &transfer->ticket_);
    event.ended = 1;
    if (event.result != ZEL_OK) (void)transfer->Take(event);
  }

  std::optional<Result> Await(Milliseconds timeout) {
    if (IsNegative(timeout)) return Result(ZEL_E_PARAM);
    constexpr Milliseconds kMost = std::chrono::hours(24 * 365);  // the clock's own range is near
    std::unique_lock<std::mutex> lock(mutex_);
    if (!ended_.wait_for(lock, (std::min)(timeout, kMost), [this] { return isOver_; })) return {};
    return result_;
  }
  Result Await() {
    std::unique_lock<std::mutex> lock(mutex_);
    ended_.wait(lock, [this] { return isOver_; });
    return result_;
  }
  bool IsOver() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return isOver_;
  }
  uint32_t DeviceError() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return deviceError_;
  }
  uint64_t Ticket() const { return ticket_; }
  void Cancel() const {
    if (ticket_ != 0) (void)libzelx_cancelFile(ticket_);
  }

 private:
  static int32_t OnEvent(const libzelx_FileEvent* event, void* user) {
    constexpr int32_t kStop = -1;
    return static_cast<Transfer*>(user)->Take(*event) ? 0 : kStop;
  }

  static Result ResultOf(const libzelx_FileEvent& event) {
    if (event.result == LIBZELX_E_DEVICE) return Result(static_cast<int32_t>(event.deviceError));
    return Result(event.result);
  }

  /// False when the library is to stop.
  bool Take(const libzelx_FileEvent& event) {
    FileProgress step;
    step.device = device_;
    step.transfer = event.ticket;
    step.result = ResultOf(event);
    step.sent = event.sent;
    step.total = event.total;
    step.deviceError = event.deviceError;
    step.readOffset = event.readOffset;
    if (event.ended != 0) step.state = event.result == ZEL_OK ? FileState::kFinished : FileState::kFailed;
    step.progress =
        event.total != 0
            ? static_cast<float>(static_cast<double>(event.sent) / static_cast<double>(event.total))
            : static_cast<float>(step.state == FileState::kFinished);
    bool goOn = true;
    if (callback_ && !Contain([&] { goOn = callback_(step); })) goOn = false;
    if (event.ended != 0) Finish(step);
    return goOn;
  }

  void Finish(const FileProgress& last) {
    const std::shared_ptr<Transfer> kept = std::move(self_);
    callback_ = nullptr;
    const std::lock_guard<std::mutex> lock(mutex_);
    isOver_ = true;
    result_ = last.result;
    deviceError_ = last.deviceError;
    ended_.notify_all();
  }

  const DeviceId device_;
  FileCallback callback_;  // the reporting thread's own
  std::shared_ptr<Transfer> self_;
  uint64_t ticket_ = 0;  // set before the first event
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  bool isOver_ = false;
  Result result_;
  uint32_t deviceError_ = 0;
};

}  // namespace detail

/// A file on its way. Letting go of this object lets the transfer go on.
class FileTransfer {
 public:
  /// The library's number of it, 1 for the first; 0 when it could not begin.
  uint64_t Number() const { return transfer_->Ticket(); }
  /// True when it has ended, and its callback is not called any more.
  bool IsOver() const { return transfer_->IsOver(); }
  /// Waits for the end, and tells how it ended. Not for use in a transfer's callback.
  /// 0: the device has taken all. kErrorCancelled: stopped by the callback, by Cancel, or by the end of the
  /// library. ZEL_E_FILE_OPEN: no file that can be sent. LIBZELX_E_FILE_CHANGED: it became shorter.
  /// ZEL_E_FILE_READ. ZEL_E_FILE_TRANSFER: the network. ZEL_E_TIMEOUT: LIBZELX_FILE_TOTAL_MS were over.
  /// ZEL_E_PARAM: a remote path of 256 bytes or more. Else the device's own error word.
  Result Wait() { return transfer_->Await(); }
  /// As above; empty when it goes on after this time. ZEL_E_PARAM is a negative one, too.
  std::optional<Result> Wait(Milliseconds timeout) { return transfer_->Await(timeout); }
  /// The device's own error word when that was the end, else 0.
  uint32_t DeviceError() const { return transfer_->DeviceError(); }
  /// Stops it after the message that it is in, unless it ends with that.
  void Cancel() { transfer_->Cancel(); }

 private:
  friend FileTransfer SendFile(const DeviceId&, uint16_t, const std::string&, const std::string&,
                               FileCallback);
  explicit FileTransfer(std::shared_ptr<detail::Transfer> transfer) : transfer_(std::move(transfer)) {}

  std::shared_ptr<detail::Transfer> transfer_;
};

/// Sends a local file to a port of a device (libzelx_sendFile) and returns when it is opened; the callback,
/// if there is one, is told of every step and then, once, of the end. Paths are UTF-8 on every system. Files
/// to one device go one after the other. What is no regular file, or cannot be opened, is over at once with
/// ZEL_E_FILE_OPEN.
inline FileTransfer SendFile(const DeviceId& device, uint16_t port, const std::string& localPath,
                             const std::string& remotePath, FileCallback callback = nullptr) {
  auto transfer = std::make_shared<detail::Transfer>(device, std::move(callback));
  detail::Transfer::Begin(transfer, port, localPath, remotePath);
  return FileTransfer(std::move(transfer));
}
/// The same with the system's own path. No other type is taken for one: a text is UTF-8.
template <typename Path, std::enable_if_t<std::is_same_v<Path, std::filesystem::path>, int> = 0>
FileTransfer SendFile(const DeviceId& device, uint16_t port, const Path& localPath,
                      const std::string& remotePath, FileCallback callback = nullptr) {
  const auto utf8 = localPath.u8string();  // of char8_t from C++20 on
  return SendFile(device, port, std::string(utf8.begin(), utf8.end()), remotePath, std::move(callback));
}

}  // namespace zel
