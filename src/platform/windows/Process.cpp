#include <windows.h>

#include <algorithm>
#include <bit>
#include <cstdio>

#include "platform/Platform.h"

namespace libzel::platform {

uint32_t ThreadId() {
  static thread_local const uint32_t id = GetCurrentThreadId();
  return id;
}

uint32_t CoreCount() {
  DWORD_PTR processCores = 0;
  DWORD_PTR systemCores = 0;
  if (GetProcessAffinityMask(GetCurrentProcess(), &processCores, &systemCores) == 0) return 1;
  return static_cast<uint32_t>(std::max(std::popcount(processCores), 1));
}

void WriteStandardOutput(const char* text, size_t size) { (void)fwrite(text, 1, size, stdout); }

void KeepLoaded() {
  HMODULE module = nullptr;
  (void)GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<const wchar_t*>(&KeepLoaded), &module);
}

void WatchForks(void (*)(), void (*)(), void (*)()) {}

}  // namespace libzel::platform
