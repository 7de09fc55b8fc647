// What every function of the second family does: its result is a code, left as the error number as well.
#pragma once

#include <string_view>

#include "libzel/Guard.h"
#include "zelclient/ZelTcpclient.h"

namespace libzel {

template <typename Body>
int32_t GuardCode(std::string_view function, Body body) noexcept {
  constexpr int32_t kThrown = -1;
  const int32_t result = Guard(function, kThrown, [&]() -> int32_t { return body(); });
  if (result == kThrown) return GetErrno();
  SetErrno(result);
  return result;
}

// As GuardCode, with the live instance of a handle; an unknown one gives 8193.
template <typename Body>
int32_t WithConnection(std::string_view function, ZelInstance handle, Body body) noexcept {
  return GuardCode(function, [&]() -> int32_t {
    const auto connection = CPeerConnMgr::Instance().FindInstance(handle);
    if (connection == nullptr) return ZEL_E_HANDLE;
    return body(static_cast<CTcpclient&>(*connection));  // there are no others
  });
}

}  // namespace libzel
