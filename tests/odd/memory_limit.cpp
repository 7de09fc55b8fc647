// Peers that send more than there is memory for: memory_limit receive|file. The receive thread gives the
// link up with an ERROR line, the transfer thread the transfer with error 12294; the process and
// everything else go on.
#include <libzel/libzel.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/FileDevice.h"
#include "support/Instance.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace zeltest;

constexpr rlim_t kMiB = rlim_t{1} << 20;

// Limits the address space; gives back what the limit was.
void LimitMemory(rlim_t bytes) {
  rlimit limit{};
  (void)getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = bytes;
  (void)setrlimit(RLIMIT_AS, &limit);
}

rlim_t UsedMemory() {
  std::ifstream file("/proc/self/statm");
  rlim_t pages = 0;
  file >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

#define CHECK(condition)                                            \
  do {                                                              \
    if (!(condition)) {                                             \
      (void)fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
      return 1;                                                     \
    }                                                               \
  } while (false)

int ReceiveThread() {
  const CapturedLog log;
  ScriptedServer server;
  MessageRecorder seen;
  Link link(server);
  const Bytes message = OuterHeader(0, 600, 10485759) + Bytes(10485759);
  CHECK(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen) == 0);
  CHECK(libzel_reconnect_delay_set(link.instance, 3600) == 0);
  CHECK(libzel_loop_start(link.instance) == 0);
  CHECK(link.peer.Send(Message(0, 600, Text("x"))) && seen.Await(1));
  LimitMemory(UsedMemory() + 3 * kMiB);
  (void)link.peer.Send(message);
  const bool ended = link.peer.AwaitReset();
  LimitMemory(RLIM_INFINITY);
  CHECK(ended);
  CHECK(log.HasStart("ERROR", ""));
  CHECK(libzel_reconnect_delay_set(link.instance, 0) == 0);
  Peer again = server.Accept();
  CHECK(again.IsOpen() && link.instance.events.AwaitEvent(ZEL_EVENT_CONNECTED, 2));
  CHECK(again.Send(Message(0, 600, Text("y"))) && seen.Await(2));
  return 0;
}

// Answers every message with the beginning of one that never ends.
class EndlessAnswer {
 public:
  EndlessAnswer() : thread_([this] { Run(); }) {}
  ~EndlessAnswer() { thread_.join(); }
  EndlessAnswer(const EndlessAnswer&) = delete;
  EndlessAnswer& operator=(const EndlessAnswer&) = delete;
  ZelDeviceAddr Target() const { return {server_.device(), 700}; }

 private:
  void Run() {
    Peer peer = server_.Accept();
    const Request request = peer.ReadRequest();
    const Bytes chunk(1 << 20);
    (void)peer.Send(OuterHeader(1, request.port, 0xFFFFFFF0) + InnerHeader(0, request.invokeId));
    for (int i = 0; i < 4000 && peer.Send(chunk); ++i) {
    }
  }

  ScriptedServer server_;
  std::thread thread_;
};

int FileWorker() {
  const CapturedLog log;
  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  static ProgressRecorder progress;
  const EndlessAnswer device;
  LimitMemory(UsedMemory() + 64 * kMiB);
  (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "to", ProgressRecorder::Callback, &progress);
  CHECK(progress.Await(2, 60000));
  const SeenProgress last = progress.All().back();
  CHECK(last.state == 3 && last.error == ZEL_E_FILE_TRANSFER);
  CHECK(libzel_destory() == 0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Deadline deadline(100);
  (void)mallopt(M_ARENA_MAX, 1);  // a thread's own arena is address space that counts although it is empty
  if (argc != 2 || libzel_init() != 0) return 2;
  return std::strcmp(argv[1], "file") == 0 ? FileWorker() : ReceiveThread();
}
