// Fault.h: misbehaviour on demand (--fault [ADDRESS:PORT=]KIND[:ARGUMENT...][@FRAMES][#CONNECTION]).
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
};

struct Fault {
  FaultKind kind = FaultKind::kSplit;
  std::string where;  // the listener as given to --listen; empty for all
  uint64_t first = 0;
  uint64_t second = 0;
  Bytes bytes;
  uint64_t fromFrame = 1;
  uint64_t toFrame = UINT64_MAX;
  uint64_t connection = 0;  // 0 for all
};

std::optional<Fault> ParseFault(std::string_view text);

// "A.B.C.D:PORT=" or "A.B.C.D=" in front of a fault; the view loses it. Empty when there is none.
std::string TakeWhere(std::string_view& text);

// The faults of one connection.
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
