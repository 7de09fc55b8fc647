#include "zelcomm/ZelScan.h"

#include "utils/Log.h"

namespace libzel {

std::string LastErrorText() { return platform::ErrorText(platform::RuntimeError()); }

void CZelScan::Close(platform::SocketHandle& socket) {
  if (socket != platform::kNoSocket) platform::CloseSocket(socket);
  socket = platform::kNoSocket;
}

int32_t CZelScan::start() {
  ZEL_LOG(kInfo, "ZelScan Thread Start");
  // A fault that leaves the body ends the process.
  if (thread_.Start({"zel-scan", [this] { (void)svc(); }, {}})) stop_ = false;
  return 0;
}

int32_t CZelScan::stop() {
  ZEL_LOG(kInfo, "ZelScan thread stop");
  stop_ = true;
  thread_.Join();
  return 0;
}

int32_t CZelScan::initMutilCastSocket() {
  ZEL_LOG(kDebug, "Init Zel Scan start");
  platform::SocketHandle& socket = mainSocket_;
  socket = platform::OpenDatagramSocket();
  if (!platform::SetReuseAddress(socket, true)) {
    ZEL_LOG(kError, "setsockopt SO_REUSEADDR error,%s", LastErrorText().c_str());
    Close(socket);
    return -1;
  }
  // After a failure of the next two the rest is tried all the same, and fails on the closed socket.
  if (!platform::SetMulticastTtl(socket, kMulticastTtl)) {
    ZEL_LOG(kError, "setsockopt  IP_MULTICAST_TTL error,%s", LastErrorText().c_str());
    Close(socket);
  }
  if (!platform::SetMulticastLoop(socket, true)) {
    ZEL_LOG(kError, "setsockopt IP_MULTICAST_LOOP error,%s", LastErrorText().c_str());
    Close(socket);
  }
  if (!platform::Bind(socket, "0.0.0.0", ZEL_MUTILCAST_PORT)) {
    ZEL_LOG(kError, "bind ZEL_MUTILCAST_PORT:%d error,%s", ZEL_MUTILCAST_PORT, LastErrorText().c_str());
    Close(socket);
    return -1;
  }
  if (!platform::JoinMulticastGroup(socket, kMulticastGroup, "0.0.0.0")) {
    ZEL_LOG(kError, "setsockopt IP_ADD_MEMBERSHIP error,%s", LastErrorText().c_str());
    Close(socket);
    return -1;
  }
  platform::RaiseReceiveBuffer(socket, kDiscoveryReceiveBuffer);
  ZEL_LOG(kDebug, "Init Zel Scan Finish,MutilCast Ip:%s,port:%d", kMulticastGroup, ZEL_MUTILCAST_PORT);
  return 0;
}

}  // namespace libzel
