// Messages on router ports at a fixed interval (--tick PORT=MS[:VERSION]).
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string_view>

#include "Frame.h"

namespace zelsim {

struct TickRule {
  uint16_t port = 0;
  std::chrono::milliseconds interval{1000};
  uint8_t version = 1;  // 0 sends the bare text without the inner header
};

std::optional<TickRule> ParseTickRule(std::string_view text);

// The tick with this number: its payload is the number as decimal text.
Bytes EncodeTick(const TickRule& rule, uint64_t number);

// Calls a function at the rule's interval, without drift, until it is stopped.
class Ticker {
 public:
  Ticker(asio::io_context& loop, const TickRule& rule, std::function<void(const TickRule&)> fire);
  void Start();
  void Stop() { timer_.cancel(); }

 private:
  void Wait();

  TickRule rule_;
  std::function<void(const TickRule&)> fire_;
  asio::steady_timer timer_;
};

}  // namespace zelsim
