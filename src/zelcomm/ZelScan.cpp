#include "zelcomm/ZelScan.h"

#include "utils/Log.h"

namespace libzel {

namespace {

constexpr const char* kAnyAddress = "0.0.0.0";

// The runtime's text for what the last call into the platform failed with.
std::string LastErrorText() { return platform::ErrorText(platform::RuntimeError()); }

// An isolated network has no default route, so that the system knows no default interface.
bool JoinOnFirstAdapter(platform::SocketHandle socket) {
  for (const platform::Adapter& adapter : platform::ListAdapters()) {
    if (adapter.ip == kAnyAddress) continue;  // has no address
    return platform::JoinMulticastGroup(socket, kMulticastGroup, adapter.ip.c_str()) &&
           platform::SetMulticastInterface(socket, adapter.ip.c_str());
  }
  return false;
}

// One opening, step by step, each with its line when it fails.
class MulticastOpener {
 public:
  explicit MulticastOpener(const MulticastOpening& opening)
      : opening_(opening), socket_(platform::OpenDatagramSocket()) {}

  const std::string& failure() const { return failure_; }

  platform::SocketHandle Open() {
    if (!platform::SetReuseAddress(socket_, true)) return Fail("setsockopt SO_REUSEADDR");
    // After a failure of the next two the rest is tried all the same, and fails on the closed socket.
    if (!platform::SetMulticastTtl(socket_, kMulticastTtl)) (void)Fail("setsockopt  IP_MULTICAST_TTL");
    if (!platform::SetMulticastLoop(socket_, opening_.hearsOwnHost)) {
      (void)Fail("setsockopt IP_MULTICAST_LOOP");
    }
    if (!platform::Bind(socket_, opening_.ip, opening_.port)) return Fail(opening_.bindStep.c_str());
    if (!Join()) return Fail("setsockopt IP_ADD_MEMBERSHIP");
    platform::RaiseReceiveBuffer(socket_, kDiscoveryReceiveBuffer);
    return socket_;
  }

 private:
  bool Join() {
    if (!opening_.askOn.empty()) {
      return platform::JoinMulticastGroup(socket_, kMulticastGroup, opening_.askOn.c_str()) &&
             platform::SetMulticastInterface(socket_, opening_.askOn.c_str());
    }
    if (platform::JoinMulticastGroup(socket_, kMulticastGroup, opening_.ip)) return true;
    reason_ = LastErrorText();
    return opening_.ip == std::string_view(kAnyAddress) && platform::IsRouteMissing() &&
           JoinOnFirstAdapter(socket_);
  }

  platform::SocketHandle Fail(const char* step, int32_t line = __builtin_LINE()) {
    const std::string reason = reason_.empty() ? LastErrorText() : reason_;
    if (failure_.empty()) failure_ = std::string(step) + ": " + reason;
    LogPrint(static_cast<int32_t>(LogLevel::kError), "src\\zelcomm\\ZelScan.cpp", opening_.function, line,
             "%s error,%s", step, reason.c_str());
    if (socket_ != platform::kNoSocket) platform::CloseSocket(socket_);
    return socket_ = platform::kNoSocket;
  }

  const MulticastOpening& opening_;
  platform::SocketHandle socket_;
  std::string reason_;   // why the first of two joins failed
  std::string failure_;  // the first step that failed, and why
};

}  // namespace

platform::SocketHandle OpenMulticastSocket(const MulticastOpening& opening, std::string* failure) {
  MulticastOpener opener(opening);
  const platform::SocketHandle socket = opener.Open();
  if (failure != nullptr) *failure = opener.failure();
  return socket;
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
  mainSocket_ =
      OpenMulticastSocket({.function = "CZelScan::initMutilCastSocket",
                           .ip = kAnyAddress,
                           .port = ZEL_MUTILCAST_PORT,
                           .hearsOwnHost = true,
                           .bindStep = "bind ZEL_MUTILCAST_PORT:" + std::to_string(ZEL_MUTILCAST_PORT),
                           .askOn = mainInterface_},
                          &mainFailure_);
  if (mainSocket_ == platform::kNoSocket) return -1;
  ZEL_LOG(kDebug, "Init Zel Scan Finish,MutilCast Ip:%s,port:%d", kMulticastGroup, ZEL_MUTILCAST_PORT);
  return 0;
}

void CZelScan::CloseMainSocket() {
  if (mainSocket_ != platform::kNoSocket) platform::CloseSocket(mainSocket_);
  mainSocket_ = platform::kNoSocket;
}

}  // namespace libzel
