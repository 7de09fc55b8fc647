#include "RelayStream.h"

#include <algorithm>
#include <asio/buffer.hpp>

namespace zelsim {
namespace {

constexpr size_t kReadSize = size_t{64} * 1024;
// A receiver that is further behind than this keeps its sender waiting, as a slow network does.
constexpr size_t kMostQueued = size_t{1024} * 1024;
// Sends before other connections get their turn.
constexpr int kSendsPerTurn = 16;

}  // namespace

RelayStream::RelayStream(asio::ip::tcp::socket& from, asio::ip::tcp::socket& to)
    : from_(from), to_(to), timer_(from.get_executor()), buffer_(kReadSize) {}

void RelayStream::SetDelay(Microseconds delay, Microseconds jitter) {
  delay_ = delay;
  jitter_ = jitter;
}

void RelayStream::SetPieces(uint64_t bytes, Microseconds gap) {
  pieceBytes_ = bytes;
  pieceGap_ = gap;
}

void RelayStream::At(uint64_t bytes, std::function<void()> then) {
  const auto behind =
      std::ranges::upper_bound(marks_, bytes, {}, [](const Mark& mark) { return mark.position; });
  marks_.insert(behind, Mark{bytes, std::move(then)});
}

void RelayStream::Start(std::weak_ptr<void> owner, Hooks hooks) {
  owner_ = std::move(owner);
  hooks_ = std::move(hooks);
  started_ = true;
  Pump();
  if (!stopped_) ReadMore();
}

void RelayStream::Pause(Clock::time_point until) { notBefore_ = std::max(notBefore_, until); }

void RelayStream::Stop() {
  stopped_ = true;
  queue_.clear();
  timer_.cancel();
}

// ---- In ---------------------------------------------------------------------------------------------------

void RelayStream::ReadMore() {
  if (reading_ || ended_ || stopped_ || queuedBytes_ > kMostQueued) return;
  reading_ = true;
  from_.async_read_some(
      asio::buffer(buffer_),
      [this, keep = owner_.lock()](const asio::error_code& error, size_t count) { OnRead(error, count); });
}

void RelayStream::OnRead(const asio::error_code& error, size_t count) {
  reading_ = false;
  if (stopped_) return;
  ended_ = static_cast<bool>(error);
  Item item{.kind = Kind::kBytes, .due = Due(), .bytes = {}, .error = error};
  if (error) item.kind = error == asio::error::eof ? Kind::kEnd : Kind::kReset;
  item.bytes.assign(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(count));
  queuedBytes_ += count;
  queue_.push_back(std::move(item));
  ReadMore();
  Pump();
}

// When what has just been read is to go on.
RelayStream::Clock::time_point RelayStream::Due() {
  auto due = Clock::now() + delay_;
  if (jitter_.count() > 0) {
    due += Microseconds(std::uniform_int_distribution<int64_t>(0, jitter_.count())(random_));
  }
  lastDue_ = std::max(lastDue_, due);
  return lastDue_;
}

// ---- Out --------------------------------------------------------------------------------------------------

void RelayStream::Pump() {
  for (int turn = 0; started_ && !waiting_ && !stopped_; ++turn) {
    if (PlayMark()) continue;
    if (queue_.empty()) return;
    const auto due = std::max(queue_.front().due, notBefore_);
    if (due > Clock::now()) return WaitUntil(due);
    if (turn == kSendsPerTurn) return WaitUntil(Clock::now());
    if (!PassFront()) return;
  }
}

bool RelayStream::PlayMark() {
  if (marks_.empty() || marks_.front().position != passed_) return false;
  const auto then = std::move(marks_.front().then);
  marks_.pop_front();
  then();
  return true;
}

// False when nothing more can pass for now.
bool RelayStream::PassFront() {
  Item& item = queue_.front();
  if (item.kind == Kind::kBytes) return PassBytes(item);
  if (item.kind == Kind::kReset) {
    Fail(item.error);
    return false;
  }
  queue_.pop_front();
  asio::error_code ignored;
  to_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
  hooks_.finished();
  return false;
}

bool RelayStream::PassBytes(Item& item) {
  // The mark of a record's end keeps the system from putting two pieces into one segment.
  const auto flags = pieceBytes_ == 0 ? 0 : asio::socket_base::message_end_of_record;
  asio::error_code error;
  const size_t count = to_.send(asio::buffer(item.bytes.data() + item.begin, NextSize(item)), flags, error);
  if (error == asio::error::would_block) {
    WaitWritable();
    return false;
  }
  if (error) {
    Fail(error);
    return false;
  }
  item.begin += count;
  passed_ += count;
  queuedBytes_ -= count;
  if (item.begin == item.bytes.size()) queue_.pop_front();
  if (pieceBytes_ != 0 && passed_ % pieceBytes_ == 0)
    notBefore_ = std::max(notBefore_, Clock::now() + pieceGap_);
  ReadMore();
  return true;
}

size_t RelayStream::NextSize(const Item& item) const {
  uint64_t size = item.bytes.size() - item.begin;
  if (pieceBytes_ != 0) size = std::min(size, pieceBytes_ - passed_ % pieceBytes_);
  if (!marks_.empty()) size = std::min(size, marks_.front().position - passed_);
  return size;
}

void RelayStream::WaitUntil(Clock::time_point time) {
  waiting_ = true;
  timer_.expires_at(time);
  timer_.async_wait([this, time, keep = owner_.lock()](const asio::error_code& error) {
    latest_ = std::max(latest_, Clock::now() - time);
    Resume(error);
  });
}

void RelayStream::WaitWritable() {
  waiting_ = true;
  to_.async_wait(asio::ip::tcp::socket::wait_write,
                 [this, keep = owner_.lock()](const asio::error_code& error) { Resume(error); });
}

void RelayStream::Resume(const asio::error_code& error) {
  waiting_ = false;
  if (stopped_) return;
  if (error) return Fail(error);
  Pump();
}

void RelayStream::Fail(const asio::error_code& error) {
  Stop();
  hooks_.failed(error);
}

}  // namespace zelsim
