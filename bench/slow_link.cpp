// Topic messages over a link that is slower than both ends:  bench_slow_link LOG NAME [ROUNDS [SECONDS]]
// against a raw socket that counts the messages of the same stream. Wants a server at 10.77.0.2 that never
// stops sending them: zelsim --listen 0.0.0.0:9999 --burst load=0:640.
#include <atomic>
#include <cstdlib>

#include "RawClient.h"
#include "Support.h"

namespace {

constexpr const char* kHost = "10.77.0.2";
constexpr ZelDeviceId kDevice{{10, 77, 0, 2, 0, 1}};
constexpr const char* kTopic = "load";

// Messages in the time that begins with the first one. One thread counts, another one may look.
class Window {
 public:
  explicit Window(double seconds) : seconds_(seconds) {}

  void Count() {
    const double now = bench::NowSec();
    if (beginSec_ == 0) beginSec_ = now;
    if (now - beginSec_ < seconds_) {
      ++messages_;
    } else {
      isOver_ = true;
      isOver_.notify_all();
    }
  }
  bool IsOver() const { return isOver_; }
  void AwaitEnd() const { isOver_.wait(false); }
  double PerSecond() const { return static_cast<double>(messages_) / seconds_; }

 private:
  const double seconds_;
  double beginSec_ = 0;
  uint64_t messages_ = 0;
  std::atomic<bool> isOver_{false};
};

std::atomic<int> g_linksLost{0};

void OnEvent(const ZelDeviceId*, void*, int32_t event) {
  if (event == ZEL_EVENT_DISCONNECTED) ++g_linksLost;
}

void OnTopic(uint32_t, uint32_t, const char*, const uint8_t*, uint32_t, void* user) {
  static_cast<Window*>(user)->Count();
}

double ReadByLibrary(double seconds) {
  Window window(seconds);
  const ZelInstance instance = libzel_createInstanceEx(&kDevice, 0, 20000, OnEvent, nullptr);
  (void)libzel_reconnect_delay_set(instance, 0);
  bench::Require(libzel_subscribe(instance, kTopic, OnTopic, &window) == 0, "subscribe");
  (void)libzel_loop_start(instance);
  window.AwaitEnd();
  (void)libzel_releaseInstance(instance);
  return window.PerSecond();
}

double ReadRaw(double seconds) {
  Window window(seconds);
  const bench::RawClient raw(kHost);
  std::vector<uint8_t> buffer(256 * 1024);
  raw.Write(bench::RequestFrame(bench::kTopicPort, bench::TopicRecord("sub", kTopic, 0)));
  for (size_t filled = 0; !window.IsOver();) {
    filled += raw.ReadSome(buffer.data() + filled, buffer.size() - filled);
    size_t at = 0;
    while (filled - at >= bench::kOuterSize) {
      const size_t size = bench::kOuterSize + bench::ReadLe32(buffer.data() + at + 4);
      if (filled - at < size) break;
      window.Count();
      at += size;
    }
    std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(at),
              buffer.begin() + static_cast<std::ptrdiff_t>(filled), buffer.begin());
    filled -= at;
  }
  return window.PerSecond();
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 3, "usage: bench_slow_link LOG NAME [ROUNDS [SECONDS]]");
  FILE* out = bench::MoveLogTo(argv[1]);
  (void)libzel_init();
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 6;
  const double seconds = argc > 4 ? std::atof(argv[4]) : 10;
  bench::Row row{std::string("slow link, ") + argv[2], "msg/s", {}, {}};
  for (int round = 0; round < rounds; ++round) {
    const double raw = ReadRaw(seconds);
    row.Add(ReadByLibrary(seconds), raw);
    bench::EmptyLog();
  }
  row.Print(out);
  const std::string lost = "  links lost in " + std::to_string(static_cast<int>(rounds * seconds)) + " s";
  (void)std::fprintf(out, "%-30s %9d\n", lost.c_str(), g_linksLost.load());
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
