#include "support/Memory.h"

#ifdef _WIN32
#include <windows.h>
// Only after the system's own header.
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

namespace zeltest {

#ifdef _WIN32
int64_t PeakResidentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  if (K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) == 0) return 0;
  return static_cast<int64_t>(counters.PeakWorkingSetSize);
}
#else
int64_t PeakResidentBytes() {
  rusage usage{};
  (void)getrusage(RUSAGE_SELF, &usage);
  return int64_t{usage.ru_maxrss} * 1024;
}
#endif

}  // namespace zeltest
