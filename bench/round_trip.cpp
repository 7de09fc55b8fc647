// Request and answer, library against raw socket:  bench_round_trip LOG [ROUNDS]
// With a third argument, the number of requests, only the library runs: for counting its system calls.
#include <cstdlib>

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

void Compare(FILE* out, const Size& size, int rounds) {
  const std::vector<uint8_t> payload(size.bytes, 'x');
  const auto frame = bench::RequestFrame(kPort, payload);
  std::vector<uint8_t> answer(frame.size() - bench::kAddressSize);
  const bench::RawClient raw("127.0.0.2");
  const LibraryClient library;
  bench::Row row{"round trip, " + std::to_string(size.bytes) + " B", "us", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const double rawSec = bench::Seconds([&] {
      for (int i = 0; i < size.requests; ++i) {
        raw.Write(frame);
        raw.Read(answer.data(), answer.size());
      }
    });
    const double librarySec = bench::Seconds([&] {
      for (int i = 0; i < size.requests; ++i) library.Ask(payload, answer);
    });
    if (round == 0) continue;  // warms both up
    row.Add(librarySec * 1e6 / size.requests, rawSec * 1e6 / size.requests);
  }
  row.Print(out);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_round_trip LOG [ROUNDS [REQUESTS]]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  if (argc > 3) {
    const LibraryClient library;
    const std::vector<uint8_t> payload(64, 'x');
    std::vector<uint8_t> answer(64);
    for (int i = std::atoi(argv[3]); i > 0; --i) library.Ask(payload, answer);
  } else {
    for (const Size& size : {Size{16, 4000}, Size{1024, 4000}, Size{65536, 1000}}) Compare(out, size, rounds);
  }
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
