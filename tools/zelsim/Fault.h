// Misbehaviour on demand (--fault [ADDRESS:PORT=]KIND[:ARGUMENT...][@FRAMES][#CONNECTION]).
//
// A fault without an address applies to every listener. FRAMES selects received frames of one connection by
// their number, counted from 1: "3" is the third only, "3+" the third and all later ones, "3-5" a range.
// CONNECTION selects one connection by its number on its listener, counted from 1.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"

namespace zelsim {

enum class FaultKind {
  kSplit,    // split:N[:US]     everything is written N bytes at a time, US microseconds apart (default 200)
  kShort,    // short:N          the last N bytes of an answer are missing, its header still announces them
  kBody,     // body:N           the answer's body is cut to N bytes and announced as N
  kLength,   // length:N         the header announces N, the body is sent as it is ("zero", "oversize" also)
  kInvoke,   // invoke:N         N answers with other invoke identifiers come before the right one
  kVersion,  // version:N        the header's version byte is N; 0 also leaves the inner header out
  kClose,    // close:N          orderly close after N received frames, everything queued is still sent
  kReset,    // reset:N          reset after N received frames
  kStall,    // stall:N          after N received frames nothing is read or written any more
  kGarbage,  // garbage:N[:SEED] N pseudo-random bytes in place of the answer
  kRaw,      // raw:HEX          these bytes in place of the answer (raw:@FILE reads them from a file)
  kGreet,    // greet:HEX        these bytes as soon as the connection is accepted (greet:@FILE)
  kCut,      // cut:N            only the first N bytes of the answer, then an orderly close
  kPause,    // pause:N:MS       MS milliseconds pass after the first N bytes of an answer

  kScanSilent,     // scan-silent        no discovery answer
  kScanShort,      // scan-short[:N]     only the first N bytes of the answer (default 8)
  kScanHeader,     // scan-header        only the 9 bytes in front of the document
  kScanType,       // scan-type[:N]      the type byte is N (default 3)
  kScanReserved,   // scan-reserved[:N]  the reserved word is N (default 1)
  kScanNotJson,    // scan-not-json      text that is no JSON
  kScanNotObject,  // scan-not-object    a JSON array
  kScanMember,     // scan-member:NAME   the member is a number: one of "device", "device" itself, "frames",
                   //                    "frameIp" or "frameMacAddr"
  kScanNoMac,      // scan-no-mac        the frames have no frameMacAddr
  kScanOversize,   // scan-oversize[:N]  a datagram of N bytes (default 3000), its document still valid
  kScanText,       // scan-text:TEXT     TEXT in place of the document
  kScanRaw,        // scan-raw:HEX|@FILE these bytes in place of the whole answer

  kUdpSilent,    // udp-silent           no answer to a direct request
  kUdpError,     // udp-error:CODE       the error word is CODE, the payload is empty
  kUdpInvoke,    // udp-invoke[:N]       the invoke identifier is N too high (default 1)
  kUdpLength,    // udp-length:N|be|zero the announced length is N, or has its bytes swapped, or is 0
  kUdpShort,     // udp-short[:N]        cut to N bytes and announced so (default 20, a body of 12)
  kUdpOversize,  // udp-oversize[:N]     a datagram of N bytes (default 5000)
  kUdpSize,      // udp-size:N           a payload of N bytes in place of the right one
  kUdpDelay,     // udp-delay:MS         the answer waits
  kUdpRaw,       // udp-raw:HEX|@FILE    these bytes in place of the answer

  kTransferError,   // transfer-error:CODE the answer carries CODE
  kTransferLate,    // transfer-late:MS    the answer waits
  kTransferShort,   // transfer-short[:N]  only the first N bytes of the answer's 9 (default 1)
  kTransferSilent,  // transfer-silent     no answer
  kTransferClose,   // transfer-close      no answer, and an orderly close
};

enum class FaultFamily { kTcp, kScan, kUdp, kTransfer };
FaultFamily FamilyOf(FaultKind kind);

// The value of first in a kUdpLength fault that swaps the bytes.
inline constexpr uint64_t kSwapLength = uint64_t{1} << 32;

struct Fault {
  FaultKind kind = FaultKind::kSplit;
  std::string where;  // empty for everywhere
  uint64_t first = 0;
  uint64_t second = 0;
  Bytes bytes;
  uint64_t fromFrame = 0;
  uint64_t toFrame = UINT64_MAX;
  uint64_t connection = 0;  // 0 for all
};

std::optional<Fault> ParseFault(std::string_view text);

// "A.B.C.D:PORT=" or "A.B.C.D=" in front of a fault; the view loses it. Empty when there is none.
std::string TakeWhere(std::string_view& text);

// The first fault of this kind that covers the number, or null.
const Fault* FindFault(const std::vector<Fault>& faults, FaultKind kind, uint64_t number);

// The faults of one connection or one device.
class FaultPlan {
 public:
  FaultPlan() = default;
  FaultPlan(const std::vector<Fault>& all, std::string_view where, uint64_t connection);

  bool Empty() const { return faults_.empty(); }
  // The fault of this kind that covers the frame, or null.
  const Fault* Find(FaultKind kind, uint64_t frame) const;
  // The fault of this kind whatever frames it covers, or null.
  const Fault* Find(FaultKind kind) const;

 private:
  std::vector<Fault> faults_;
};

}  // namespace zelsim
