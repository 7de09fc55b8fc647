// One written and one suppressed log line. Run it with standard output on a file:
//   bench_log_line --benchmark_out=RESULT >LOG
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "utils/Log.h"

namespace {

void WrittenLine(benchmark::State& state) {
  int number = 0;
  for (auto _ : state) {
    ZEL_LOG_AS("CMsgRouter::call", kDebug, "ZoeHeader:error:%d,invokeId:%d,Cmd:%d", 0, ++number, 9);
    if (number % 1000000 != 0) continue;
    state.PauseTiming();
    (void)std::fflush(stdout);
    if (ftruncate(STDOUT_FILENO, 0) != 0) std::abort();
    state.ResumeTiming();
  }
}
BENCHMARK(WrittenLine);

// The yardstick: the same line through the runtime's own formatting and output.
void RuntimePrintf(benchmark::State& state) {
  int number = 0;
  for (auto _ : state) {
    (void)std::printf("%s %s[%s,%s,%s,%s,%d,%u%s]:ZoeHeader:error:%d,invokeId:%d,Cmd:%d\n",
                      "2025-01-16 18:09:37.123", "\x1b[33m", "libzel", "DEBUG", "log_line.cpp",
                      "CMsgRouter::call", __LINE__, 12345U, "\x1b[37m", 0, ++number, 9);
    if (number % 1000000 != 0) continue;
    state.PauseTiming();
    (void)std::fflush(stdout);
    if (ftruncate(STDOUT_FILENO, 0) != 0) std::abort();
    state.ResumeTiming();
  }
}
BENCHMARK(RuntimePrintf);

// An argument that would be noticed if it were evaluated.
int MustNotRun() { std::abort(); }

void SuppressedLine(benchmark::State& state) {
  libzel::SetLogLevel(1);
  for (auto _ : state) {
    ZEL_LOG_AS("CMsgRouter::call", kTrace, "ZoeHeader:error:%d", MustNotRun());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(SuppressedLine);

}  // namespace

BENCHMARK_MAIN();
