#include "zelclient/BoundedCalls.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "utils/Stopwatch.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/RequestFrame.h"

namespace libzel {

namespace {

CondVar::Clock::time_point EndOf(int64_t timeoutMs) {
  return CondVar::Clock::now() + std::chrono::milliseconds(timeoutMs);
}

}  // namespace

BoundedCalls::BoundedCalls(CTcpclient& connection, uint32_t timeoutMs, uint32_t answerMs)
    : connection_(connection), timeoutMs_(timeoutMs), answerMs_(answerMs), end_(EndOf(timeoutMs)) {}

bool BoundedCalls::IsTooLong(uint64_t payloadSize) {
  if (payloadSize <= kMaxSentFrame - kRequestOverhead) return false;
  connection_.notes().Add(Count::kTooLong);
  return true;
}

// ---- Requests ---------------------------------------------------------------------------------------------

// A caller's request in the table, which must not outlive its place on the stack, whatever is thrown.
class BoundedCalls::Entered {
 public:
  Entered(RequestTable& table, PendingRequest& request) : table_(table), request_(request) {}
  ~Entered() { table_.Leave(request_); }
  Entered(const Entered&) = delete;
  Entered& operator=(const Entered&) = delete;

 private:
  RequestTable& table_;
  PendingRequest& request_;
};

// The receive thread's turn, given back in the end, whatever is thrown.
class BoundedCalls::Borrowed {
 public:
  explicit Borrowed(CTcpclient& connection) : connection_(connection) {}
  ~Borrowed() {
    ReadTurn& turn = connection_.readTurn();
    turn.Return();
    // Whoever entered a request meanwhile could not borrow the turn, and waits for the receive thread.
    if (isAllRead_ && connection_.requests().InFlight() == 0) return;
    turn.Want();
    connection_.LookAgain();
  }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  // Nothing is left that has been read.
  void NoteAllRead() { isAllRead_ = true; }

