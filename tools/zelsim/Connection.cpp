#include "Connection.h"

#include <asio/buffer.hpp>
#include <asio/post.hpp>

#include "FrameTrace.h"
#include "ShapedAnswer.h"
#include "Text.h"

namespace zelsim {
namespace {

// A client that does not take its answers is not read from.
constexpr size_t kPauseReadingAt = size_t{4} * 1024 * 1024;
// A subscriber that is further behind than this is given up.
constexpr size_t kMostPending = size_t{256} * 1024 * 1024;
// How long an orderly close waits for the client's own end.
constexpr std::chrono::milliseconds kLinger{100};

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, ConnectionSettings settings, ConnectionHost& host,
                       Trace& trace)
    : socket_(std::move(socket)),
      settings_(std::move(settings)),
      host_(host),
      trace_(trace),
      writer_(socket_),
      lingerTimer_(socket_.get_executor()) {}

void Connection::Start() {
  asio::error_code ignored;
  peer_ = EndpointText(socket_.remote_endpoint(ignored));
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
  socket_.non_blocking(true, ignored);
  writer_.Start(weak_from_this(),
                {.refill = [this](Bytes& buffer) { return Refill(buffer); },
                 .drained = [this] { OnDrained(); },
                 .failed = [this](const asio::error_code& error) { Close(error.message()); }});
  if (trace_.On()) trace_.Write(Line("accept"));
  if (const Fault* split = settings_.faults.Find(FaultKind::kSplit)) {
    writer_.SetSplit(split->first, std::chrono::microseconds(split->second));
  }
  Greet();
  PlayFrameFaults();
  if (state_ != State::kStalled && state_ != State::kClosed) ReadMore();
}

void Connection::Greet() {
  const Fault* greet = settings_.faults.Find(FaultKind::kGreet);
  if (greet == nullptr) return;
  if (trace_.On()) trace_.Write(Line("fault").Text("kind", "greet").Number("bytes", greet->bytes.size()));
  writer_.Write(greet->bytes);
}

void Connection::ReadMore() {
  if (reading_) return;
  reading_ = true;
  const auto space = reader_.Space();
  socket_.async_read_some(asio::buffer(space.data(), space.size()),
                          [this, self = shared_from_this()](const asio::error_code& error, size_t count) {
                            OnRead(error, count);
                          });
}

void Connection::OnRead(const asio::error_code& error, size_t count) {
  reading_ = false;
  if (state_ == State::kClosed || state_ == State::kStalled) return;
  if (error) return OnPeerEnd(error);
  TakeBytes(count);
  if (settings_.spin.count() > 0) Spin();
  if (state_ != State::kClosed && state_ != State::kStalled && !readingPaused_ && !peerEnded_) ReadMore();
}

// After the decision to close, what the client still sends is read and dropped: closing over unread bytes
// would reset the connection and could take queued answers with it.
void Connection::TakeBytes(size_t count) {
  if (state_ != State::kOpen) return;
  reader_.Commit(count);
  ProcessFrames();
}

void Connection::Spin() {
  auto until = std::chrono::steady_clock::now() + settings_.spin;
  while (state_ == State::kOpen && !readingPaused_ && std::chrono::steady_clock::now() < until) {
    const auto space = reader_.Space();
    asio::error_code error;
    const size_t count = socket_.read_some(asio::buffer(space.data(), space.size()), error);
    if (error == asio::error::would_block) continue;
    if (error) return OnPeerEnd(error);
    TakeBytes(count);
    until = std::chrono::steady_clock::now() + settings_.spin;
  }
}

void Connection::OnPeerEnd(const asio::error_code& error) {
  peerEnded_ = true;
  if (state_ == State::kLingering || error != asio::error::eof) return Close(error.message());
  CloseAfterFlush("peer");
}

void Connection::ProcessFrames() {
  while (state_ == State::kOpen) {
    readingPaused_ = writer_.Pending() > kPauseReadingAt;
    if (readingPaused_) break;
    const auto status = reader_.Next();
    if (status == FrameReader::Status::kNeedMore) break;
    ++frames_;
    if (status == FrameReader::Status::kBadLength) {
      RefuseFrame("length");
    } else {
      ProcessFrame();
    }
  }
  writer_.Uncork();
}

void Connection::ProcessFrame() {
  const auto request = ParseRequest(reader_.CurrentHeader(), reader_.CurrentBody());
  if (!request) return RefuseFrame(reader_.CurrentHeader().version == 1 ? "body" : "version");
  if (trace_.On()) {
    TraceLine line = Line("frame").Text("dir", "in").Number("frame", frames_);
    DescribeRequest(line, *request);
    trace_.Write(line);
  }
  if (reader_.HasMore()) writer_.Cork();
  if (!host_.OnRequest(*this, *request, frames_)) return RefuseFrame("record");
  if (!settings_.faults.Empty()) PlayFrameFaults();
}

void Connection::RefuseFrame(std::string_view reason) {
  if (trace_.On()) {
    const Header& header = reader_.CurrentHeader();
    trace_.Write(Line("bad")
                     .Text("reason", reason)
                     .Number("frame", frames_)
                     .Number("port", header.port)
                     .Number("version", unsigned{header.version})
                     .Number("length", header.bodyLength));
  }
  CloseAfterFlush("bad");
}

void Connection::PlayFrameFaults() {
  if (state_ != State::kOpen) return;
  const FaultPlan& faults = settings_.faults;
  if (const Fault* stall = faults.Find(FaultKind::kStall); stall != nullptr && stall->first == frames_)
    return Stall();
  if (const Fault* reset = faults.Find(FaultKind::kReset); reset != nullptr && reset->first == frames_)
    return Reset();
  const Fault* close = faults.Find(FaultKind::kClose);
  if (close != nullptr && close->first == frames_) CloseAfterFlush("fault");
}

void Connection::Stall() {
  if (trace_.On()) trace_.Write(Line("fault").Text("kind", "stall"));
  writer_.Uncork();
  writer_.Stop();
  state_ = State::kStalled;
}

void Connection::Reset() {
  writer_.Uncork();
  asio::error_code ignored;
  socket_.set_option(asio::socket_base::linger(true, 0), ignored);
  Close("reset");
}

void Connection::Answer(uint64_t frame, const AnswerHead& head, ByteView payload) {
  if (state_ != State::kOpen && state_ != State::kFlushing) return;
  if (!settings_.faults.Empty()) return SendShaped(frame, head, payload);
  const AnswerHeadBytes front = EncodeAnswerHead(head, payload.size());
  if (trace_.On()) {
    TraceLine line = Line("frame").Text("dir", "out").Number("answers", frame);
    DescribeSent(line, EncodeAnswer(head, payload));
    trace_.Write(line);
  }
  writer_.Write(front, payload);
}

void Connection::SendShaped(uint64_t frame, const AnswerHead& head, ByteView payload) {
  const ShapedAnswer shaped = ShapeAnswer(settings_.faults, frame, head, payload);
  if (trace_.On()) {
    TraceLine line = Line("frame").Text("dir", "out").Number("answers", frame);
    DescribeSent(line, shaped.right);
    trace_.Write(line.Number("wire", shaped.bytes.size()).Text("faults", shaped.faults));
  }
  if (shaped.pauseMs == 0) {
    writer_.Write(shaped.bytes);
  } else {
    const ByteView all = shaped.bytes;
    writer_.Write(all.first(shaped.pauseAfter));
    writer_.Hold(std::chrono::milliseconds(shaped.pauseMs));
    writer_.Write(all.subspan(shaped.pauseAfter));
  }
  if (shaped.closeAfter) CloseAfterFlush("fault");
}

void Connection::AnswerLater(std::chrono::milliseconds delay, uint64_t frame, const AnswerHead& head,
                             ByteView payload) {
  auto timer = std::make_shared<asio::steady_timer>(socket_.get_executor(), delay);
  timer->async_wait([this, self = shared_from_this(), timer, frame, head,
                     kept = Bytes(payload.begin(), payload.end())](const asio::error_code& error) {
    if (!error) Answer(frame, head, kept);
  });
}

void Connection::SendMessage(ByteView frame) {
  if (state_ != State::kOpen) return;
  if (trace_.On()) {
    TraceLine line = Line("frame").Text("dir", "out");
    DescribeSent(line, frame);
    trace_.Write(line);
  }
  writer_.Write(frame);
  if (writer_.Pending() > kMostPending) Close("slow");
}

void Connection::StartBurst(const BurstRule& rule) {
  if (state_ != State::kOpen) return;
  if (trace_.On()) {
    trace_.Write(
        Line("burst").Text("topic", rule.topic).Number("count", rule.count).Number("size", rule.size));
  }
  burst_.emplace(rule);
  // From the event loop: the subscription's own read must not wait behind the burst.
  asio::post(socket_.get_executor(), [this, self = shared_from_this()] { writer_.Pump(); });
}

void Connection::StopBurst(std::string_view topic) {
  if (burst_ && burst_->Topic() == topic) burst_.reset();
}

bool Connection::Refill(Bytes& buffer) {
  if (!burst_ || state_ != State::kOpen) return false;
  if (burst_->Fill(buffer)) return true;
  if (trace_.On())
    trace_.Write(Line("burst-done").Text("topic", burst_->Topic()).Number("count", burst_->Made()));
  burst_.reset();
  return false;
}

void Connection::OnDrained() {
  if (state_ == State::kFlushing) return FinishClose();
  if (!readingPaused_) return;
  readingPaused_ = false;
  asio::post(socket_.get_executor(), [this, self = shared_from_this()] {
    if (state_ != State::kOpen) return;
    ProcessFrames();
    if (state_ == State::kOpen && !readingPaused_) ReadMore();
  });
}

void Connection::CloseAfterFlush(std::string_view reason) {
  if (state_ == State::kStalled) return Close(reason);
  if (state_ != State::kOpen) return;
  if (trace_.On()) trace_.Write(Line("closing").Text("reason", reason).Number("pending", writer_.Pending()));
  state_ = State::kFlushing;
  readingPaused_ = false;
  if (!peerEnded_) ReadMore();
  writer_.Uncork();
  if (writer_.Idle()) FinishClose();
}

void Connection::FinishClose() {
  if (state_ != State::kFlushing) return;
  state_ = State::kLingering;
  asio::error_code error;
  socket_.shutdown(asio::ip::tcp::socket::shutdown_send, error);
  if (error || peerEnded_) return Close("done");
  lingerTimer_.expires_after(kLinger);
  lingerTimer_.async_wait([this, self = shared_from_this()](const asio::error_code& timerError) {
    if (!timerError) Close("linger");
  });
}

void Connection::Close(std::string_view reason) {
  if (state_ == State::kClosed) return;
  state_ = State::kClosed;
  if (trace_.On()) trace_.Write(Line("close").Text("reason", reason).Number("frames", frames_));
  writer_.Stop();
  lingerTimer_.cancel();
  asio::error_code ignored;
  socket_.close(ignored);
  asio::post(socket_.get_executor(), [this, self = shared_from_this()] { host_.OnClosed(*this); });
}

TraceLine Connection::Line(std::string_view event) const {
  TraceLine line(event);
  line.Number("conn", settings_.id).Text("peer", peer_).Text("local", settings_.local);
  return line;
}

}  // namespace zelsim
