// Children that a process forks off. Such a child has the library's memory but none of its threads, and it shares its
// sockets with its parent: it must leave all of them alone. Where there is no fork nothing of this happens.
#pragma once

#include <atomic>
#include <cstdint>

namespace libzel {

namespace fork_internal {
enum class Process : int32_t { kUnwatched, kParent, kChild };
inline std::atomic<Process> g_process{Process::kUnwatched};
bool BeginToWatch();
}  // namespace fork_internal

// True in a child that was forked off when its parent had asked before, and in that child's own children. Any thread may
// ask; it costs one relaxed load.
inline bool IsForkedChild() {
  using fork_internal::Process;
  return fork_internal::g_process.load(std::memory_order_relaxed) != Process::kParent &&
         fork_internal::BeginToWatch();
}

}  // namespace libzel
