// A protected process among hosts that send what they should not: hostile_peers datagrams|frames COUNT. It
// lives, its memory stays level, what it counts is what was sent, and what is good still gets through.
#include <libzel/libzelx.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/Asking.h"
#include "support/Deadline.h"
#include "support/DiscoveryState.h"
#include "support/Instance.h"
#include "support/Memory.h"
#include "support/ScriptedServer.h"

namespace {

using namespace zeltest;

constexpr int64_t kMostGrowth = int64_t{MOST_GROWTH_MIB} << 20;
constexpr uint64_t kWarmUpShare = 10;  // the first tenth fills what is kept

bool Check(bool isGood, const char* what) {
  if (!isGood) (void)fprintf(stderr, "not so: %s\n", what);
  return isGood;
}

// The same every time.
std::minstd_rand& Random() {
  static std::minstd_rand random(12345);
  return random;
}
uint32_t Below(uint32_t end) { return static_cast<uint32_t>(Random()() % end); }

// Cuts it, changes some bytes, or puts others behind it.
Bytes Spoilt(Bytes bytes) {
  switch (Below(4)) {
    case 0: bytes.resize(Below(static_cast<uint32_t>(bytes.size()) + 1)); break;
    case 1: bytes.push_back(static_cast<uint8_t>(Below(256))); break;
    default: break;
  }
  for (uint32_t changes = Below(4); changes > 0 && !bytes.empty(); --changes) {
    bytes[Below(static_cast<uint32_t>(bytes.size()))] = static_cast<uint8_t>(Below(256));
  }
  return bytes;
}

bool Start() {
  bool isGood = Check(libzelx_protect() == 0, "protected");
  isGood = Check(libzelx_setLogSink(nullptr, nullptr) == 0, "without a log") && isGood;
  isGood = Check(libzelx_setOption(0, LIBZELX_MAX_ROUTES, 1000) == 0, "a limit of routes") && isGood;
  return Check(libzel_init() == 0, "started") && isGood;
}

// Keeps the peak of memory behind the warm-up.
class MemoryLevel {
 public:
  explicit MemoryLevel(uint64_t count) : warm_(count / kWarmUpShare) {}
  void Look(uint64_t done) {
    if (level_ == 0 && done >= warm_) level_ = PeakResidentBytes();
  }
  bool IsLevel() const { return Check(PeakResidentBytes() - level_ < kMostGrowth, "memory is level"); }

