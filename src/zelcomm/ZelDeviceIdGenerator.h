// The identifier of this machine, and the table of its usable network adapters.
//
// The identifier comes from the device description file or, when that gives none, from the first adapter's
// IPv4 address with 1.1 behind it. Any thread may use the generator; its lock is never held during file or
// platform calls.
//
// Nothing fails here: an identifier that could not be found is all zero. The one exception is an attribute
// without double quotes in the description file, for which every operation that reads the file throws
// std::logic_error.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "libzel/libzel.h"
#include "platform/Platform.h"
#include "utils/Mutex.h"

namespace libzel {

struct AdapterRecord {
  uint32_t type = 0;  // the system's interface type
  std::string mac;    // "00-1A-2B-3C-4D-5E"
  std::string name;
  std::string ip;  // dotted text of the first IPv4 address
};

// In the system's order. A hardware address occurs once.
using AdapterTable = std::vector<AdapterRecord>;

class CZelDeviceIdGenerator {
 public:
  // The same path on every system.
  static constexpr const char* kDescriptionFile = "/opt/zel/zeldevice.xml";

  explicit CZelDeviceIdGenerator(std::string descriptionFile = kDescriptionFile);

  // The identifier, looked for as long as none has been found.
  ZelDeviceId GetLocalDeviceId();
  // Reads both sources anew, whatever was found before. Gives 0.
  int32_t Reload();
  // A copy of the table. It is empty until the adapters have been asked for an identifier, and so for ever
  // when the description file gives one. Deliberate.
  AdapterTable GetAdapterTable();

  // 0 when the file has a "deviceInfo" element right below its root, else -1. An identifier text that is none
  // counts as the all-zero identifier.
  int32_t LoadZelDeviceIdFromXml();
  // -1 always. An identifier that is found is stored all the same. Deliberate.
  int32_t LoadZelDeviceIdFromNetAdapters();

  // True when the description file gave the identifier.
  bool IsFromFile() const { return isFromFile_; }

  enum class Adapters { kOneOfEachHardware, kAll };
  static AdapterTable BuildAdapterTable(Adapters which = Adapters::kOneOfEachHardware);
  // Adapters without an address are left out; of several with the same hardware address the last one stays,
  // at the first one's place, unless all are wanted.
  static AdapterTable MakeAdapterTable(std::span<const platform::Adapter> adapters,
                                       Adapters which = Adapters::kOneOfEachHardware);

 private:
  void Load();
  void Store(const ZelDeviceId& id);

  const std::string descriptionFile_;
  std::atomic<bool> loaded_{false};
  std::atomic<bool> isFromFile_{false};
  Mutex mutex_;
  ZelDeviceId id_ ZEL_GUARDED_BY(mutex_){};
  AdapterTable adapters_ ZEL_GUARDED_BY(mutex_);
};

// The process's generator as it stands.
CZelDeviceIdGenerator& DeviceIdGenerator();

// The process's generator after its one-time Reload, which the first caller runs. When that throws, the next
// caller runs it again.
CZelDeviceIdGenerator& LocalDeviceIdSource();

}  // namespace libzel
