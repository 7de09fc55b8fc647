// One direction of a relayed connection: what is read from one socket goes to another one, late or in pieces.
//
// Lives on the event loop's thread. The owner keeps it alive while an operation is pending (see Start) and
// may stop it from inside any hook.
#pragma once

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <random>

#include "Bytes.h"

namespace zelsim {

class RelayStream {
 public:
  using Clock = std::chrono::steady_clock;
  using Microseconds = std::chrono::microseconds;

  struct Hooks {
    // The sender's orderly end has been passed on.
    std::function<void()> finished;
    // The sender reset the connection, or the receiver does not take any more.
    std::function<void(const asio::error_code&)> failed;
  };

  RelayStream(asio::ip::tcp::socket& from, asio::ip::tcp::socket& to);

  // All of these before Start.
  void SetDelay(Microseconds delay, Microseconds jitter);
  void SetPieces(uint64_t bytes, Microseconds gap);
  // Calls `then` once so many bytes have passed, before any other.
  void At(uint64_t bytes, std::function<void()> then);

  void Start(std::weak_ptr<void> owner, Hooks hooks);
  // Passes nothing until then.
  void Pause(Clock::time_point until);
  // Passes nothing any more.
  void Stop();

  uint64_t passed() const { return passed_; }
  // The longest that a piece had to wait for this program beyond its time.
  Microseconds latest() const { return std::chrono::duration_cast<Microseconds>(latest_); }

 private:
  enum class Kind { kBytes, kEnd, kReset };
  struct Item {
    Kind kind;
    Clock::time_point due;
    Bytes bytes;
    size_t begin = 0;
    asio::error_code error;
  };
  struct Mark {
    uint64_t position;
    std::function<void()> then;
  };

  void ReadMore();
  void OnRead(const asio::error_code& error, size_t count);
  Clock::time_point Due();
  void Pump();
  bool PlayMark();
  bool PassFront();
  bool PassBytes(Item& item);
  size_t NextSize(const Item& item) const;
  void WaitUntil(Clock::time_point time);
  void WaitWritable();
  void Resume(const asio::error_code& error);
  void Fail(const asio::error_code& error);

  asio::ip::tcp::socket& from_;
  asio::ip::tcp::socket& to_;
  asio::steady_timer timer_;
  std::weak_ptr<void> owner_;
  Hooks hooks_;
  std::minstd_rand random_{1};
  Microseconds delay_{0};
  Microseconds jitter_{0};
  uint64_t pieceBytes_ = 0;
  Microseconds pieceGap_{0};
  std::deque<Mark> marks_;
  Bytes buffer_;
  std::deque<Item> queue_;
  size_t queuedBytes_ = 0;
  uint64_t passed_ = 0;
  Clock::time_point lastDue_;
  Clock::time_point notBefore_;
  Clock::duration latest_{0};
  bool started_ = false;
  bool reading_ = false;
  bool ended_ = false;
  bool waiting_ = false;
  bool stopped_ = false;
};

}  // namespace zelsim
