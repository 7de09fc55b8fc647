// One request to a device as a single datagram, and the one answer to it. Any number of threads may be in here at once.
#pragma once

#include <cstdint>
#include <span>

#include "zelcomm/Frame.h"

namespace libzel {

struct UdpRequest {
  uint16_t port = 0;  // router port at the device
  uint16_t cmdId = 0;
  AddressBlock address;
  std::span<const uint8_t> payload;
};

// Sends the request to UDP port 38898 of `host` (dotted IPv4) and waits at most `timeoutMs` for one answer, without a
// retry. As much of the answer's payload as fits is copied to `answer`; how much that was is not told.
// Result: 0, or
//   4113  the datagram could not be sent (also the thread's error number),
//   4104  no answer in time, or a failed receive (also the thread's error number),
//   4112  the answer's length does not match its header,
//   4108  the answer is shorter than its headers,
//   4115  the answer carries another invoke identifier; `answer` has been filled all the same,
//   or the device's own error word, which is looked at before the invoke identifier.
uint32_t UdpSendRecv(const char* host, const UdpRequest& request, std::span<uint8_t> answer,
                     int32_t timeoutMs);

// Examines a received answer as above, without a socket.
uint32_t ReadUdpAnswer(std::span<const uint8_t> datagram, const UdpRequest& request, uint32_t invokeId,
                       std::span<uint8_t> answer);

}  // namespace libzel
