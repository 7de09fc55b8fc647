// Publications of 64 B, many in a call, against a raw program that packs the same frames
// into writes of 64 KiB:
//   bench_publish_many LOG [ROUNDS]
// Both make every frame anew. Each round ends with one request, whose answer shows that the server has read
// everything before it.
#include <cstdlib>
#include <cstring>

#include "PlainServer.h"
#include "RawClient.h"
#include "Support.h"
#include "libzel/libzelx.h"

namespace {

constexpr uint16_t kPort = 600;
constexpr const char* kTopic = "load";
constexpr size_t kDataSize = 64;
constexpr size_t kInACall = 10000;
constexpr size_t kCalls = 60;  // in a round
constexpr size_t kWriteSize = size_t{64} * 1024;
constexpr size_t kInvokeIdAt = bench::kOuterSize + 4;
constexpr size_t kDataFromEnd = kDataSize + 9;

void FlushRaw(const bench::RawClient& raw) {
  static const auto request = bench::RequestFrame(kPort, {1, 2, 3, 4});
  uint8_t answer[bench::kOuterSize + bench::kInnerSize + 4];
  raw.Write(request);
  raw.Read(answer, sizeof answer);
}

// Copies the frame's pattern behind the others, numbers it and puts the data in.
void PublishRaw(const bench::RawClient& raw, const std::vector<uint8_t>& data) {
  static const auto pattern =
      bench::RequestFrame(bench::kTopicPort, bench::TopicRecord("pub", kTopic, kDataSize));
  static uint32_t invokeId = 0;
  std::vector<uint8_t> packed;
  packed.reserve(kWriteSize);
  for (size_t i = 0; i < kInACall; ++i) {
    if (packed.size() + pattern.size() > kWriteSize) {
      raw.Write(packed);
      packed.clear();
    }
    const size_t begin = packed.size();
    packed.insert(packed.end(), pattern.begin(), pattern.end());
    ++invokeId;
    for (size_t k = 0; k < 4; ++k)
      packed[begin + kInvokeIdAt + k] = static_cast<uint8_t>(invokeId >> (24 - 8 * k));
    std::memcpy(packed.data() + packed.size() - kDataFromEnd, data.data(), kDataSize);
  }
  raw.Write(packed);
}

void FlushLibrary(ZelInstance instance) {
  const uint8_t data[4] = {1, 2, 3, 4};
  uint8_t answer[4];
  bench::Require(libzelx_request(instance, kPort, 0, 0, data, sizeof data, answer, sizeof answer, 10000,
                                 nullptr) == ZEL_OK,
                 "library request");
}

void PublishLibrary(ZelInstance instance, const std::vector<libzelx_Message>& messages) {
  size_t sent = 0;
  const int32_t result = libzelx_publishMany(instance, messages.data(), messages.size(), 10000, &sent);
  bench::Require(result == ZEL_OK && sent == messages.size(), "publishMany");
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_publish_many LOG [ROUNDS]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const bench::PlainServer server("127.0.0.2");
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  const ZelDeviceId device = bench::LocalDevice(0, 0, 2);
  const ZelInstance instance = libzel_createInstance(&device, 0);
  const bench::RawClient raw("127.0.0.2");
  const std::vector<uint8_t> data(kDataSize, 'x');
  const std::vector<libzelx_Message> messages(
      kInACall, {sizeof(libzelx_Message), kTopic, 0, 0, data.data(), static_cast<uint32_t>(data.size()), 0});
  constexpr double kMillions = kInACall * kCalls / 1e6;
  bench::Row row{"publishMany, 64 B", "million/s", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const double rawSec = bench::Seconds([&] {
      for (size_t i = 0; i < kCalls; ++i) PublishRaw(raw, data);
      FlushRaw(raw);
    });
    const double librarySec = bench::Seconds([&] {
      for (size_t i = 0; i < kCalls; ++i) PublishLibrary(instance, messages);
      FlushLibrary(instance);
    });
    if (round == 0) continue;  // warms both up
    row.Add(kMillions / librarySec, kMillions / rawSec);
  }
  row.Print(out);
  (void)libzel_releaseInstance(instance);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
