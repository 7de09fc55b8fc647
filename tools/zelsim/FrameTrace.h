// How frames appear in the trace.
#pragma once

#include "Frame.h"
#include "Trace.h"

namespace zelsim {

// Adds what a request says: port, version, cmd, invokeId, error, idGroup, idOffset, length (as in the
// header), payload (its bytes) and, on the topic port, the record's verb, topic and data length.
void DescribeRequest(TraceLine& line, const Request& request);

// Adds the same of a frame that goes out (header first, no addressing words of its own).
void DescribeSent(TraceLine& line, ByteView frame);

}  // namespace zelsim
