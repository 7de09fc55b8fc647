// Any bytes as an identifier's text: what is read prints as a text that reads the same.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "zelcomm/DeviceId.h"

namespace {

bool IsSame(const ZelDeviceId& left, const ZelDeviceId& right) {
  return std::memcmp(left.bytes, right.bytes, sizeof left.bytes) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const ZelDeviceId id = libzel::ParseDeviceId(text);
  if (!IsSame(libzel::ParseDeviceId(libzel::DeviceIdText(id)), id)) std::abort();
  const ZelDeviceId fromIp = libzel::DeviceIdFromAdapterIp(text);
  if (fromIp.bytes[4] != 1 || fromIp.bytes[5] != 1) std::abort();
  return 0;
}
