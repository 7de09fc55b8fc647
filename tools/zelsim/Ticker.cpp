#include "Ticker.h"

#include <string>

#include "Text.h"

namespace zelsim {

std::optional<TickRule> ParseTickRule(std::string_view text) {
  const auto sides = SplitOnce(text, '=');
  if (!sides) return std::nullopt;
  const auto parts = Split(sides->second, ':');
  const auto port = ParsePort(sides->first);
  const auto interval = ParseNumber(parts[0], UINT32_MAX);
  const auto version = parts.size() > 1 ? ParseNumber(parts[1], UINT8_MAX) : 1;
  if (!port || !interval || *interval == 0 || !version || parts.size() > 2) return std::nullopt;
  return TickRule{.port = *port,
                  .interval = std::chrono::milliseconds(*interval),
                  .version = static_cast<uint8_t>(*version)};
}

Bytes EncodeTick(const TickRule& rule, uint64_t number) {
  const std::string text = std::to_string(number);
  const ByteView payload(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  if (rule.version == 0) return EncodeBare(rule.port, payload);
  Bytes frame = EncodeAnswer({.port = rule.port}, payload);
  frame[1] = rule.version;
  return frame;
}

Ticker::Ticker(asio::io_context& loop, const TickRule& rule, std::function<void(const TickRule&)> fire)
    : rule_(rule), fire_(std::move(fire)), timer_(loop) {}

void Ticker::Start() {
  timer_.expires_after(rule_.interval);
  Wait();
}

void Ticker::Wait() {
  timer_.async_wait([this](const asio::error_code& error) {
    if (error) return;
    fire_(rule_);
    timer_.expires_at(timer_.expiry() + rule_.interval);
    Wait();
  });
}

}  // namespace zelsim
