// Request and answer over a network that takes its time:  bench_distance LOG NAME [ROUNDS]
// A library that looks for the answer before it sleeps against one that sleeps at once. Wants a server, or a
// relay in front of one, at 10.77.0.2.
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "Support.h"

namespace {

constexpr ZelDeviceId kDevice{{10, 77, 0, 2, 0, 1}};
constexpr uint16_t kPort = 600;
constexpr int kRequests = 500;  // in a round

bool g_showsOneCore = false;

}  // namespace

// The library looks only where it may run on more than one core, so it is shown one. (This program's function
// is found before the runtime's.)
extern "C" int sched_getaffinity(pid_t pid, size_t size, cpu_set_t* cores) noexcept {
  const long filled = syscall(SYS_sched_getaffinity, pid, size, cores);
  if (filled < 0) return -1;
  if (g_showsOneCore) {
    CPU_ZERO_S(static_cast<size_t>(filled), cores);
    CPU_SET_S(0, static_cast<size_t>(filled), cores);
  }
  return 0;
}

namespace {

// Of one round, for each request.
struct Figures {
  double us;
  double coreUs;
};

Figures AskAll(ZelInstance instance) {
  uint8_t data[16] = {};
  const double cpu = bench::ThreadCpuSec();
  const double seconds = bench::Seconds([&] {
    for (int i = 0; i < kRequests; ++i) {
      (void)libzel_sync_send(instance, kPort, 0, 0, data, sizeof data, 1000);
      bench::Require(libzel_sync_recv(instance, nullptr, data, sizeof data, 10000) == sizeof data, "request");
    }
  });
  return {seconds * 1e6 / kRequests, (bench::ThreadCpuSec() - cpu) * 1e6 / kRequests};
}

// A library in a process of its own, which asks when it is told.
class Asker {
 public:
  // Make it before the program uses the library itself.
  explicit Asker(bool looks) {
    int orders[2], figures[2];
    bench::Require(pipe(orders) == 0 && pipe(figures) == 0, "pipe");
    pid_ = fork();
    bench::Require(pid_ >= 0, "fork");
    if (pid_ == 0) {
      (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
      g_showsOneCore = !looks;
      Serve(orders[0], figures[1]);
    }
    (void)close(orders[0]);
    (void)close(figures[1]);
    orders_ = orders[1];
    figures_ = figures[0];
  }
  ~Asker() {
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    (void)close(orders_);
    (void)close(figures_);
  }
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  Figures Ask() const {
    Figures figures{};
    bench::Require(write(orders_, "", 1) == 1, "order");
    bench::Require(read(figures_, &figures, sizeof figures) == sizeof figures, "figures");
    return figures;
  }

 private:
  [[noreturn]] static void Serve(int orders, int figures) {
    (void)libzel_init();
    const ZelInstance instance = libzel_createInstance(&kDevice, 0);
    char order = 0;
    while (read(orders, &order, 1) == 1) {
      const Figures all = AskAll(instance);
      bench::Require(write(figures, &all, sizeof all) == sizeof all, "figures");
    }
    _exit(0);
  }

  pid_t pid_ = -1;
  int orders_ = -1;
  int figures_ = -1;
};

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 3, "usage: bench_distance LOG NAME [ROUNDS]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 9;
  const Asker looking(true);
  const Asker sleeping(false);
  bench::Row row{std::string("round trip, ") + argv[2] + " away", "us", {}, {}, "asleep"};
  bench::Row core{"  of them on a core", "us", {}, {}, "asleep"};
  for (int round = 0; round <= rounds; ++round) {
    const Figures looked = looking.Ask();
    const Figures slept = sleeping.Ask();
    if (round == 0) continue;  // warms both up
    row.Add(looked.us, slept.us);
    core.Add(looked.coreUs, slept.coreUs);
  }
  row.Print(out);
  core.Print(out);
  return std::fclose(out) == 0 ? 0 : 1;
}
