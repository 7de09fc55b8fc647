// Requests that any thread may send:  bench_requests LOG [ROUNDS]
// One thread's against the library's own send and receive, and eight threads' on one connection
// against one thread's. With a third argument, the number of requests, only one thread's run: for
// looking at what they cost.
#include <cstdlib>
#include <thread>

#include "PlainServer.h"
#include "Support.h"
#include "libzel/libzelx.h"

namespace {

constexpr uint16_t kPort = 600;
constexpr int kThreads = 8;
constexpr uint32_t kTimeoutMs = 5000;

class Instance {
 public:
  Instance() {
    const ZelDeviceId device = bench::LocalDevice(0, 0, 2);
    handle_ = libzel_createInstance(&device, 0);
  }
  ~Instance() { (void)libzel_releaseInstance(handle_); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  void SendAndReceive(const std::vector<uint8_t>& payload, std::vector<uint8_t>& answer) const {
    const auto size = static_cast<uint32_t>(payload.size());
    const int32_t sent = libzel_sync_send(handle_, kPort, 1, 2, payload.data(), size, kTimeoutMs);
    const int32_t received = libzel_sync_recv(handle_, nullptr, answer.data(), size, kTimeoutMs);
    bench::Require(sent > 0 && received == static_cast<int32_t>(size), "send and receive");
  }
  void Ask(const std::vector<uint8_t>& payload, std::vector<uint8_t>& answer) const {
    const auto size = static_cast<uint32_t>(payload.size());
    libzelx_Outcome outcome{sizeof outcome, 0, 0, 0, 0};
    const int32_t result = libzelx_request(handle_, kPort, 1, 2, payload.data(), size, answer.data(), size,
                                           kTimeoutMs, &outcome);
    bench::Require(result == ZEL_OK && outcome.answerLength == size, "request");
  }

 private:
  ZelInstance handle_ = 0;
};

struct Size {
  size_t bytes;
  int requests;  // in a round
};

void CompareWithPair(FILE* out, const Size& size, int rounds) {
  const std::vector<uint8_t> payload(size.bytes, 'x');
  std::vector<uint8_t> answer(size.bytes);
  const Instance pairs;
  const Instance requests;
  bench::Row row{"request, " + std::to_string(size.bytes) + " B", "us", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const double pairSec = bench::Seconds([&] {
      for (int i = 0; i < size.requests; ++i) pairs.SendAndReceive(payload, answer);
    });
    const double requestSec = bench::Seconds([&] {
      for (int i = 0; i < size.requests; ++i) requests.Ask(payload, answer);
    });
    if (round == 0) continue;  // warms both up
    row.Add(requestSec * 1e6 / size.requests, pairSec * 1e6 / size.requests);
  }
  row.Print(out);
}

void AskFrom(const Instance& instance, int threads, int requestsOfEach) {
  std::vector<std::thread> askers;
  for (int i = 0; i < threads; ++i) {
    askers.emplace_back([&instance, requestsOfEach] {
      const std::vector<uint8_t> payload(64, 'x');
      std::vector<uint8_t> answer(64);
      for (int k = 0; k < requestsOfEach; ++k) instance.Ask(payload, answer);
    });
  }
  for (std::thread& asker : askers) asker.join();
}

void CompareThreads(FILE* out, int rounds) {
  constexpr int kRequests = 40000;
  const Instance instance;
  bench::Row row{"requests/s, 8 threads against 1", "thousand/s", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const double oneSec = bench::Seconds([&] { AskFrom(instance, 1, kRequests / 2); }) * 2;
    const double eightSec = bench::Seconds([&] { AskFrom(instance, kThreads, kRequests / kThreads); });
    if (round == 0) continue;
    row.Add(kRequests / eightSec / 1e3, kRequests / oneSec / 1e3);
  }
  row.Print(out);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_requests LOG [ROUNDS [REQUESTS [THREADS]]]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  if (argc > 3) {
    const int threads = argc > 4 ? std::atoi(argv[4]) : 1;
    AskFrom(Instance(), threads, std::atoi(argv[3]) / threads);
  } else {
    for (const Size& size : {Size{16, 4000}, Size{1024, 4000}, Size{65536, 1000}}) {
      CompareWithPair(out, size, rounds);
    }
    CompareThreads(out, rounds);
  }
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