 private:
  CTcpclient& connection_;
  bool isAllRead_ = false;
};

int32_t BoundedCalls::Request(const libzelx_Request& request, std::span<uint8_t> answer,
                              libzelx_Outcome& out) {
  if (connection_.IsReceiveThread()) return LIBZELX_E_WOULD_BLOCK;
  Link link;
  if (const int32_t result = Prepare(request, link); result != ZEL_OK) return result;

  PendingRequest pending;
  pending.port = request.port;
  pending.end = end_;
  pending.link = link;
  pending.room = answer;
  RequestTable& table = connection_.requests();
  uint32_t invokeId = 0;
  if (!EnterUnderFreeId(table, pending, invokeId)) return LIBZELX_E_CANCELLED;
  const Entered entered(table, pending);
  const Written written = SendRequest(link, request, invokeId);
  out.maySent = written.bytes != 0 ? 1 : 0;
  const bool isOver = written.end != Written::End::kWhole && table.Withdraw(pending);
  Settle(link, written);
  if (isOver) return ResultOf(written);
  if (answerMs_ < timeoutMs_) pending.end = std::min(end_, EndOf(answerMs_));
  ReadInTurn(*link, pending);
  table.Await(pending);
  out.deviceError = pending.deviceError;
  out.answerLength = pending.answerLength;
  return pending.result;
}

int32_t BoundedCalls::RequestAsync(const libzelx_Request& request, libzelx_AnswerCallback callback,
                                   void* user, uint64_t& ticket) {
  Link link;
  if (const int32_t result = Prepare(request, link); result != ZEL_OK) return result;

  auto pending = std::make_unique<PendingRequest>();
  pending->port = request.port;
  pending->end = end_;
  pending->link = link;
  pending->callback = callback;
  pending->user = user;
  const uint64_t mine = pending->ticket = RequestTable::NextTicket();
  ticket = mine;
  RequestTable& table = connection_.requests();
  uint32_t invokeId = 0;
  if (!EnterUnderFreeId(table, pending, invokeId)) return LIBZELX_E_CANCELLED;
  Written written;
  try {
    written = SendRequest(link, request, invokeId);
  } catch (const std::bad_alloc&) {
    if (table.WithdrawTicket(mine)) throw;
    return ZEL_OK;  // its callback has the outcome
  }
  const bool isOver = written.end != Written::End::kWhole && table.WithdrawTicket(mine);
  Settle(link, written);
  if (isOver) return ResultOf(written);
  if (table.NoteSent(mine) && !connection_.IsReceiveThread()) connection_.LookAgain();
  return ZEL_OK;
}

// What comes before a request is entered: a link, and a receive thread.
int32_t BoundedCalls::Prepare(const libzelx_Request& request, Link& link) {
  if (IsTooLong(request.length)) return LIBZELX_E_TOO_LONG;
  link = connection_.LinkBefore(end_);
  if (link == nullptr) return connection_.IsLive() ? ZEL_E_DISCONNECTED : LIBZELX_E_CANCELLED;
  return connection_.loop_start();
}

// False when the table is closed.
template <typename Pending>
bool BoundedCalls::EnterUnderFreeId(RequestTable& table, Pending& request, uint32_t& invokeId) {
  auto entry = RequestTable::Entry::kTaken;
  while (entry == RequestTable::Entry::kTaken) {
    invokeId = connection_.NextInvokeId();
    entry = table.Enter(request, invokeId);
  }
  return entry == RequestTable::Entry::kDone;
}

SocketLink::Written BoundedCalls::SendRequest(const Link& link, const libzelx_Request& request,
                                              uint32_t invokeId) {
  const platform::ConstBytes payload(static_cast<const uint8_t*>(request.data), request.length);
  const RequestFrame frame(request.port, invokeId, {request.group, request.offset}, {&payload, 1},
                           request.command != 0 ? request.command : kCmdApplication);
  return SendFrame(link, frame);
}

SocketLink::Written BoundedCalls::SendFrame(const Link& link, const RequestFrame& frame) {
  const Written written = Send(link, frame.pieces());
  const bool isWhole = written.end == Written::End::kWhole;
  connection_.notes().AddFrames(Count::kFramesOut, Count::kBytesOut, isWhole ? 1 : 0, written.bytes);
  return written;
}

// A link that was lost before its request was entered has told its requests already.
SocketLink::Written BoundedCalls::Send(const Link& link, std::span<const platform::ConstBytes> pieces) {
  return link->connected() ? link->writeBefore(pieces, end_) : Written{Written::End::kFailed};
}

// What a write that ended so means to the link. A frame that left in part leaves the stream without its framing: the
// link is dropped.
void BoundedCalls::Settle(const Link& link, const Written& written, bool isCut) {
  if (written.end != Written::End::kWhole) connection_.NoteUnsent(*link, written, isCut, timeoutMs_);
}

int32_t BoundedCalls::ResultOf(const Written& written) {
  return written.end == Written::End::kFailed ? ZEL_E_DISCONNECTED : ZEL_E_TIMEOUT;
}

// Reads in the receive thread's place, if that has lent its turn: up to the answer of this request, up to something that
// is the receive thread's to read, or for a short while.
void BoundedCalls::ReadInTurn(SocketLink& link, const PendingRequest& request) {
  if (!connection_.readTurn().Borrow()) return;
  Borrowed borrowed(connection_);
  if (ReadAnswers(link, request)) borrowed.NoteAllRead();
}

// True when the answer came and nothing is left that has been read.
bool BoundedCalls::ReadAnswers(SocketLink& link, const PendingRequest& request) {
  const auto end = std::min(end_, EndOf(ReadTurn::kBorrowedMs));
  while (!connection_.requests().HasEnded(request)) {
    if (!link.SelectEagerly(std::max<int64_t>(MsUntil(end), 0))) return false;
    // One that was left with the link is the answer that was begun here.
    if (link.HasUnfinished() ? !ReadLongAnswer(link) : !ReadAnswer(link, request)) return false;
  }
  return !link.HasReadAhead();
}

// False when what comes next is the receive thread's to read.
bool BoundedCalls::ReadAnswer(SocketLink& link, const PendingRequest& request) {
  {
    // Whoever reads the stream beside this one must not take the same frame.
    if (!link.frameMutex().try_lock_for(0)) return false;
    const AdoptedLock turn(link.frameMutex());
    const auto frame = link.PeekFrame();
    if (!frame || frame->header.nMsgLen > connection_.receiveTerms().limits.longestBody) return false;
    if (frame->IsWhole()) {
      const auto taken = connection_.requests().Take(*frame, RequestTable::Reader::kCaller);
      if (taken == RequestTable::Taken::kNo) return false;
      connection_.notes().AddFrameIn(*frame);
      link.SkipWhole(*frame);
      return true;
    }
    if (!IsLongAnswer(*frame, request)) return false;
  }
  return ReadLongAnswer(link);
}

// True when this frame, of which only a part is there, is worth to be waited for here: it is the answer to this very
// request, and there is time enough, where who begins a frame has to read it to its end.
bool BoundedCalls::IsLongAnswer(const FrameView& frame, const PendingRequest& request) const {
  const auto zoe = ZoeHeader::Read(frame.body);
  if (frame.header.version != kVersionZoe || !zoe || zoe->invokeId != request.invokeId) return false;
  const auto terms = connection_.receiveTerms();
  const auto bodyEnd = CondVar::Clock::now() + std::chrono::milliseconds(terms.bodyMs);
  return request.MayGetAnswerFrom(frame.header.port) && (terms.bodySilenceMs != 0 || bodyEnd < end_);
}

// False when the frame could not be read: the receive thread goes on from there.
bool BoundedCalls::ReadLongAnswer(SocketLink& link) {
  FrameReader reader;
  const auto outcome = connection_.ReadOrClose(link, reader, connection_.receiveTerms());
  if (outcome == FrameReader::Outcome::kNothing) return true;
  if (outcome != FrameReader::Outcome::kFrame) {
    if (!link.IsCancelled()) connection_.HandleFailure(link, outcome, reader);
    return false;
  }
  connection_.notes().AddFrameIn(reader.frame());
  const auto taken = connection_.requests().Take(reader.frame(), RequestTable::Reader::kCaller);
  if (taken == RequestTable::Taken::kNo) connection_.notes().Add(Count::kLateAnswers);  // it ended meanwhile
  return true;
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
  Settle(link, written);
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
    const bool isCut = !batch.EndsAt(written.bytes);
    if (!isCut && written.bytes != 0 && written.end != Written::End::kWhole) link->ForgetCut();
    Settle(link, written, isCut);
    return written.end == Written::End::kWhole ? ZEL_OK : ResultOf(written);
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
  const Link link = connection_.PresentLink();
  while (link->connected()) {
    const int64_t unsent = platform::UnsentBytes(link->handle());
    if (unsent < 0) return ZEL_E_PROTOCOL;
    if (unsent == 0) return ZEL_OK;
    if (platform::HasPeerEnded(link->handle())) break;  // maybe nobody else looks
    if (CondVar::Clock::now() >= end_) return ZEL_E_TIMEOUT;
    link->Pause(1);
  }
  return ZEL_E_DISCONNECTED;
}

}  // namespace libzel
