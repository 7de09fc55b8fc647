// Everything that one connection sends, in order.
//
// Bytes that the socket takes at once are sent at once, with one system call for an answer's two parts; the
// rest waits in one buffer until the socket is writable again. The owner keeps the writer alive while an
// operation is pending (see Start) and uses it on the event loop's thread only.
#pragma once

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>

#include "Bytes.h"

namespace zelsim {

class Writer {
 public:
  struct Hooks {
    // Puts more bytes into the empty buffer; false when there are none.
    std::function<bool(Bytes&)> refill;
    // Nothing is queued any more.
    std::function<void()> drained;
    std::function<void(const asio::error_code&)> failed;
  };

  explicit Writer(asio::ip::tcp::socket& socket);

  void Start(std::weak_ptr<void> owner, Hooks hooks);
  // From now on at most `bytes` go out per send, `gap` apart.
  void SetSplit(size_t bytes, std::chrono::microseconds gap);

  void Write(ByteView head, ByteView payload = {});
  // What is written from now on waits `pause` after the last byte written so far has gone out.
  void Hold(std::chrono::milliseconds pause);
  // Collects what is written until Uncork(), then sends it together.
  void Cork() { corked_ = true; }
  void Uncork();
  // Looks for bytes to send, refill included.
  void Pump();
  // Sends nothing any more.
  void Stop();

  size_t Pending() const { return buffer_.size() - begin_; }
  bool Idle() const { return Pending() == 0 && !waiting_; }

 private:
  struct Barrier {
    uint64_t position;  // in bytes since the connection's start
    std::chrono::milliseconds pause;
  };

  bool SendDirectly(ByteView head, ByteView payload);
  void DropSent();
  size_t Sendable() const;
  bool AtBarrier() const;
  bool SendSome(size_t most);
  bool Refill();
  void WaitWritable();
  void WaitTimer(std::chrono::microseconds time);
  void Resume(const asio::error_code& error);
  void Fail(const asio::error_code& error);

  asio::ip::tcp::socket& socket_;
  asio::steady_timer timer_;
  std::weak_ptr<void> owner_;
  Hooks hooks_;
  Bytes buffer_;
  size_t begin_ = 0;
  uint64_t sent_ = 0;
  std::deque<Barrier> barriers_;
  size_t splitBytes_ = 0;
  std::chrono::microseconds splitGap_{0};
  bool corked_ = false;
  bool waiting_ = false;
  bool stopped_ = false;
};

}  // namespace zelsim
