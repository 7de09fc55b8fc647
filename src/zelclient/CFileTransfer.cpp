#include "zelclient/CFileTransfer.h"

#include <algorithm>
#include <cstring>

#include "utils/Log.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/Frame.h"

namespace libzel {

namespace {

constexpr uint32_t kIdGroup = 0x1002;
constexpr uint32_t kIdOffset = 1;
constexpr uint32_t kTimeoutMs = 1000;
constexpr size_t kFileInfoHeadSize = 15;
constexpr size_t kChunkHeadSize = 9;

constexpr uint8_t kTypeFileInfo = 1;
constexpr uint8_t kTypeChunk = 2;
constexpr uint8_t kLastFlag = 0x80;

constexpr uint8_t kStateGoingOn = 1;
constexpr uint8_t kStateFinished = 2;
constexpr uint8_t kStateFailed = 3;

constexpr size_t kMaxRemotePath = 255;

}  // namespace

CFileTransfer::CFileTransfer(uint32_t id, const ZelDeviceAddr& target, const char* localPath,
                             const char* remotePath, FileTransferCallback callback, void* user)
    : id_(id),
      user_(user),
      target_(target),
      callback_(callback),
      file_(std::make_shared<CFile>(localPath)),
      remotePath_(remotePath, std::min(std::strlen(remotePath), kMaxRemotePath)) {
  error_ = static_cast<uint32_t>(file_->OpenFile());
  if (error_ == 0) chunkCount_ = CalcChunkNum(static_cast<uint64_t>(file_->size()));
}

// For size 0 the subtraction wraps round and the 32 bits that are kept are 0. Deliberate.
uint32_t CFileTransfer::CalcChunkNum(uint64_t size) {
  const auto count = static_cast<uint32_t>(((size - 1) >> 13) + 1);
  ZEL_LOG(kTrace, "file Size:%ld,chunk num:%d", static_cast<long>(size), static_cast<int>(count));
  return count;
}

void CFileTransfer::Report() {
  if (callback_ == nullptr) return;
  const float progress =
      chunkCount_ == 0
          ? 0.0F
          : static_cast<float>(static_cast<double>(chunksSent_) / static_cast<double>(chunkCount_));
  if (callback_(&target_.id, id_, progress, error_, state_, user_) == -1) stop_ = true;
}

void CFileTransfer::Step() {
  if (IsIdle()) return;
  SendBuffer buffer{};
  const uint32_t size = firstStepPending_ ? WriteFileInfo(buffer) : WriteChunk(buffer);
  error_ = 0;
  std::array<uint8_t, kAnswerSize> answer{};
  if (Exchange(std::span(buffer).first(size), answer)) {
    TakeAnswer(answer, size);
  } else {
    Fail();
  }
  Report();
}

void CFileTransfer::Fail() {
  error_ = ZEL_E_FILE_TRANSFER;
  stop_ = true;
  state_ = kStateFailed;
}

void CFileTransfer::FailOnNoMemory() {
  Fail();
  Report();
}

uint32_t CFileTransfer::WriteFileInfo(SendBuffer& buffer) {
  state_ = kStateGoingOn;
  firstStepPending_ = false;
  const std::string name = file_->GetFileName();
  const auto nameSize = static_cast<uint8_t>(name.size());
  const auto pathSize = static_cast<uint8_t>(remotePath_.size());
  buffer[0] = kTypeFileInfo;
  buffer[1] = nameSize;
  buffer[2] = pathSize;
  PutBe32(&buffer[3], static_cast<uint32_t>(file_->size()));
  PutBe32(&buffer[7], kChunkSize);
  PutBe32(&buffer[11], chunkCount_);
  std::memcpy(&buffer[kFileInfoHeadSize], name.data(), nameSize);
  std::memcpy(&buffer[kFileInfoHeadSize + nameSize], remotePath_.data(), pathSize);
  return static_cast<uint32_t>(kFileInfoHeadSize + nameSize + pathSize);
}

// The read behind the last byte of an exact multiple of the chunk size finds nothing and makes an empty message.
uint32_t CFileTransfer::WriteChunk(SendBuffer& buffer) {
  const int32_t count = file_->ReadFileToBuffer(&buffer[kChunkHeadSize], kChunkSize);
  if (count <= 0) return 0;
  if (file_->isAtEnd()) state_ = kStateFinished;
  buffer[0] = file_->isAtEnd() ? kTypeChunk | kLastFlag : kTypeChunk;
  PutBe32(&buffer[1], ++chunksSent_);
  PutBe32(&buffer[5], deviceHandle_);
  return static_cast<uint32_t>(kChunkHeadSize) + static_cast<uint32_t>(count);
}

bool CFileTransfer::Exchange(std::span<const uint8_t> message, std::span<uint8_t> answer) const {
  return Send(message) > 0 && Receive(answer) > 0;
}

// Each call is made as an application's would be: with the error number cleared, on a live instance.
int32_t CFileTransfer::Send(std::span<const uint8_t> message) const {
  SetErrno(ZEL_OK);
  if (const auto connection = CPeerConnMgr::IfLive(connection_)) {
    return connection->Send(target_.port, kIdGroup, kIdOffset, message.data(),
                            static_cast<uint32_t>(message.size()), kTimeoutMs);
  }
  SetErrno(ZEL_E_HANDLE);
  return -1;
}

int32_t CFileTransfer::Receive(std::span<uint8_t> answer) const {
  SetErrno(ZEL_OK);
  if (const auto connection = CPeerConnMgr::IfLive(connection_)) {
    return connection->Recv(nullptr, answer.data(), static_cast<uint32_t>(answer.size()), kTimeoutMs);
  }
  SetErrno(ZEL_E_HANDLE);
  return -1;
}

// The bounds are those of the message that was sent, not of the answer, whose missing bytes read as zeros. Deliberate.
void CFileTransfer::TakeAnswer(std::span<const uint8_t> answer, size_t sentSize) {
  const auto type = static_cast<uint8_t>(answer[0] & ~kLastFlag);
  const bool isLast = (answer[0] & kLastFlag) != 0;
  if (type == kTypeFileInfo && sentSize > 1) deviceHandle_ = GetBe32(&answer[1]);
  if ((type == kTypeFileInfo || type == kTypeChunk) && sentSize > 5) error_ = GetBe32(&answer[5]);
  if (error_ != 0) {
    state_ = kStateFailed;
  } else {
    state_ = isLast ? kStateFinished : kStateGoingOn;
  }
}

}  // namespace libzel
