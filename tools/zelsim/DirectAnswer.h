// The answer to a direct request, as the faults make it.
//
// A direct request is one datagram with one whole frame; the answer is one too.
#pragma once

#include <optional>
#include <string>

#include "Fault.h"
#include "Fleet.h"
#include "Frame.h"

namespace zelsim {

// Nothing when the datagram is not exactly one request frame.
std::optional<Request> ReadDirectRequest(ByteView datagram);

struct DirectAnswer {
  Bytes bytes;           // empty when nothing is to be sent
  uint32_t delayMs = 0;  // how long the answer waits
  std::string faults;    // names of the faults that took part, comma-separated
};

// Reads or changes the device's identifier, echoes any other request. `device.requests` counts this request
// already.
DirectAnswer AnswerDirectRequest(const FaultPlan& plan, const Request& request, Device& device);

}  // namespace zelsim
