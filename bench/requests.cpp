// Requests that any thread may send:  bench_requests LOG [ROUNDS [REQUESTS [THREADS] | away NAME]]
// One thread's against the library's own send and receive, and eight threads' on one connection
// against one thread's. With a number of requests only they run: for looking at what they cost. With
// "away" only the threads are compared, with a server, or a relay in front of one, at 10.77.0.2.
#include <cstdlib>
#include <string_view>
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
  explicit Instance(const ZelDeviceId& device = bench::LocalDevice(0, 0, 2))
      : handle_(libzel_createInstance(&device, 0)) {}
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

void CompareThreads(FILE* out, const std::string& name, const Instance& instance, int requests, int rounds) {
  bench::Row row{name, "thousand/s", {}, {}, "one"};
  for (int round = 0; round <= rounds; ++round) {
    const double oneSec = bench::Seconds([&] { AskFrom(instance, 1, requests / 2); }) * 2;
    const double eightSec = bench::Seconds([&] { AskFrom(instance, kThreads, requests / kThreads); });
    if (round == 0) continue;
    row.Add(requests / eightSec / 1e3, requests / oneSec / 1e3);
  }
  row.Print(out);
}

void Compare(FILE* out, int rounds) {
  for (const Size& size : {Size{16, 4000}, Size{1024, 4000}, Size{65536, 1000}}) {
    CompareWithPair(out, size, rounds);
  }
  CompareThreads(out, "requests, 8 threads", Instance(), 40000, rounds);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_requests LOG [ROUNDS [REQUESTS [THREADS] | away NAME]]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  const std::string_view mode = argc > 3 ? argv[3] : "";
  if (mode == "away" && argc > 4) {
    constexpr ZelDeviceId kAway{{10, 77, 0, 2, 0, 1}};
    CompareThreads(out, std::string("requests, 8 threads, ") + argv[4], Instance(kAway), 2000, rounds);
  } else if (!mode.empty()) {
    const int threads = argc > 4 ? std::atoi(argv[4]) : 1;
    AskFrom(Instance(), threads, std::atoi(argv[3]) / threads);
  } else {
    Compare(out, rounds);
  }
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
