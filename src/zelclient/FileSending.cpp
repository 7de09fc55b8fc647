#include "zelclient/FileSending.h"

#include <algorithm>
#include <utility>

#include "utils/Log.h"
#include "utils/Stopwatch.h"
#include "zelclient/BoundedCalls.h"
#include "zelclient/CFileTransfer.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

namespace {

constexpr int64_t kMaxWriteMs = 5000;
constexpr int64_t kAnswerMs = 1000;

// How long a message and its answer may take.
uint32_t MsBefore(FileLink::TimePoint end) {
  return static_cast<uint32_t>(std::clamp<int64_t>(MsUntil(end), 0, kMaxWriteMs + kAnswerMs));
}

// As many bytes as a message has room for, and no part of a character.
std::string CutName(std::string name) {
  if (name.size() <= kMaxFileText) return name;
  size_t size = kMaxFileText;
  while (size > 0 && (static_cast<uint8_t>(name[size]) & 0xC0) == 0x80) --size;
  name.resize(size);
  return name;
}

}  // namespace

FileSending::FileSending(FileOrder order, RegularFile file)
    : order_(std::move(order)), file_(std::move(file)) {}

void FileSending::Begin(std::weak_ptr<IZelPeerConnection> connection, FileLink::TimePoint end) {
  connection_ = std::move(connection);
  end_ = end;
}

void FileSending::Step() {
  const int32_t result = IsCancelled() ? LIBZELX_E_CANCELLED : SendNext();
  if (result != kGoesOn) {
    End(result);
    return;
  }
  const libzelx_FileEvent event = Progress();
  isTelling_ = true;
  if (order_.callback(&event, order_.user) == -1) Cancel();
  isTelling_ = false;
}

void FileSending::End(int32_t result) {
  if (hasEnded_.exchange(true)) return;
  libzelx_FileEvent event = Progress();
  event.ended = 1;
  event.result = result;
  event.deviceError = deviceError_;
  event.readOffset = readOffset_;
  LogEnd(result);
  (void)order_.callback(&event, order_.user);
}

void FileSending::LogEnd(int32_t result) const noexcept {
  try {
    ZEL_LOG_AS("FileSending::End", kInfo, "file:%s to:%s,result:%d,sent:%u", order_.localPath.c_str(),
               DeviceIdText(device()).c_str(), result, sent_);
  } catch (const std::bad_alloc&) {
    // The end has been told, which is what counts.
  }
}

libzelx_FileEvent FileSending::Progress() const {
  libzelx_FileEvent event{};
  event.size = sizeof event;
  event.ticket = ticket_;
  event.sent = sent_;
  event.total = file_.size();
  return event;
}

int32_t FileSending::SendNext() {
  if (CondVar::Clock::now() >= end_) return ZEL_E_TIMEOUT;
  FileMessageBuffer buffer{};
  uint32_t size = 0;
  if (const int32_t result = WriteNext(buffer, size); result != ZEL_OK) return result;
  FileAnswerBuffer answer{};
  if (!Exchange(std::span(buffer).first(size), answer)) return WhyFailed();
  return TakeAnswer(ReadFileAnswer(answer));
}

// A request like any: what the device says meanwhile to nobody in particular costs neither time nor the answer.
bool FileSending::Exchange(std::span<const uint8_t> message, FileAnswerBuffer& answer) {
  deviceError_ = 0;
  const auto connection = CPeerConnMgr::IfLive(connection_);
  if (connection == nullptr) return false;
  const libzelx_Request request{sizeof request,
                                order_.target.port,
                                0,
                                kFileAddress.IdGroup,
                                kFileAddress.IdOffset,
                                message.data(),
                                static_cast<uint32_t>(message.size()),
                                0};
  libzelx_Outcome outcome{};
  BoundedCalls calls(static_cast<CTcpclient&>(*connection), MsBefore(end_), kAnswerMs);
  const bool isAnswered = calls.Request(request, answer, outcome) == ZEL_OK;
  deviceError_ = outcome.deviceError;
  return isAnswered && outcome.answerLength != 0;
}

int32_t FileSending::WriteNext(FileMessageBuffer& buffer, uint32_t& size) {
  if (isDescribed_) return WriteChunk(buffer, size);
  isDescribed_ = true;
  const uint32_t chunks = CFileTransfer::CalcChunkNum(file_.size());
  size = WriteFileDescription(
      {CutName(FileNameOf(order_.localPath)), order_.remotePath, file_.size(), chunks}, buffer);
  return ZEL_OK;
}

// No more is read than the device was told of. A whole number of chunks is followed by an empty message, and so is a file
// of no bytes: a chunk that is not full says itself that it is the last.
int32_t FileSending::WriteChunk(FileMessageBuffer& buffer, uint32_t& size) {
  const uint32_t wanted = std::min(kFileChunkSize, file_.size() - position_);
  isLast_ = wanted < kFileChunkSize;
  if (wanted == 0) return ZEL_OK;
  const auto place = ChunkPlace(buffer).first(wanted);
  uint32_t count = 0;
  while (count < wanted) {
    const int64_t got = file_.ReadAt(position_ + count, place.subspan(count));
    if (got == 0) return LIBZELX_E_FILE_CHANGED;
    if (got < 0) {
      readOffset_ = position_ + count;
      return ZEL_E_FILE_READ;
    }
    count += static_cast<uint32_t>(got);
  }
  position_ += wanted;
  size = WriteChunkHead(++chunksSent_, deviceHandle_, isLast_, wanted, buffer);
  return ZEL_OK;
}

int32_t FileSending::WhyFailed() {
  if (deviceError_ != 0) return LIBZELX_E_DEVICE;
  if (IsCancelled()) return LIBZELX_E_CANCELLED;
  return FileLink::IsOver(end_) ? ZEL_E_TIMEOUT : ZEL_E_FILE_TRANSFER;
}

// An answer of another type says nothing but that it came.
int32_t FileSending::TakeAnswer(const FileAnswer& answer) {
  if (answer.isToDescription) deviceHandle_ = answer.handle;
  if (deviceError_ == 0 && (answer.isToDescription || answer.isToChunk)) deviceError_ = answer.error;
  if (deviceError_ != 0) return LIBZELX_E_DEVICE;
  sent_ = position_;
  return isLast_ ? ZEL_OK : kGoesOn;
}

}  // namespace libzel
