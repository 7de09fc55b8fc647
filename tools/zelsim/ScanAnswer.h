// The discovery datagram: reading requests, building answers as the faults make them.
//
// 9 bytes in front: type, a reserved word and a time stamp in seconds (both big-endian). A request is exactly
// these; an answer has the device's JSON document behind them.
#pragma once

#include <optional>
#include <string>

#include "Description.h"
#include "Fault.h"

namespace zelsim {

inline constexpr size_t kScanHeaderSize = 9;
inline constexpr uint8_t kScanMulticastRequest = 0;
inline constexpr uint8_t kScanAnswer = 1;
inline constexpr uint8_t kScanBroadcastRequest = 2;

struct ScanHeader {
  uint8_t type = 0;
  uint32_t reserved = 0;
  uint32_t timestamp = 0;
};

// Nothing for fewer than 9 bytes.
std::optional<ScanHeader> ReadScanHeader(ByteView bytes);

struct ScanAnswer {
  Bytes bytes;         // empty when nothing is to be sent
  std::string faults;  // names of the faults that took part, comma-separated
};

// `request` counts the requests to this device, for the faults' selection.
ScanAnswer BuildScanAnswer(const FaultPlan& plan, uint64_t request, Json document, uint32_t timestamp);

}  // namespace zelsim
