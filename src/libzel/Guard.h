// What every export does: nothing is thrown across the boundary, and a handle is looked up and held for the length of
// the call.
#pragma once

#include <exception>
#include <new>
#include <string_view>

#include "utils/Log.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

inline constexpr int32_t kErrorResource = 8195;
inline constexpr int32_t kErrorMemory = 8200;

// Clears the error number and runs the body; what escapes from it becomes the failure result, an error number and an
// ERROR line.
template <typename Result, typename Body>
Result Guard(std::string_view function, Result failure, Body body) noexcept {
  SetErrno(ZEL_OK);
  try {
    return body();
  } catch (const std::bad_alloc&) {
    SetErrno(kErrorMemory);
  } catch (const std::exception& fault) {
    SetErrno(kErrorResource);
    ZEL_LOG_AS("libzel", kError, "%.*s failed:%s", static_cast<int>(function.size()), function.data(),
               fault.what());
    return failure;
  }
  ZEL_LOG_AS("libzel", kError, "%.*s failed:%s", static_cast<int>(function.size()), function.data(),
             ErrorCodeText(kErrorMemory));
  return failure;
}

// As Guard, with the live instance of a handle; an unknown one gives `failure` and error number 8193.
template <typename Result, typename Body>
Result WithInstance(std::string_view function, ZelInstance handle, Result failure, Body body) noexcept {
  return Guard(function, failure, [&]() -> Result {
    const auto connection = CPeerConnMgr::Instance().FindInstance(handle);
    if (connection == nullptr) {
      SetErrno(ZEL_E_HANDLE);
      return failure;
    }
    return body(*connection);
  });
}

}  // namespace libzel
