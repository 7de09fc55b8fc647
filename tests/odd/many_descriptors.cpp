// Does everything in a process that has 2,000 sockets open already.
#include <libzel/libzel.h>

#include <memory>
#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/FileDevice.h"
#include "support/Instance.h"
#include "support/ScanAnswer.h"
#include "support/TemporaryFolder.h"
#include "support/TestDatagram.h"

#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace {

using namespace zeltest;

constexpr int kSockets = 2000;

void AllowManyDescriptors() {
#ifndef _WIN32
  rlimit limit{};
  (void)getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  (void)setrlimit(RLIMIT_NOFILE, &limit);
#endif
}

bool IsFound(const ScanRecorder& devices) {
  const TestDatagram device("127.0.0.1", 0);
  return Eventually([&] {
    (void)device.Send("127.0.0.1", kScanPort, ScanDatagram(DeviceDocument("1.2.3.4.5.6")));
    return devices.Await(1, 50);
  });
}

bool IsDelivered(Link& link, const MessageRecorder& seen, size_t count) {
  return link.peer.Send(Message(0, 600, Text("x"))) && seen.Await(count);
}

bool IsAnswered(Link& link) {
  Bytes buffer(8);
  return link.instance.Send(600, Text("ask")) > 0 && link.peer.Serve(Text("well")).whole &&
         link.instance.Receive(buffer) == 4;
}

}  // namespace

int main() {
  const Deadline deadline(100);
  const CapturedLog log;
  AllowManyDescriptors();
  std::vector<std::unique_ptr<TestDatagram>> sockets;
  for (int i = 0; i < kSockets; ++i) sockets.push_back(std::make_unique<TestDatagram>("127.0.0.1", 0));

  static ScanRecorder devices;
  if (libzel_init() != 0) return 1;
  if (libzel_registerZelScanEvent(ScanRecorder::Callback, &devices) != 0 || libzel_startZelScan() != 0)
    return 2;
  if (!IsFound(devices)) return 3;

  ScriptedServer server;
  MessageRecorder seen;
  Link link(server);
  if (!IsAnswered(link) || !libzel_reconnect(link.instance, 1000) || !IsAnswered(link)) return 4;
  if (libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen) != 0) return 5;
  if (libzel_loop_start(link.instance) != 0 || !IsDelivered(link, seen, 1)) return 6;

  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  static ProgressRecorder progress;
  const FileDevice device;
  (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "to", ProgressRecorder::Callback, &progress);
  if (!progress.Await(3) || progress.All().back().state != 2) return 7;
  link.instance.Release();
  return libzel_destory() == 0 ? 0 : 8;
}
