#include "RelayRule.h"

#include <string>

#include "Text.h"

namespace zelsim {
namespace {

constexpr uint64_t kLongestUs = 3'600'000'000;

// A number and its unit: us, ms or s.
std::optional<std::chrono::microseconds> ParseTime(std::string_view text) {
  uint64_t unitUs = 0;
  if (text.ends_with("us")) {
    unitUs = 1;
  } else if (text.ends_with("ms")) {
    unitUs = 1000;
  } else if (text.ends_with('s')) {
    unitUs = 1'000'000;
  }
  if (unitUs == 0) return std::nullopt;
  text.remove_suffix(unitUs == 1'000'000 ? 1 : 2);
  const auto number = ParseNumber(text, kLongestUs / unitUs);
  if (!number) return std::nullopt;
  return std::chrono::microseconds(*number * unitUs);
}

bool ParseDelay(const std::vector<std::string_view>& parts, RelayConduct& conduct) {
  const auto delay = ParseTime(parts[1]);
  const auto jitter = parts.size() > 2 ? ParseTime(parts[2]) : std::chrono::microseconds(0);
  if (!delay || !jitter) return false;
  conduct.delay = *delay;
  conduct.jitter = *jitter;
  return true;
}

bool ParseCut(const std::vector<std::string_view>& parts, RelayConduct& conduct) {
  const auto bytes = ParseNumber(parts[1]);
  const auto gap = parts.size() > 2 ? ParseTime(parts[2]) : std::chrono::microseconds(0);
  if (!bytes || *bytes == 0 || !gap) return false;
  conduct.pieceBytes = *bytes;
  conduct.pieceGap = *gap;
  return true;
}

bool ParseSilence(const std::vector<std::string_view>& parts, RelayConduct& conduct) {
  if (parts.size() != 3) return false;
  conduct.silenceAfter = ParseNumber(parts[1]);
  const auto time = ParseTime(parts[2]);
  if (!conduct.silenceAfter || !time) return false;
  conduct.silence = *time;
  return true;
}

bool ParseDrop(const std::vector<std::string_view>& parts, RelayConduct& conduct) {
  conduct.dropAfter = ParseNumber(parts[1]);
  return parts.size() == 2 && conduct.dropAfter;
}

bool AddConduct(std::string_view text, RelayConduct& conduct) {
  const auto parts = Split(text, ':');
  if (parts.size() < 2 || parts.size() > 3) return false;
  if (parts[0] == "delay") return ParseDelay(parts, conduct);
  if (parts[0] == "cut") return ParseCut(parts, conduct);
  if (parts[0] == "silence") return ParseSilence(parts, conduct);
  return parts[0] == "drop" && ParseDrop(parts, conduct);
}

}  // namespace

asio::ip::tcp::endpoint AddressRange::MemberFor(uint32_t address) const {
  return {asio::ip::address_v4(base | (address & hostMask)), port};
}

std::optional<AddressRange> ParseAddressRange(std::string_view text) {
  const auto sides = SplitOnce(text, ':');
  if (!sides) return std::nullopt;
  const auto net = SplitOnce(sides->first, '/');
  const auto address = ParseAddress(net ? net->first : sides->first);
  const auto bits = net ? ParseNumber(net->second, 32) : 32;
  const auto port = ParsePort(sides->second);
  if (!address || !bits || !port) return std::nullopt;
  const auto hostMask = static_cast<uint32_t>((uint64_t{1} << (32 - *bits)) - 1);
  if ((address->to_uint() & hostMask) != 0) return std::nullopt;
  return AddressRange{.base = address->to_uint(), .hostMask = hostMask, .port = *port};
}

std::optional<RelayRule> ParseRelayRule(std::string_view text) {
  const auto parts = Split(text, ',');
  const auto ways = SplitOnce(parts[0], '=');
  if (!ways) return std::nullopt;
  const auto listen = ParseAddressRange(ways->first);
  const auto target = ParseAddressRange(ways->second);
  if (!listen || !target || target->port == 0) return std::nullopt;
  RelayRule rule{.listen = *listen, .target = *target, .conduct = {}};
  for (size_t i = 1; i < parts.size(); ++i) {
    if (!AddConduct(parts[i], rule.conduct)) return std::nullopt;
  }
  return rule;
}

}  // namespace zelsim
