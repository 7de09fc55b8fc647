#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/Platform.h"

namespace libzel::platform {

uint32_t ThreadId() {
  static thread_local const uint32_t id = static_cast<uint32_t>(syscall(SYS_gettid));
  return id;
}

uint32_t CoreCount() {
  cpu_set_t cores;
  if (sched_getaffinity(0, sizeof cores, &cores) != 0) return 1;
  return static_cast<uint32_t>(std::max(CPU_COUNT(&cores), 1));
}

void WriteStandardOutput(const char* text, size_t size) { (void)!fwrite(text, 1, size, stdout); }

// The library is linked so that the loader never unloads it.
void KeepLoaded() {}

// Without memory for it forks go unwatched.
void WatchForks(void (*before)(), void (*inParent)(), void (*inChild)()) {
  (void)pthread_atfork(before, inParent, inChild);
}

}  // namespace libzel::platform
