// The discovery client: one thread per process that asks for devices on every network and reports those that answer.
//
// Application threads only store the callback and the scanning switch; all socket work, parsing and callbacks are the
// scan thread's. The interfaces are those of the adapter table as it stands when the thread starts. A fault in an
// answer's document (no JSON, a member of the wrong kind) ends the process. Deliberate; the options have it otherwise,
// and let discovery start again after a failure.
#pragma once

#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "libzel/libzel.h"
#include "utils/Mutex.h"
#include "utils/Stopwatch.h"
#include "zelclient/ScanMessage.h"
#include "zelclient/ScanState.h"
#include "zelcomm/ZelDeviceIdGenerator.h"
#include "zelcomm/ZelScan.h"

namespace libzel {

class CZelScanClient : public CZelScan {
 public:
  static CZelScanClient& Instance();

  // Replaces callback and context together. Gives 0.
  int32_t registerScanEvent(ZelScanEventCallback callback, void* context);
  // Take effect at the next cycle of the thread, within about a second. Give 0.
  int32_t startScan();
  int32_t stopScan();

  int32_t svc() override;

  // Starts the thread unless it runs, and waits until its sockets are open; false when they could not be.
  bool StartAndAwait();
  ScanState& state() { return state_; }

  // Handles the document of an accepted answer: 0 when it was delivered, or when no callback is registered or no scan
  // is on; -1 when it is not a JSON object, or was dropped.
  int32_t notify(const uint8_t* payload, size_t length, const std::string& senderIp);

 private:
  struct ScanInterface {
    std::string ip;
    std::string name;
    platform::SocketHandle multicastSocket = platform::kNoSocket;
    platform::SocketHandle broadcastSocket = platform::kNoSocket;
  };
  struct Watched {
    std::array<platform::SocketHandle, platform::kMaxWatched> sockets{};
    std::array<bool, platform::kMaxWatched> ready{};
    size_t count = 0;

    void Add(platform::SocketHandle socket);
    bool IsReady(platform::SocketHandle socket) const;
  };
  struct Listener {
    ZelScanEventCallback callback = nullptr;
    void* context = nullptr;
  };
  enum class Received { kFailed, kTooShort, kExamined };

  int32_t addBroadcastSocket(const AdapterRecord& adapter);
  int32_t joinMutilCastSocket(ScanInterface& interface);
  static platform::SocketHandle OpenBroadcastSocket(const std::string& ip);
  int32_t sendScanReqPacket();
  static void SendRequest(platform::SocketHandle socket, const ZelScanHeader& header);

  AdapterTable AdaptersToAskOn() const;
  void OpenSockets();
  void CloseSockets();
  static bool LeavesOut();
  bool AwaitRetry();
  bool RunCycle();
  Watched WatchedSockets() const;
  bool ReceiveReady(const Watched& watched);
  std::optional<ZelScanResult> ReadOrDrop(const std::string& document, const std::string& senderIp);
  Received ReceiveOne(platform::SocketHandle socket, std::span<uint8_t> buffer);

  std::atomic<bool> scanning_{false};
  Stopwatch requestTimer_;
  std::vector<ScanInterface> interfaces_;
  ScanState state_;
  std::string failure_;     // why the sockets are not good to wait on
  bool isRestart_ = false;  // of the scan thread
  std::atomic<bool> hasEnded_{false};
  Mutex startMutex_;
  Mutex listenerMutex_;
  Listener listener_ ZEL_GUARDED_BY(listenerMutex_);
};

}  // namespace libzel
