// Publishing, library against one raw write per frame of the same bytes:  bench_publish LOG [ROUNDS]
// Each round ends with one request, whose answer shows that the server has read everything before it.
#include <cstdlib>

#include "PlainServer.h"
#include "RawClient.h"
#include "Support.h"

namespace {

constexpr uint16_t kPort = 600;
constexpr const char* kTopic = "load";

struct Size {
  size_t bytes;
  int messages;  // in a round
};

void FlushRaw(const bench::RawClient& raw) {
  static const auto request = bench::RequestFrame(kPort, {1, 2, 3, 4});
  uint8_t answer[bench::kOuterSize + bench::kInnerSize + 4];
  raw.Write(request);
  raw.Read(answer, sizeof answer);
}

void FlushLibrary(ZelInstance instance) {
  uint8_t data[4] = {1, 2, 3, 4};
  (void)libzel_sync_send(instance, kPort, 0, 0, data, sizeof data, 1000);
  bench::Require(libzel_sync_recv(instance, nullptr, data, sizeof data, 10000) == sizeof data,
                 "library request");
}

void Compare(FILE* out, ZelInstance instance, const Size& size, int rounds) {
  const std::vector<uint8_t> data(size.bytes, 'x');
  const auto frame = bench::RequestFrame(bench::kTopicPort, bench::TopicRecord("pub", kTopic, size.bytes));
  const bench::RawClient raw("127.0.0.2");
  bench::Row row{"publish, " + std::to_string(size.bytes) + " B", "us", {}, {}};
  bench::Row cpu{"  of them on a core", "us", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const double cpuBegin = bench::ThreadCpuSec();
    const double rawSec = bench::Seconds([&] {
      for (int i = 0; i < size.messages; ++i) raw.Write(frame);
      FlushRaw(raw);
    });
    const double cpuMiddle = bench::ThreadCpuSec();
    const double librarySec = bench::Seconds([&] {
      for (int i = 0; i < size.messages; ++i) {
        (void)libzel_publish(instance, 0, 0, kTopic, data.data(), static_cast<uint32_t>(data.size()));
      }
      FlushLibrary(instance);
    });
    if (round == 0) continue;  // warms both up
    row.Add(librarySec * 1e6 / size.messages, rawSec * 1e6 / size.messages);
    cpu.Add((bench::ThreadCpuSec() - cpuMiddle) * 1e6 / size.messages,
            (cpuMiddle - cpuBegin) * 1e6 / size.messages);
  }
  row.Print(out);
  cpu.Print(out);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_publish LOG [ROUNDS]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  const ZelDeviceId device = bench::LocalDevice(0, 0, 2);
  const ZelInstance instance = libzel_createInstance(&device, 0);
  for (const Size& size : {Size{64, 40000}, Size{4096, 20000}, Size{65536, 2000}, Size{1048576, 150}}) {
    Compare(out, instance, size, rounds);
  }
  (void)libzel_releaseInstance(instance);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
