// What started instances cost while nothing happens:  bench_idle LOG
#include <sys/resource.h>
#include <unistd.h>

#include "PlainServer.h"
#include "Support.h"

namespace {

constexpr int kInstances = 200;
constexpr unsigned kWindowSec = 5;

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
  const long before = bench::ResidentKiB();
  while (instances.size() <= kInstances) instances.push_back(Start());
  (void)sleep(2);  // the window begins when every thread waits
  const long after = bench::ResidentKiB();
  const double cpuBefore = CpuMs();
  const double start = bench::NowSec();
  (void)sleep(kWindowSec);
  const double cpuMs = CpuMs() - cpuBefore;
  const double seconds = bench::NowSec() - start;
  (void)std::fprintf(out, "%-30s %9.2f KiB\n", "memory of an idle instance",
                     static_cast<double>(after - before) / kInstances);
  (void)std::fprintf(out, "%-30s %9.3f %% of a core\n",
                     (std::to_string(kInstances) + " idle instances").c_str(), cpuMs / seconds / 10);
  for (const ZelInstance instance : instances) (void)libzel_releaseInstance(instance);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
