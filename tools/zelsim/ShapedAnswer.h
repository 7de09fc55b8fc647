// An answer as the faults of its connection make it.
#pragma once

#include <optional>
#include <string>

#include "Fault.h"
#include "Frame.h"

namespace zelsim {

struct ShapedAnswer {
  Bytes bytes;              // what goes on the wire, wrong answers in front included
  size_t pauseAfter = 0;    // bytes before the pause
  uint32_t pauseMs = 0;     // 0 for no pause
  bool closeAfter = false;  // orderly close behind these bytes
  Bytes right;              // the right answer alone, as it is written; empty when the bytes are made up
  std::string faults;       // names of the faults that took part, comma-separated
};

ShapedAnswer ShapeAnswer(const FaultPlan& plan, uint64_t frame, const AnswerHead& head, ByteView payload);

// `size` pseudo-random bytes, the same for the same seed.
Bytes PseudoRandomBytes(size_t size, uint64_t seed);

}  // namespace zelsim
