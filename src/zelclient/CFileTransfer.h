// One file on its way to a device: its chunk arithmetic, its messages, and the steps that send them.
//
// Made and reported once on the submitting thread, then used by the transfer thread alone. Sending goes through the
// device's connection, whose life is checked anew for every step.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "libzel/libzel.h"
#include "zelclient/ZelPeerConn.h"
#include "zelcomm/filesys/CFile.h"

namespace libzel {

class CFileTransfer {
 public:
  static constexpr int32_t kChunkSize = 8192;

  CFileTransfer(uint32_t id, const ZelDeviceAddr& target, const char* localPath, const char* remotePath,
                FileTransferCallback callback, void* user);

  // Tells the callback how things stand; its -1 stops the transfer.
  void Report();
  // Sends the file information, then a chunk each time, and takes the answer. Does nothing without an open file.
  void Step();
  // Ends the transfer with 12294 and tells the callback.
  void FailOnNoMemory();
  bool IsComplete() const { return stop_ || file_->isAtEnd(); }
  // A transfer without an open file can take no step.
  bool IsIdle() const { return !file_->isOpened(); }

  void SetConnection(std::weak_ptr<IZelPeerConnection> connection) { connection_ = std::move(connection); }
  const ZelDeviceId& device() const { return target_.id; }
  uint32_t id() const { return id_; }

  // Chunks of a file: 0 for an empty one.
  static uint32_t CalcChunkNum(uint64_t size);

 private:
  static constexpr size_t kSendBufferSize = 10240;
  static constexpr size_t kAnswerSize = 1024;
  using SendBuffer = std::array<uint8_t, kSendBufferSize>;

  uint32_t WriteFileInfo(SendBuffer& buffer);
  uint32_t WriteChunk(SendBuffer& buffer);
  bool Exchange(std::span<const uint8_t> message, std::span<uint8_t> answer) const;
  int32_t Send(std::span<const uint8_t> message) const;
  int32_t Receive(std::span<uint8_t> answer) const;
  void TakeAnswer(std::span<const uint8_t> answer, size_t sentSize);
  void Fail();

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
  std::weak_ptr<IZelPeerConnection> connection_;
  const FileTransferCallback callback_;
  const std::shared_ptr<CFile> file_;
  const std::string remotePath_;
};

}  // namespace libzel
