// Topic messages of 64 B that the sender has ready in blocks, the library's log lines written to a file:
//   bench_topics LOG [ROUNDS]
// against a raw socket that reads the same stream in large pieces, finds the same data, and writes the same
// lines. Wants zelsim --listen 127.0.0.3:9999 --burst load=1000000:64.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string_view>
#include <thread>

#include "RawClient.h"
#include "Support.h"
#include "libzel/libzelx.h"

namespace {

constexpr const char* kTopic = "load";
constexpr uint32_t kMessages = 1000000;
constexpr size_t kDataSize = 64;

std::atomic<uint32_t> g_left{0};
uint64_t g_sum = 0;  // of first data bytes, so that the data is looked at

double g_cpuBeginSec = 0;  // the reading thread's, at the first message
double g_cpuSec = 0;       // and what it had used at the last one

void Take(const uint8_t* data, uint32_t length) {
  bench::Require(length == kDataSize, "message size");
  g_sum += data[0];
  const uint32_t left = g_left.load(std::memory_order_relaxed);
  if (left == kMessages) g_cpuBeginSec = bench::ThreadCpuSec();
  if (left == 1) g_cpuSec = bench::ThreadCpuSec() - g_cpuBeginSec;
  g_left.store(left - 1, std::memory_order_release);
  if (left == 1) g_left.notify_one();
}

void OnTopic(uint32_t, uint32_t, const char*, const uint8_t* data, uint32_t length, void*) {
  Take(data, length);
}

void RunLibrary(ZelInstance instance) {
  g_left = kMessages;
  bench::Require(libzel_subscribe(instance, kTopic, OnTopic, nullptr) == 0, "subscribe");
  for (uint32_t left = g_left; left != 0; left = g_left) g_left.wait(left);
  (void)libzel_unsubscribe(instance, kTopic);
}

// The library's line, with its time and the message's own identifier. Its second is always the same.
void WriteLine(const uint8_t* frame) {
  static char line[] =
      "2025-01-16 18:09:37.123 \x1b[34m[libzel,DEBUG,MsgRouter.cpp,CMsgRouter::call,78,12345\x1b[37m]:"
      "ZoeHeader:error:0,invokeId:          ,Cmd:9\n";
  static char* const identifier = std::strstr(line, "invokeId:") + 9;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto ms =
      static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count() % 1000);
  line[20] = static_cast<char>('0' + ms / 100);
  line[21] = static_cast<char>('0' + ms / 10 % 10);
  line[22] = static_cast<char>('0' + ms % 10);
  char* end = std::to_chars(identifier, identifier + 10, bench::ReadLe32(frame + bench::kOuterSize + 4)).ptr;
  constexpr std::string_view kRest = ",Cmd:9\n";
  end = std::copy(kRest.begin(), kRest.end(), end);
  (void)std::fwrite(line, 1, static_cast<size_t>(end - line), stdout);
}

// Looks at one frame on its way, as far as a reader must to find its data.
void TakeFrame(const uint8_t* frame, bool withLog) {
  const uint8_t* record = frame + bench::kOuterSize + bench::kInnerSize;
  const size_t verb = bench::ReadLe32(record);
  const size_t topic = bench::ReadLe32(record + 8);
  bench::Require(std::memcmp(record + 24 + verb + 1, kTopic, topic) == 0, "topic");
  if (withLog) WriteLine(frame);
  Take(record + 24 + verb + 1 + topic + 1, bench::ReadLe32(record + 16));
}

void RunRaw(const bench::RawClient& raw, bool withLog) {
  static std::vector<uint8_t> buffer(64 * 1024);
  g_left = kMessages;
  raw.Write(bench::RequestFrame(bench::kTopicPort, bench::TopicRecord("sub", kTopic, 0)));
  for (size_t filled = 0; g_left != 0;) {
    filled += raw.ReadSome(buffer.data() + filled, buffer.size() - filled);
    size_t at = 0;
    while (filled - at >= bench::kOuterSize) {
      const size_t size = bench::kOuterSize + bench::ReadLe32(buffer.data() + at + 4);
      if (filled - at < size) break;
      TakeFrame(buffer.data() + at, withLog);
      at += size;
    }
    std::memmove(buffer.data(), buffer.data() + at, filled - at);
    filled -= at;
  }
  raw.Write(bench::RequestFrame(bench::kTopicPort, bench::TopicRecord("unsub", kTopic, 0)));
}

struct Figures {
  double millionPerSec;
  double cpuNs;  // of the reading thread, for a message
};

Figures Measure(const std::function<void()>& work) {
  const double seconds = bench::Seconds(work);
  bench::EmptyLog();
  return {kMessages / seconds / 1e6, g_cpuSec * 1e9 / kMessages};
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_topics LOG [ROUNDS]");
  FILE* out = bench::MoveLogTo(argv[1]);
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 9;
  const ZelDeviceId device = bench::LocalDevice(0, 0, 3);
  const ZelInstance instance = libzel_createInstance(&device, 0);
  (void)libzel_loop_start(instance);
  const bench::RawClient raw("127.0.0.3");

  bench::Row row{"topics of 64 B", "million/s", {}, {}};
  bench::Row cpu{"  of a core for each", "ns", {}, {}};
  bench::Row quietRow{"  with DEBUG off", "million/s", {}, {}, "on "};
  bench::Row silentRow{"  against raw without a log", "million/s", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const Figures library = Measure([&] { RunLibrary(instance); });
    (void)libzelx_setLogLevel(LIBZELX_LOG_INFO);
    const Figures quiet = Measure([&] { RunLibrary(instance); });
    (void)libzelx_setLogLevel(LIBZELX_LOG_DEBUG);
    // On a thread of its own, as the library's: the log's pages are then as cold to it.
    const Figures logged = Measure([&] { std::thread(RunRaw, std::cref(raw), true).join(); });
    const Figures silent = Measure([&] { std::thread(RunRaw, std::cref(raw), false).join(); });
    if (round == 0) continue;  // warms all up
    row.Add(library.millionPerSec, logged.millionPerSec);
    cpu.Add(library.cpuNs, logged.cpuNs);
    quietRow.Add(quiet.millionPerSec, library.millionPerSec);
    silentRow.Add(library.millionPerSec, silent.millionPerSec);
  }
  for (const bench::Row* each : {&row, &cpu, &quietRow, &silentRow}) each->Print(out);
  (void)libzel_releaseInstance(instance);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
