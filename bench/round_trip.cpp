// Request and answer, library against raw socket:  bench_round_trip LOG [ROUNDS [one-core|REQUESTS]]
// With one-core both ends share a core. With a number of requests only the library runs: for
// counting its system calls.
#include <cstdlib>
#include <string_view>

#include "PlainServer.h"
#include "RawClient.h"
#include "Support.h"

namespace {

constexpr uint16_t kPort = 600;

class LibraryClient {
 public:
  LibraryClient() {
    const ZelDeviceId device = bench::LocalDevice(0, 0, 2);
    instance_ = libzel_createInstance(&device, 0);
  }
  ~LibraryClient() { (void)libzel_releaseInstance(instance_); }
  LibraryClient(const LibraryClient&) = delete;
  LibraryClient& operator=(const LibraryClient&) = delete;

  void Ask(const std::vector<uint8_t>& payload, std::vector<uint8_t>& answer) const {
    const auto size = static_cast<uint32_t>(payload.size());
    const int32_t sent = libzel_sync_send(instance_, kPort, 1, 2, payload.data(), size, 1000);
    const int32_t received = libzel_sync_recv(instance_, nullptr, answer.data(), size, 1000);
    bench::Require(sent > 0 && received == static_cast<int32_t>(size), "library request");
  }

 private:
  ZelInstance instance_ = 0;
};

struct Size {
  size_t bytes;
  int requests;  // in a round
};

// Of one round, in us.
struct Figures {
  double mean;
  double within99;
};

template <typename Ask>
Figures Measure(int requests, Ask ask) {
  std::vector<double> us;
  us.reserve(static_cast<size_t>(requests));
  const double start = bench::NowSec();
  double last = start;
  for (int i = 0; i < requests; ++i) {
    ask();
    const double now = bench::NowSec();
    us.push_back((now - last) * 1e6);
    last = now;
  }
  return {(last - start) * 1e6 / requests, bench::Within99(std::move(us))};
}

void Compare(FILE* out, const char* what, const Size& size, int rounds) {
  const std::vector<uint8_t> payload(size.bytes, 'x');
  const auto frame = bench::RequestFrame(kPort, payload);
  std::vector<uint8_t> answer(frame.size() - bench::kAddressSize);
  const bench::RawClient raw("127.0.0.2");
  const LibraryClient library;
  bench::Row row{what + (", " + std::to_string(size.bytes) + " B"), "us", {}, {}};
  bench::Row worst{"  99 of 100 within", "us", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const Figures theirs = Measure(size.requests, [&] {
      raw.Write(frame);
      raw.Read(answer.data(), answer.size());
    });
    const Figures ours = Measure(size.requests, [&] { library.Ask(payload, answer); });
    if (round == 0) continue;  // warms both up
    row.Add(ours.mean, theirs.mean);
    worst.Add(ours.within99, theirs.within99);
  }
  row.Print(out);
  worst.Print(out);
}

void AskOnly(int requests) {
  const LibraryClient library;
  const std::vector<uint8_t> payload(64, 'x');
  std::vector<uint8_t> answer(64);
  for (int i = 0; i < requests; ++i) library.Ask(payload, answer);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_round_trip LOG [ROUNDS [one-core|REQUESTS]]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const std::string_view mode = argc > 3 ? argv[3] : "";
  const bool oneCore = mode == "one-core";
  if (oneCore) bench::StayOnOneCore();
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  if (!mode.empty() && !oneCore) {
    AskOnly(std::atoi(argv[3]));
  } else {
    const char* what = oneCore ? "on one core" : "round trip";
    for (const Size& size : {Size{16, 4000}, Size{1024, 4000}, Size{65536, 1000}}) {
      Compare(out, what, size, rounds);
    }
  }
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
