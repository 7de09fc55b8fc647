// One file of libzelx_sendFile on its way to a device: its messages one by one, its progress, and its one end.
//
// Used by one thread at a time, but for Cancel, IsCancelled and HasEnded, which any thread may call. The callback runs on
// the thread that steps or ends it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "libzel/libzelx.h"
#include "zelclient/FileLink.h"
#include "zelclient/FileMessages.h"
#include "zelcomm/filesys/RegularFile.h"

namespace libzel {

// Where a file goes, and who is told.
struct FileOrder {
  ZelDeviceAddr target{};
  std::string localPath;
  std::string remotePath;
  libzelx_FileCallback callback = nullptr;
  void* user = nullptr;
};

class FileSending {
 public:
  FileSending(FileOrder order, RegularFile file);

  void SetTicket(uint64_t ticket) { ticket_ = ticket; }
  // What precedes the first step; the transfer's time is over at `end`.
  void Begin(std::weak_ptr<IZelPeerConnection> connection, FileLink::TimePoint end);
  // Sends the next message, takes its answer, and tells the callback of progress or the end.
  void Step();
  // Tells the callback the end, if it has not come.
  void End(int32_t result);

  // The next step ends it. -1 from the callback does the same.
  void Cancel() { isCancelled_ = true; }
  bool IsCancelled() const { return isCancelled_; }
  // True from just before the callback is told.
  bool HasEnded() const { return hasEnded_; }
  // True on its own thread in a callback of progress.
  bool IsTelling() const { return isTelling_; }
  const ZelDeviceId& device() const { return order_.target.id; }

 private:
  // In place of a result: there is more to send.
  static constexpr int32_t kGoesOn = -1;

  int32_t SendNext();
  bool Exchange(std::span<const uint8_t> message, FileAnswerBuffer& answer);
  int32_t WriteNext(FileMessageBuffer& buffer, uint32_t& size);
  int32_t WriteChunk(FileMessageBuffer& buffer, uint32_t& size);
  int32_t WhyFailed();
  int32_t TakeAnswer(const FileAnswer& answer);
  libzelx_FileEvent Progress() const;
  void LogEnd(int32_t result) const noexcept;

  const FileOrder order_;
  const RegularFile file_;
  std::weak_ptr<IZelPeerConnection> connection_;
  FileLink::TimePoint end_ = SocketLink::kNoEnd;
  uint64_t ticket_ = 0;
  bool isDescribed_ = false;
  bool isLast_ = false;    // the message that is being sent
  uint32_t position_ = 0;  // behind what was read
  uint32_t sent_ = 0;      // that the device has taken
  uint32_t chunksSent_ = 0;
  uint32_t deviceHandle_ = 0;
  uint32_t deviceError_ = 0;
  bool isTelling_ = false;
  uint64_t readOffset_ = 0;
  std::atomic<bool> isCancelled_{false};
  std::atomic<bool> hasEnded_{false};
};

}  // namespace libzel
