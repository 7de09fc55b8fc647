#include <windows.h>

#include <algorithm>
#include <cstring>

#include "platform/Platform.h"

namespace libzel::platform {

// There are no signals here.
AsyncSignalBlock::AsyncSignalBlock() : earlier_{} {}
AsyncSignalBlock::~AsyncSignalBlock() = default;

// Systems before Windows 10 1607 know no names.
void NameThread(const char* name) {
  using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  const auto address = GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "SetThreadDescription");
  if (address == nullptr) return;
  wchar_t wide[16] = {};
  std::copy_n(name, std::min<size_t>(std::strlen(name), 15), wide);
  (void)reinterpret_cast<SetDescription>(reinterpret_cast<void*>(address))(GetCurrentThread(), wide);
}

}  // namespace libzel::platform
