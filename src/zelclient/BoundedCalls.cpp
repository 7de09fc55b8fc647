#include "zelclient/BoundedCalls.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "zelcomm/ErrorCode.h"
#include "zelcomm/RequestFrame.h"

namespace libzel {

namespace {

CondVar::Clock::time_point EndOf(uint32_t timeoutMs) {
  return CondVar::Clock::now() + std::chrono::milliseconds(timeoutMs);
}

}  // namespace

BoundedCalls::BoundedCalls(CTcpclient& connection, uint32_t timeoutMs)
    : connection_(connection), timeoutMs_(timeoutMs), end_(EndOf(timeoutMs)) {}

bool BoundedCalls::IsTooLong(uint64_t payloadSize) {
  if (payloadSize <= kMaxSentFrame - kRequestOverhead) return false;
  connection_.notes().Add(Count::kTooLong);
  return true;
}

// ---- Requests ---------------------------------------------------------------------------------------------

int32_t BoundedCalls::Request(const libzelx_Request& request, std::span<uint8_t> answer,
                              libzelx_Outcome& out) {
  const auto fail = [&](int32_t result, bool maySend = false) {
    out = {sizeof out, result, 0, 0, maySend ? 1U : 0U};
    return result;
  };
  if (connection_.IsReceiveThread()) return fail(LIBZELX_E_WOULD_BLOCK);
  if (IsTooLong(request.length)) return fail(LIBZELX_E_TOO_LONG);
  const Link link = connection_.LinkBefore(end_);
  if (link == nullptr) return fail(ZEL_E_DISCONNECTED);
  if (const int32_t result = connection_.loop_start(); result != ZEL_OK) return fail(result);

  PendingRequest pending;
  pending.port = request.port;
  pending.end = end_;
  pending.link = link;
  pending.room = answer;
  RequestTable& table = connection_.requests();
  const uint32_t invokeId = connection_.GenInvokeId();
  if (!table.Enter(pending, invokeId)) return fail(LIBZELX_E_CANCELLED);
  const Written written = SendRequest(link, request, invokeId);
  if (written.end != Written::End::kWhole && table.Withdraw(invokeId)) {
    return fail(ResultOf(written), written.bytes != 0);
  }
  table.Await(pending);
  out = {sizeof out, pending.result, pending.deviceError, pending.answerLength, written.bytes != 0 ? 1U : 0U};
  return pending.result;
}

int32_t BoundedCalls::RequestAsync(const libzelx_Request& request, libzelx_AnswerCallback callback,
                                   void* user, uint64_t& ticket) {
  if (IsTooLong(request.length)) return LIBZELX_E_TOO_LONG;
  const Link link = connection_.LinkBefore(end_);
  if (link == nullptr) return ZEL_E_DISCONNECTED;
  if (const int32_t result = connection_.loop_start(); result != ZEL_OK) return result;

  auto pending = std::make_unique<PendingRequest>();
  pending->port = request.port;
  pending->end = end_;
  pending->link = link;
  pending->callback = callback;
  pending->user = user;
  pending->ticket = ticket = RequestTable::NextTicket();
  const uint32_t invokeId = connection_.GenInvokeId();
  bool isNextDue = false;
  const uint64_t mine = connection_.requests().Enter(std::move(pending), invokeId, isNextDue);
  if (mine == 0) return LIBZELX_E_CANCELLED;
  const Written written = SendRequest(link, request, invokeId);
  if (written.end != Written::End::kWhole && connection_.requests().WithdrawTicket(mine)) {
    return ResultOf(written);
  }
  if (isNextDue && !connection_.IsReceiveThread()) connection_.LookAgain();
  return ZEL_OK;
}

SocketLink::Written BoundedCalls::SendRequest(const Link& link, const libzelx_Request& request,
                                              uint32_t invokeId) {
  const platform::ConstBytes payload(static_cast<const uint8_t*>(request.data), request.length);
  const RequestFrame frame(request.port, invokeId, {request.group, request.offset}, {&payload, 1},
                           request.command != 0 ? request.command : kCmdApplication);
  return SendFrame(link, frame);
}

// A frame that left in part leaves the stream without its framing: the link is dropped.
SocketLink::Written BoundedCalls::SendFrame(const Link& link, const RequestFrame& frame) {
  const Written written = Send(link, frame.pieces());
  if (written.end == Written::End::kWhole) {
    connection_.notes().AddFrames(Count::kFramesOut, Count::kBytesOut, 1, written.bytes);
  } else if (written.end == Written::End::kStalled && written.bytes != 0) {
    connection_.DropStalled(*link, timeoutMs_);
  }
  return written;
}

SocketLink::Written BoundedCalls::Send(const Link& link, std::span<const platform::ConstBytes> pieces) {
  // A link that was lost before its request was entered has told its requests already.
  if (!link->connected()) return {Written::End::kFailed};
  const Written written = link->writeBefore(pieces, end_);
  if (written.end == Written::End::kFailed) connection_.WriteFailed(*link);
  return written;
}

int32_t BoundedCalls::ResultOf(const Written& written) {
  return written.end == Written::End::kFailed ? ZEL_E_DISCONNECTED : ZEL_E_TIMEOUT;
}

// ---- Publications -----------------------------------------------------------------------------------------

// Frames in a row, ready for one write.
class BoundedCalls::Batch {
 public:
  static constexpr size_t kSize = size_t{64} * 1024;

