#include "Writer.h"

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>

namespace zelsim {
namespace {

// Sends before other connections get their turn.
constexpr int kSendsPerTurn = 16;
// A larger buffer is given back once it has been sent.
constexpr size_t kKeptCapacity = size_t{1024} * 1024;

}  // namespace

Writer::Writer(asio::ip::tcp::socket& socket) : socket_(socket), timer_(socket.get_executor()) {}

void Writer::Start(std::weak_ptr<void> owner, Hooks hooks) {
  owner_ = std::move(owner);
  hooks_ = std::move(hooks);
}

void Writer::SetSplit(size_t bytes, std::chrono::microseconds gap) {
  splitBytes_ = bytes;
  splitGap_ = gap;
}

void Writer::Write(ByteView head, ByteView payload) {
  if (stopped_) return;
  const bool direct = Idle() && !corked_ && splitBytes_ == 0 && barriers_.empty();
  if (direct && SendDirectly(head, payload)) return;
  DropSent();
  Append(buffer_, head);
  Append(buffer_, payload);
  if (!corked_) Pump();
}

// A peer that never catches up must not keep what it was sent long ago.
void Writer::DropSent() {
  if (begin_ < kKeptCapacity || begin_ < buffer_.size() / 2) return;
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(begin_));
  begin_ = 0;
}

// False when the socket takes nothing; otherwise the bytes are sent or queued, or the connection has failed.
bool Writer::SendDirectly(ByteView head, ByteView payload) {
  const std::array<asio::const_buffer, 2> parts{asio::buffer(head.data(), head.size()),
                                                asio::buffer(payload.data(), payload.size())};
  asio::error_code error;
  const size_t count = socket_.write_some(parts, error);
  if (error == asio::error::would_block) return false;
  if (error) {
    Fail(error);
    return true;
  }
  sent_ += count;
  if (count == head.size() + payload.size()) return true;
  Append(buffer_, head.subspan(std::min(count, head.size())));
  Append(buffer_, payload.subspan(count > head.size() ? count - head.size() : 0));
  WaitWritable();
  return true;
}

void Writer::Hold(std::chrono::milliseconds pause) { barriers_.push_back({sent_ + Pending(), pause}); }

void Writer::Uncork() {
  corked_ = false;
  if (Pending() > 0) Pump();
}

void Writer::Stop() {
  stopped_ = true;
  buffer_.clear();
  begin_ = 0;
  timer_.cancel();
}

size_t Writer::Sendable() const {
  size_t most = Pending();
  if (!barriers_.empty()) most = std::min<uint64_t>(most, barriers_.front().position - sent_);
  return splitBytes_ == 0 ? most : std::min(most, splitBytes_);
}

bool Writer::AtBarrier() const { return !barriers_.empty() && barriers_.front().position == sent_; }

void Writer::Pump() {
  for (int turn = 0; !waiting_ && !stopped_; ++turn) {
    if (AtBarrier()) {
      const auto pause = barriers_.front().pause;
      barriers_.pop_front();
      return WaitTimer(pause);
    }
    if (Pending() == 0 && !Refill()) return hooks_.drained();
    if (turn == kSendsPerTurn) return WaitWritable();
    if (!SendSome(Sendable())) return;
    if (splitBytes_ != 0) return WaitTimer(splitGap_);
  }
}

bool Writer::Refill() {
  buffer_.clear();
  begin_ = 0;
  if (buffer_.capacity() > kKeptCapacity) Bytes().swap(buffer_);
  return hooks_.refill(buffer_);
}

bool Writer::SendSome(size_t most) {
  asio::error_code error;
  const size_t count = socket_.write_some(asio::buffer(buffer_.data() + begin_, most), error);
  if (error == asio::error::would_block) {
    WaitWritable();
    return false;
  }
  if (error) {
    Fail(error);
    return false;
  }
  begin_ += count;
  sent_ += count;
  return true;
}

void Writer::WaitWritable() {
  waiting_ = true;
  socket_.async_wait(asio::ip::tcp::socket::wait_write,
                     [this, keep = owner_.lock()](const asio::error_code& error) { Resume(error); });
}

void Writer::WaitTimer(std::chrono::microseconds time) {
  waiting_ = true;
  timer_.expires_after(time);
  timer_.async_wait([this, keep = owner_.lock()](const asio::error_code& error) { Resume(error); });
}

void Writer::Resume(const asio::error_code& error) {
  waiting_ = false;
  if (stopped_) return;
  if (error) return Fail(error);
  Pump();
}

void Writer::Fail(const asio::error_code& error) {
  Stop();
  hooks_.failed(error);
}

}  // namespace zelsim
