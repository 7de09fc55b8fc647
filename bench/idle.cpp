// What started instances cost while nothing happens:  bench_idle LOG
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "PlainServer.h"
#include "Support.h"

namespace {

constexpr int kInstances = 200;
constexpr unsigned kWindowSec = 10;

double CpuMs() {
  rusage usage{};
  (void)getrusage(RUSAGE_SELF, &usage);
  const auto ms = [](const timeval& time) {
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
  };
  return ms(usage.ru_utime) + ms(usage.ru_stime);
}

std::set<std::string> Threads() {
  std::set<std::string> threads;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
    threads.insert(entry.path());
  return threads;
}

// How often the threads that are not among `others` have gone to sleep.
long Sleeps(const std::set<std::string>& others) {
  long sleeps = 0;
  for (const std::string& thread : Threads()) {
    if (others.contains(thread)) continue;
    std::ifstream status(thread + "/status");
    for (std::string word; status >> word;) {
      long count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) sleeps += count;
    }
  }
  return sleeps;
}

ZelInstance Start() {
  const ZelDeviceId device = bench::LocalDevice(0, 0, 2);
  const ZelInstance instance = libzel_createInstance(&device, 0);
  bench::Require(instance != 0 && libzel_loop_start(instance) == 0, "instance");
  return instance;
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_idle LOG");
  FILE* out = bench::MoveLogTo(argv[1]);
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  // What the first one brings is the library's, not an instance's.
  std::vector<ZelInstance> instances{Start()};
  const std::set<std::string> others = Threads();
  const long before = bench::ResidentKiB();
  while (instances.size() <= kInstances) instances.push_back(Start());
  (void)sleep(3);  // the window begins when every thread waits
  const long after = bench::ResidentKiB();
  const long sleeps = Sleeps(others);
  const double cpuBefore = CpuMs();
  const double start = bench::NowSec();
  (void)sleep(kWindowSec);
  const double cpuMs = CpuMs() - cpuBefore;
  const double seconds = bench::NowSec() - start;
  const long wakeUps = Sleeps(others) - sleeps;
  (void)std::fprintf(out, "%-30s %9.2f KiB\n", "memory of an idle instance",
                     static_cast<double>(after - before) / kInstances);
  (void)std::fprintf(out, "%-30s %9.3f %% of a core\n",
                     (std::to_string(kInstances) + " idle instances").c_str(), cpuMs / seconds / 10);
  (void)std::fprintf(out, "%-30s %9ld in %u s\n", "  wake-ups of their threads", wakeUps, kWindowSec);
  for (const ZelInstance instance : instances) (void)libzel_releaseInstance(instance);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
