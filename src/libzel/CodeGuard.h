// What every export of libzelx.h with a result does: the result is a code, and the thread's error number is
// the same code, whatever the body left there.
#pragma once

#include <cstdint>

#include "libzel/Guard.h"
#include "zelclient/ZelTcpclient.h"

namespace libzel {

inline int32_t LeaveCode(int32_t code) {
  SetErrno(code);
  return code;
}

// As Guard, for a body that gives a code.
template <typename Body>
int32_t GuardCode(Body body, ExportSite site = ExportSite::Here()) noexcept {
  return LeaveCode(Guard(
      kTheCode, [&]() -> int32_t { return body(); }, site));
}

// As WithInstance, for a body that gives a code.
template <typename Body>
int32_t WithConnection(ZelInstance handle, Body body, ExportSite site = ExportSite::Here()) noexcept {
  const auto onConnection = [&](IZelPeerConnection& connection) -> int32_t {
    return body(static_cast<CTcpclient&>(connection));  // there are no others
  };
  return LeaveCode(WithInstance(handle, kTheCode, onConnection, site));
}

}  // namespace libzel
