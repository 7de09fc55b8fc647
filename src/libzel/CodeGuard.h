// What every export of libzelx.h with a result does: the result is a code, and the thread's error number is
// the same code.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "libzel/Guard.h"

namespace libzel {

// The body gave no code: the guard has left it as the error number.
inline constexpr int32_t kNoCode = std::numeric_limits<int32_t>::min();

inline int32_t LeaveCode(int32_t result) {
  const int32_t code = result == kNoCode ? GetErrno() : result;
  SetErrno(code);
  return code;
}

// As Guard, for a body that gives a code; whatever the body left as the error number is replaced.
template <typename Body>
int32_t GuardCode(std::string_view function, Body body) noexcept {
  return LeaveCode(Guard(function, kNoCode, body));
}

// As WithInstance, for a body that gives a code.
template <typename Body>
int32_t CodeWithInstance(std::string_view function, ZelInstance handle, Body body) noexcept {
  return LeaveCode(WithInstance(function, handle, kNoCode, body));
}

}  // namespace libzel
