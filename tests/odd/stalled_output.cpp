// Nobody reads standard output: threads that log wait, all others go on, and so does whoever forks.
#include <libzel/libzel.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <thread>

#include "support/Deadline.h"
#include "support/ForkedChild.h"
#include "support/Instance.h"
#include "support/OngoingCall.h"

namespace {

using namespace zeltest;

#define CHECK(condition)                                            \
  do {                                                              \
    if (!(condition)) {                                             \
      (void)fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
      _exit(1);                                                     \
    }                                                               \
  } while (false)

bool IsAnswered(Link& link) {
  Bytes buffer(8);
  return link.instance.Send(600, Text("ask")) > 0 && link.peer.Serve(Text("well")).whole &&
         link.instance.Receive(buffer) == 4;
}

// A pipe in place of standard output; gives its reading end.
int StallOutput() {
  std::array<int, 2> ends{};
  CHECK(pipe(ends.data()) == 0);
  (void)fflush(stdout);
  CHECK(dup2(ends[1], STDOUT_FILENO) == STDOUT_FILENO);
  close(ends[1]);
  return ends[0];
}

}  // namespace

int main() {
  const Deadline deadline(100);
  const int reader = StallOutput();
  CHECK(libzel_init() == 0);
  ScriptedServer quietServer, server;
  Link quiet(quietServer), talking(server);
  std::atomic<bool> done{false};
  std::atomic<int> reconnects{0};
  std::thread talker([&] {
    for (; !done; ++reconnects) (void)libzel_reconnect(talking.instance, 1000);
  });
  // No more reconnects for a while: the talker waits for a reader.
  CHECK(Eventually([&] {
    const int before = reconnects;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return before > 0 && reconnects == before;
  }));
  for (int i = 0; i < 100; ++i) CHECK(IsAnswered(quiet));
  const ElapsedTime time;
  const int status = StatusOfChild([&] { return libzel_loop_stop(quiet.instance) == ZEL_E_HANDLE ? 0 : 1; });
  CHECK(status == 0);
  CHECK(time.AwakeMs() < 2000);
  done = true;
  std::thread drain([&] {
    std::array<char, 4096> text;
    while (read(reader, text.data(), text.size()) > 0) {
    }
  });
  talker.join();
  quiet.instance.Release();
  talking.instance.Release();
  CHECK(libzel_destory() == 0);
  (void)fflush(stdout);
  _exit(0);
}
