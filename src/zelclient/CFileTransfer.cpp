#include "zelclient/CFileTransfer.h"

#include <algorithm>
#include <cstring>

#include "utils/Log.h"

namespace libzel {

namespace {

constexpr uint8_t kStateGoingOn = 1;
constexpr uint8_t kStateFinished = 2;
constexpr uint8_t kStateFailed = 3;

}  // namespace

CFileTransfer::CFileTransfer(uint32_t id, const ZelDeviceAddr& target, const char* localPath,
                             const char* remotePath, FileTransferCallback callback, void* user)
    : id_(id),
      user_(user),
      target_(target),
      link_(target.port),
      callback_(callback),
      file_(std::make_shared<CFile>(localPath)),
      remotePath_(remotePath, std::min(std::strlen(remotePath), kMaxFileText)) {
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
  if (!end_) end_ = FileLink::EndFromNow();
  if (CondVar::Clock::now() >= *end_) {
    Fail(ZEL_E_TIMEOUT);
    Report();
    return;
  }
  if (IsIdle()) return;
  FileMessageBuffer buffer{};
  const uint32_t size = firstStepPending_ ? WriteFileInfo(buffer) : WriteChunk(buffer);
  error_ = 0;
  FileAnswerBuffer answer{};
  if (link_.Exchange(std::span(buffer).first(size), answer, *end_)) {
    TakeAnswer(ReadFileAnswer(answer), size);
  } else {
    Fail(FileLink::IsOver(*end_) ? ZEL_E_TIMEOUT : ZEL_E_FILE_TRANSFER);
  }
  Report();
}

void CFileTransfer::Fail(int32_t code) {
  error_ = static_cast<uint32_t>(code);
  stop_ = true;
  state_ = kStateFailed;
}

void CFileTransfer::FailOnNoMemory() {
  Fail(ZEL_E_FILE_TRANSFER);
  Report();
}

uint32_t CFileTransfer::WriteFileInfo(FileMessageBuffer& buffer) {
  state_ = kStateGoingOn;
  firstStepPending_ = false;
  const auto size = static_cast<uint32_t>(file_->size());
  return WriteFileDescription({file_->GetFileName(), remotePath_, size, chunkCount_}, buffer);
}

// The read behind the last byte of an exact multiple of the chunk size finds nothing and makes an empty message.
uint32_t CFileTransfer::WriteChunk(FileMessageBuffer& buffer) {
  const int32_t count = file_->ReadFileToBuffer(ChunkPlace(buffer).data(), kFileChunkSize);
  if (count <= 0) return 0;
  const bool isLast = file_->isAtEnd();
  if (isLast) state_ = kStateFinished;
  return WriteChunkHead(++chunksSent_, deviceHandle_, isLast, static_cast<uint32_t>(count), buffer);
}

// The bounds are those of the message that was sent, not of the answer, whose missing bytes read as zeros. Deliberate.
void CFileTransfer::TakeAnswer(const FileAnswer& answer, size_t sentSize) {
  if (answer.isToDescription && sentSize > 1) deviceHandle_ = answer.handle;
  if ((answer.isToDescription || answer.isToChunk) && sentSize > 5) error_ = answer.error;
  if (error_ != 0) {
    state_ = kStateFailed;
  } else {
    state_ = answer.isLast ? kStateFinished : kStateGoingOn;
  }
}

}  // namespace libzel
