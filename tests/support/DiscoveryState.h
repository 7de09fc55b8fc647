// What discovery says of itself, and devices that answer on this host.
#pragma once

#include <string>

#include "libzel/libzelx.h"
#include "support/Recorders.h"
#include "support/ScanAnswer.h"
#include "support/TestDatagram.h"

namespace zeltest {

inline constexpr const char* kLocal = "127.0.0.1";

inline libzelx_Discovery StateOfDiscovery() {
  libzelx_Discovery state{};
  state.size = sizeof state;
  (void)libzelx_getDiscovery(&state);
  return state;
}
inline bool AwaitRunning() {
  return Eventually([] { return StateOfDiscovery().running == 1; });
}

// A device on one of this host's addresses that answers without being asked, to a scan that is on.
class AnsweringDevice {
 public:
  explicit AnsweringDevice(const std::string& host) : host_(host), socket_(host, 0) {
    (void)libzel_registerZelScanEvent(ScanRecorder::Callback, &heard_);
    (void)libzel_startZelScan();
  }
  void Send(const Bytes& bytes) const { (void)socket_.Send(host_, kScanPort, bytes); }
  void Answer(const std::string& id) const { Send(ScanDatagram(DeviceDocument(id))); }
  // Answers until it is heard.
  bool IsHeard(const std::string& id) const {
    for (int i = 0; i < 200; ++i) {
      Answer(id);
      if (heard_.AwaitDevice(id, 50)) return true;
    }
    return false;
  }
  // Waits until all that was sent is handled.
  bool Settle() { return IsHeard("0.0.0.0.1." + std::to_string(++marks_)); }

 private:
  const std::string host_;
  TestDatagram socket_;
  // Never destroyed: calls go on until the process ends.
  inline static ScanRecorder& heard_ = *new ScanRecorder;
  inline static int marks_ = 0;
};

}  // namespace zeltest
