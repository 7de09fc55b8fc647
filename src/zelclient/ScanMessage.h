// The discovery datagrams: requests are written, answers are examined and turned into a record. No socket is known
// here.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "libzel/libzel.h"

namespace libzel {

inline constexpr size_t kScanHeaderSize = 9;

inline constexpr uint8_t kScanMulticastRequest = 0;
inline constexpr uint8_t kScanAnswer = 1;
inline constexpr uint8_t kScanBroadcastRequest = 2;

// type, reserved and timestamp, the last two big-endian.
struct ZelScanHeader {
  uint8_t type = 0;
  uint32_t reserved = 0;
  uint32_t timestamp = 0;  // s since 1970-01-01 00:00 UTC

  std::array<uint8_t, kScanHeaderSize> Bytes() const;
  // Of a datagram that is at least that long.
  static ZelScanHeader Read(std::span<const uint8_t> datagram);
};

// An answer is accepted by its type and its reserved word alone.
bool IsAcceptedAnswer(const ZelScanHeader& header);

// Reads an answer's document into a record for the sender's address. Nothing when the document is not an object.
// Throws std::logic_error when it is no JSON, or a member that is read is not a string.
std::optional<ZelScanResult> ReadScanAnswer(const std::string& document, const std::string& senderIp);

}  // namespace libzel
