// Where a relay stands and what it does to the streams that pass it (--relay LISTEN=TARGET[,CONDUCT...]).
#pragma once

#include <asio/ip/tcp.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zelsim {

// Addresses with the same leading bits, at one port.
struct AddressRange {
  uint32_t base = 0;
  uint32_t hostMask = 0;  // the bits in which they differ
  uint16_t port = 0;

  bool IsOne() const { return hostMask == 0; }
  bool Has(uint32_t address) const { return (address & ~hostMask) == base; }
  // The member whose own bits are those of `address`.
  asio::ip::tcp::endpoint MemberFor(uint32_t address) const;
};

// "A.B.C.D[/BITS]:PORT"
std::optional<AddressRange> ParseAddressRange(std::string_view text);

struct RelayConduct {
  // Of every byte in both directions; up to `jitter` more, at random. The order stays.
  std::chrono::microseconds delay{0};
  std::chrono::microseconds jitter{0};
  // The stream to the client goes in segments of so many bytes, `pieceGap` apart; 0 for as it comes.
  uint64_t pieceBytes = 0;
  std::chrono::microseconds pieceGap{0};
  // After so many bytes to the client nothing passes for `silence`, in either direction.
  std::optional<uint64_t> silenceAfter;
  std::chrono::microseconds silence{0};
  // After so many bytes to the client both sides are reset.
  std::optional<uint64_t> dropAfter;
};

struct RelayRule {
  AddressRange listen;
  AddressRange target;
  RelayConduct conduct;
};

std::optional<RelayRule> ParseRelayRule(std::string_view text);

}  // namespace zelsim
