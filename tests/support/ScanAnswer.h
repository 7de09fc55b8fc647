// Discovery datagrams as a device writes them, and a callback that remembers the devices it was told of.
#pragma once

#include <cstring>
#include <string>

#include "libzel/libzel.h"
#include "support/Recorders.h"
#include "support/Wire.h"

namespace zeltest {

inline constexpr uint16_t kScanPort = 38897;

inline Bytes ScanDatagram(const std::string& document, uint8_t type = 1, uint32_t reserved = 0,
                          uint32_t timestamp = 0) {
  return Bytes{type} + Be(reserved, 4) + Be(timestamp, 4) + Text(document);
}

// A document of a device that tells nothing but its identifier.
inline std::string DeviceDocument(const std::string& id) {
  return R"({"device":{"zelDeviceId":")" + id + R"("}})";
}

inline std::string IdText(const ZelDeviceId& id) {
  std::string text;
  for (const uint8_t byte : id.bytes) {
    if (!text.empty()) text += '.';
    text += std::to_string(byte);
  }
  return text;
}

struct SeenDevice {
  ZelScanResult record;
  std::thread::id thread;
};

class ScanRecorder : public Recorder<SeenDevice> {
 public:
  static void Callback(ZelScanResult device, void* user) {
    static_cast<ScanRecorder*>(user)->Add({device, std::this_thread::get_id()});
  }

  bool AwaitDevice(const std::string& id, int timeoutMs = kRecorderPatienceMs) const {
    return AwaitThat(
        [&](const std::vector<SeenDevice>& devices) {
          for (const SeenDevice& seen : devices) {
            if (id == seen.record.zelDeviceId) return true;
          }
          return false;
        },
        timeoutMs);
  }
};

}  // namespace zeltest
