// The base of the discovery client: the scan thread, its stop flag, and the main multicast socket, which is bound to
// the discovery port on all local addresses and joined to the group on the default interface.
//
// `start` and `stop` run on application threads; `svc` runs on the scan thread, which also makes the main socket. Neither `stop` nor the destructor closes that socket. Stop before destroying.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "platform/Platform.h"
#include "utils/Thread.h"

namespace libzel {

inline constexpr const char* kMulticastGroup = "239.255.0.3";
inline constexpr uint16_t ZEL_MUTILCAST_PORT = 38897;
inline constexpr int32_t kMulticastTtl = 10;

class CZelScan {
 public:
  CZelScan() = default;
  virtual ~CZelScan() = default;
  CZelScan(const CZelScan&) = delete;
  CZelScan& operator=(const CZelScan&) = delete;

  // Starts the thread unless one is held. Gives 0; a thread that cannot be made throws std::system_error. The stop flag
  // is cleared after the start, so a start right behind a stop may end at once. Deliberate.
  virtual int32_t start();
  // Sets the stop flag and waits for the thread, which notices within about a second. Gives 0; throws
  // std::system_error when called on the scan thread.
  virtual int32_t stop();
  virtual int32_t svc() = 0;
  // 0, or -1 with an ERROR line. A socket that failed on the way is closed.
  virtual int32_t initMutilCastSocket();

 protected:
  bool IsStopped() const { return stop_; }
  platform::SocketHandle mainSocket() const { return mainSocket_; }
  // Lets the main socket ask, and join, on the adapter with this address in place of the default interface; empty: not.
  void SetMainInterface(std::string ip) { mainInterface_ = std::move(ip); }
  // Why the last initMutilCastSocket failed.
  const std::string& mainFailure() const { return mainFailure_; }
  void CloseMainSocket();
  // Waits for a thread that has ended by itself, so that another one can start.
  void JoinEnded() { thread_.Join(); }

 private:
  std::atomic<bool> stop_{false};
  platform::SocketHandle mainSocket_ = platform::kNoSocket;
  std::string mainInterface_;
  std::string mainFailure_;
  Thread thread_;
};

// How one of the discovery's multicast sockets is opened.
struct MulticastOpening {
  const char* function;  // in whose name failures are logged
  const char* ip;        // the local address that it is bound to and joins the group on
  uint16_t port;         // 0 for any free one
  bool hearsOwnHost;     // whether what this host sends comes back to it
  std::string bindStep;  // how the line about a failed bind begins
  std::string askOn{};   // the address to join, and to send, on in place of `ip`; empty: that
};

// A socket that has joined the group, the caller's to close, or kNoSocket with an ERROR line. One on 0.0.0.0 joins, and
// sends, where the system's routes lead; where they lead nowhere, on the first adapter that has an address.
// `failure` gets the reason; it may be null.
platform::SocketHandle OpenMulticastSocket(const MulticastOpening& opening, std::string* failure = nullptr);

// What the discovery sockets' receive buffers are raised to: a fleet may answer in the same instant.
inline constexpr int32_t kDiscoveryReceiveBuffer = 8 * 1024 * 1024;

}  // namespace libzel
