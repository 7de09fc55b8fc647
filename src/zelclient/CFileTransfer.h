// One file on its way to a device: its chunk arithmetic, its messages, and the steps that send them.
//
// Made and reported once on the submitting thread, then used by the transfer thread alone. Sending goes through the
// device's connection, whose life is checked anew for every step.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "libzel/libzel.h"
#include "zelclient/FileLink.h"
#include "zelclient/FileMessages.h"
#include "zelcomm/filesys/CFile.h"

namespace libzel {

class CFileTransfer {
 public:
  CFileTransfer(uint32_t id, const ZelDeviceAddr& target, const char* localPath, const char* remotePath,
                FileTransferCallback callback, void* user);

  // Tells the callback how things stand; its -1 stops the transfer.
  void Report();
  // Sends the file information, then a chunk each time, and takes the answer. Does nothing without an open file. When the
  // time is over that the application has set, which runs from the first step on, it ends the transfer with 4104 instead.
  void Step();
  // Ends the transfer with 12294 and tells the callback.
  void FailOnNoMemory();
  bool IsComplete() const { return stop_ || file_->isAtEnd(); }
  // A transfer without an open file can take no step.
  bool IsIdle() const { return !file_->isOpened(); }

  void SetConnection(std::weak_ptr<IZelPeerConnection> connection) {
    link_.SetConnection(std::move(connection));
  }
  const ZelDeviceId& device() const { return target_.id; }
  uint32_t id() const { return id_; }

  // Chunks of a file: 0 for an empty one.
  static uint32_t CalcChunkNum(uint64_t size);

 private:
  uint32_t WriteFileInfo(FileMessageBuffer& buffer);
  uint32_t WriteChunk(FileMessageBuffer& buffer);
  void TakeAnswer(const FileAnswer& answer, size_t sentSize);
  void Fail(int32_t code);

  bool firstStepPending_ = true;
  bool stop_ = false;
  uint8_t state_ = 0;
  const uint32_t id_;
  uint32_t chunksSent_ = 0;
  uint32_t chunkCount_ = 0;
  uint32_t deviceHandle_ = 0;
  uint32_t error_ = 0;
  void* const user_;
  const ZelDeviceAddr target_;
  FileLink link_;
  std::optional<FileLink::TimePoint> end_;  // from the first step on
  const FileTransferCallback callback_;
  const std::shared_ptr<CFile> file_;
  const std::string remotePath_;
};

}  // namespace libzel
