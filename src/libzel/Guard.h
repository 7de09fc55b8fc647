// What every export does: it clears the error number, refuses to work in a forked child, throws nothing across the
// boundary, and holds the instance of a handle for the length of the call.
#pragma once

#include <exception>
#include <new>

#include "utils/Fork.h"
#include "utils/Log.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

// The export that a guard stands in, as its ERROR line names it. Never written down: a default argument takes it from
// the compiler, and it is looked at only when the export fails.
struct ExportSite {
  const char* function;
  const char* file;
  int32_t line;

  static constexpr ExportSite Here(const char* function = __builtin_FUNCTION(),
                                   const char* file = __builtin_FILE(), int32_t line = __builtin_LINE()) {
    return {function, file, line};
  }
};

// What an export gives that fails: the code, ...
inline constexpr auto kTheCode = [](int32_t code) { return code; };
// ... or one value for every failure.
template <typename Value>
constexpr auto Always(Value value) {
  return [value](int32_t /*code*/) { return value; };
}

// Leaves the code as the thread's error number, also when the failure calls the application.
template <typename Failure>
auto Fail(Failure failure, int32_t code) {
  const auto result = failure(code);
  SetErrno(code);
  return result;
}

// Allocates nothing.
[[gnu::cold, gnu::noinline]] inline void LogFailure(const ExportSite& site, const char* reason) noexcept {
  constexpr const char* kFormat = "failed:%s";
  if (!IsLogged(LogLevel::kError)) return;
  const log_internal::CallSite line(LogLevel::kError, log_internal::FileName(site.file), site.function,
                                    site.line, kFormat);
  log_internal::Write(line, kFormat, reason);
}

// Runs the body. An exception becomes a failure with error number 8200 (no memory) or 8195 and an ERROR line; in a
// forked child the failure is 8193 and the body does not run.
template <typename Failure, typename Body>
auto Guard(Failure failure, Body body, ExportSite site = ExportSite::Here()) noexcept
    -> decltype(failure(0)) {
  if (IsForkedChild()) [[unlikely]]
    return Fail(failure, ZEL_E_HANDLE);
  SetErrno(ZEL_OK);
  try {
    return body();
  } catch (const std::bad_alloc&) {
    LogFailure(site, ErrorCodeText(ZEL_E_MEMORY));
    return Fail(failure, ZEL_E_MEMORY);
  } catch (const std::exception& fault) {
    LogFailure(site, fault.what());
    return Fail(failure, ZEL_E_RESOURCE);
  }
}

// As Guard, with the live instance of a handle; an unknown one is a failure with 8193.
template <typename Failure, typename Body>
auto WithInstance(ZelInstance handle, Failure failure, Body body,
                  ExportSite site = ExportSite::Here()) noexcept {
  return Guard(
      failure,
      [&]() -> decltype(failure(0)) {
        const auto connection = CPeerConnMgr::Instance().FindInstance(handle);
        if (connection == nullptr) return Fail(failure, ZEL_E_HANDLE);
        return body(*connection);
      },
      site);
}

// True for what may not be handed on: a null pointer to `length` bytes of which there are some.
inline bool IsMissing(const void* data, uint32_t length) { return data == nullptr && length != 0; }

}  // namespace libzel
