// What started instances cost while nothing happens:  bench_idle LOG
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>

#include "PlainServer.h"
#include "Support.h"

namespace {

constexpr int kInstances = 200;
constexpr unsigned kWindowSec = 5;

long ResidentKiB() {
  FILE* status = std::fopen("/proc/self/status", "r");
  bench::Require(status != nullptr, "/proc/self/status");
  char line[256];
  long kib = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "VmRSS: %ld kB", &kib) == 1) break;
  }
  (void)std::fclose(status);
  return kib;
}

double CpuMs() {
  rusage usage{};
  (void)getrusage(RUSAGE_SELF, &usage);
  const auto ms = [](const timeval& time) {
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
  };
  return ms(usage.ru_utime) + ms(usage.ru_stime);
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
  std::vector<ZelInstance> instances{
      Start()};  // what the first one brings is the library's, not an instance's
  const long before = ResidentKiB();
  while (instances.size() <= kInstances) instances.push_back(Start());
  (void)sleep(2);  // the window begins when every thread waits
  const long after = ResidentKiB();
  const double cpuBefore = CpuMs();
  const double start = bench::NowSec();
  (void)sleep(kWindowSec);
  const double cpuMs = CpuMs() - cpuBefore;
  const double seconds = bench::NowSec() - start;
  (void)std::fprintf(out, "idle instance         %8.1f KiB resident\n",
                     static_cast<double>(after - before) / kInstances);
  (void)std::fprintf(out, "%d idle instances    %8.2f ms CPU in %.0f s (%.3f %% of a core)\n", kInstances,
                     cpuMs, seconds, cpuMs / seconds / 10);
  for (const ZelInstance instance : instances) (void)libzel_releaseInstance(instance);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