  bool IsEmpty() const { return ends_.empty(); }
  bool HasRoomFor(size_t frameSize) const { return bytes_.size() + frameSize <= kSize; }
  void Add(const TopicRecord& record, uint32_t invokeId) {
    const size_t recordSize = TopicRecordSize(record);
    const size_t begin = bytes_.size();
    bytes_.resize(begin + kRequestOverhead + recordSize);
    uint8_t* at = bytes_.data() + begin;
    WriteRequestHead(at, kTopicPort, invokeId, {record.IdGroup, record.IdOffset},
                     static_cast<uint32_t>(recordSize));
    at += kRequestOverhead;
    WriteTopicRecordHead(at, record);
    at += TopicRecordHeadSize(record);
    std::copy(record.data.begin(), record.data.end(), at);
    WriteTopicRecordTail(at + record.data.size(), record);
    ends_.push_back(bytes_.size());
  }
  platform::ConstBytes bytes() const { return bytes_; }
  // Of the frames, those that end within the first `count` bytes.
  size_t FramesWithin(size_t count) const {
    return static_cast<size_t>(std::upper_bound(ends_.begin(), ends_.end(), count) - ends_.begin());
  }
  // False when a frame was cut by ending there.
  bool EndsAt(size_t count) const {
    return count == 0 || std::binary_search(ends_.begin(), ends_.end(), count);
  }
  void Clear() {
    bytes_.clear();
    ends_.clear();
  }

 private:
  std::vector<uint8_t> bytes_;
  std::vector<size_t> ends_;
};

int32_t BoundedCalls::Publish(const TopicRecord& record) {
  if (IsTooLong(TopicRecordSize(record))) return LIBZELX_E_TOO_LONG;
  const Link link = connection_.LinkBefore(end_);
  if (link == nullptr) return ZEL_E_DISCONNECTED;
  const TopicRecordPieces pieces(record);
  const RequestFrame frame(kTopicPort, connection_.GenInvokeId(), {record.IdGroup, record.IdOffset},
                           pieces.pieces());
  const Written written = SendFrame(link, frame);
  return written.end == Written::End::kWhole ? ZEL_OK : ResultOf(written);
}

int32_t BoundedCalls::PublishMany(std::span<const TopicRecord> records, size_t& sent) {
  for (const auto& record : records) {
    if (IsTooLong(TopicRecordSize(record))) return LIBZELX_E_TOO_LONG;
  }
  Link link;
  Batch batch;
  const auto write = [&] {
    if (link == nullptr) link = connection_.LinkBefore(end_);
    if (link == nullptr) return ZEL_E_DISCONNECTED;
    const platform::ConstBytes bytes = batch.bytes();
    const Written written = Send(link, {&bytes, 1});
    const size_t whole = batch.FramesWithin(written.bytes);
    sent += whole;
    connection_.notes().AddFrames(Count::kFramesOut, Count::kBytesOut, whole, written.bytes);
    if (written.end == Written::End::kWhole) return ZEL_OK;
    if (written.end == Written::End::kStalled && !batch.EndsAt(written.bytes)) {
      connection_.DropStalled(*link, timeoutMs_);
    }
    return ResultOf(written);
  };
  for (const auto& record : records) {
    if (!batch.IsEmpty() && !batch.HasRoomFor(kRequestOverhead + TopicRecordSize(record))) {
      if (const int32_t result = write(); result != ZEL_OK) return result;
      batch.Clear();
    }
    batch.Add(record, connection_.GenInvokeId());
  }
  return batch.IsEmpty() ? ZEL_OK : write();
}

int32_t BoundedCalls::Flush() {
  for (;;) {
    const Link link = connection_.PresentLink();
    if (!link->connected()) return ZEL_E_DISCONNECTED;
    const int64_t unsent = platform::UnsentBytes(link->handle());
    if (unsent < 0) return ZEL_E_PROTOCOL;
    if (unsent == 0) return ZEL_OK;
    if (CondVar::Clock::now() >= end_) return ZEL_E_TIMEOUT;
    (void)link->Pause(1);
  }
}

}  // namespace libzel