 private:
  const uint64_t warm_;
  int64_t level_ = 0;
};

// ---- Datagrams --------------------------------------------------------------------------------------------

// Of so many one is whole.
constexpr uint64_t kWholeShare = 4;

// Always one that counts: an answer, or too short to be anything.
Bytes HostileDatagram(uint64_t number) {
  const std::string id = std::to_string(Below(256)) + "." + std::to_string(Below(256)) + ".3.4.5.6";
  const std::string good = R"({"device":{"zelDeviceId":")" + id + R"(","hostName":"h","sn":"1"},"frames":)" +
                           R"([{"frameIp":"127.0.0.1","frameMacAddr":"02-00"}]})";
  if (number % kWholeShare == 0) return ScanDatagram(good);
  if (Below(20) == 0) return Bytes(Below(9));
  const Bytes document = Spoilt(Text(good));
  return ScanDatagram(std::string(document.begin(), document.end()));
}

uint64_t Counted() {
  const libzelx_Discovery state = StateOfDiscovery();
  return state.answers + state.dropped;
}

// Remembers nothing.
void Heard(ZelScanResult, void*) {}

// As many at once as the system surely keeps for the library.
bool SendDatagrams(uint64_t count) {
  constexpr uint64_t kAtOnce = 32;
  const AnsweringDevice device(kLocal);
  (void)libzel_registerZelScanEvent(Heard, nullptr);
  MemoryLevel memory(count);
  const uint64_t before = Counted();
  for (uint64_t sent = 0; sent < count;) {
    const uint64_t end = std::min(sent + kAtOnce, count);
    for (; sent < end; ++sent) device.Send(HostileDatagram(sent));
    const ElapsedTime time;
    while (Counted() != before + sent && time.Ms() < 10000) std::this_thread::yield();
    if (!Check(Counted() == before + sent, "each is counted")) return false;
    memory.Look(sent);
  }
  bool isGood = Check(StateOfDiscovery().answers >= count / kWholeShare, "each whole one is an answer");
  isGood = Check(StateOfDiscovery().dropped > count / 3, "many were malformed") && isGood;
  isGood = Check(AnsweringDevice(kLocal).IsHeard("9.9.9.9.9.9"), "a good one is heard") && isGood;
  return memory.IsLevel() && isGood;
}

bool Datagrams(uint64_t count) {
  if (!Start() || !Check(libzelx_startDiscovery() == 0, "discovery runs")) return false;
  return Check(AnsweringDevice(kLocal).IsHeard("1.1.1.1.1.1"), "it hears") && SendDatagrams(count);
}

// ---- Frames -----------------------------------------------------------------------------------------------

constexpr uint16_t kPorts[] = {0, 1, 101, 103, 103, 103, 600, 601, 65535};

// A whole one, whatever is in it.
Bytes HostileFrame() {
  const auto version = static_cast<uint8_t>(Below(4));
  const uint16_t port = kPorts[Below(std::size(kPorts))];
  Bytes body = Spoilt(InnerHeader(Below(3), Below(5)) + Record("pub", "topic", Bytes(Below(50), 'd'), 1, 2));
  if (body.empty()) body.push_back(0);
  return Message(version, port, body);
}

// What ends a link: a length that cannot be.
Bytes FatalFrame() { return OuterHeader(1, 600, Below(2) == 0 ? 0 : 10485760 + Below(1000000)); }

class HostileServer {
 public:
  HostileServer() {
    (void)libzel_reconnect_delay_set(instance_, 0);
    (void)libzel__registerRouterEvent(instance_, 700, MessageRecorder::Callback, &seen_);
    (void)libzel_loop_start(instance_);
    peer_ = server_.Accept();
  }
  ~HostileServer() { instance_.Release(); }
  HostileServer(const HostileServer&) = delete;
  HostileServer& operator=(const HostileServer&) = delete;

  bool Send(uint64_t count) {
    constexpr uint64_t kFatalOnes = 1000;  // of them one is
    MemoryLevel memory(count);
    for (uint64_t i = 1; i <= count; ++i) {
      const bool isSent = i % kFatalOnes == 0 ? EndLink() : SendOne(HostileFrame());
      if (!Check(isSent, "sent")) return false;
      memory.Look(i);
    }
    return Check(peer_.Send(Message(0, 700, Text("good"))), "sent") &&
           Check(seen_.Await(1), "a good one is delivered") && AreCountsTrue() && memory.IsLevel();
  }

 private:
  bool SendOne(const Bytes& frame) {
    ++frames_;
    bytes_ += frame.size();
    return peer_.Send(frame);
  }
  bool EndLink() {
    ++ends_;
    bytes_ += 8;
    if (!peer_.Send(FatalFrame()) || !peer_.AwaitEnd()) return false;
    peer_ = server_.Accept();
    return peer_.IsOpen();
  }
  bool AreCountsTrue() const {
    const libzelx_Stats stats = StatsOf(instance_);
    bool isGood = Check(stats.framesIn == frames_ + 1, "each frame is counted");
    isGood = Check(stats.bytesIn == bytes_ + 12, "each byte is counted") && isGood;
    isGood = Check(stats.badLengths == ends_, "each bad length is counted") && isGood;
    isGood = Check(stats.losses == ends_ && stats.connects == ends_ + 1, "each link is counted") && isGood;
    return Check(stats.badRecords > 0 && stats.noTopic > 0 && stats.noPort > 0,
                 "what was wrong is counted") &&
           isGood;
  }

  uint64_t frames_ = 0;
  uint64_t ends_ = 0;
  uint64_t bytes_ = 0;
  ScriptedServer server_;
  MessageRecorder seen_;
  Instance instance_{server_.device()};
  Peer peer_;
};

bool Frames(uint64_t count) { return Start() && HostileServer().Send(count); }

}  // namespace

int main(int count, char** arguments) {
  const Deadline deadline(1200);
  if (count != 3) return 2;
  const uint64_t number = std::strtoull(arguments[2], nullptr, 10);
  return (std::strcmp(arguments[1], "frames") == 0 ? Frames(number) : Datagrams(number)) ? 0 : 1;
}
