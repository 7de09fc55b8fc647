#include "zelclient/ScanMessage.h"

#include <algorithm>
#include <cstring>

#include "utils/json/JsonParser.h"
#include "zelcomm/Frame.h"

namespace libzel {

namespace {

// The field is zero-filled; the text is cut to leave its terminator.
template <size_t N>
void SetField(char (&field)[N], const std::string& text) {
  std::memcpy(field, text.data(), std::min(std::strlen(text.c_str()), N - 1));
}

template <size_t N>
void TakeMember(char (&field)[N], const Json& device, const char* key) {
  if (device.has(key)) SetField(field, device.get(key));
}

void TakeDevice(ZelScanResult& record, const Json& device) {
  TakeMember(record.zelDeviceId, device, "zelDeviceId");
  TakeMember(record.zelVersion, device, "zelVersion");
  TakeMember(record.rteVersion, device, "rteVersion");
  TakeMember(record.serialNo, device, "serialNo");
  TakeMember(record.vorlinVersion, device, "vorlinVersion");
  TakeMember(record.hostName, device, "hostName");
  TakeMember(record.sn, device, "sn");
}

// The first frame with the sender's address gives the hardware address; one that names no hardware address is a fault
// even when it is another frame's.
void TakeFrame(ZelScanResult& record, Json& frames) {
  const int32_t count = frames.size();
  for (int32_t index = 0; index < count; ++index) {
    const Json& frame = frames[index];
    if (!frame.has("frameIp")) continue;
    const std::string ip = frame.get("frameIp");
    const std::string hardwareAddress = frame.get("frameMacAddr");
    if (ip != record.ip) continue;
    SetField(record.frameMacAddr, hardwareAddress);
    return;
  }
}

}  // namespace

std::array<uint8_t, kScanHeaderSize> ZelScanHeader::Bytes() const {
  std::array<uint8_t, kScanHeaderSize> bytes{};
  bytes[0] = type;
  PutBe32(&bytes[1], reserved);
  PutBe32(&bytes[5], timestamp);
  return bytes;
}

ZelScanHeader ZelScanHeader::Read(std::span<const uint8_t> datagram) {
  return {datagram[0], GetBe32(&datagram[1]), GetBe32(&datagram[5])};
}

bool IsAcceptedAnswer(const ZelScanHeader& header) {
  return header.type == kScanAnswer && header.reserved == 0;
}

std::optional<ZelScanResult> ReadScanAnswer(const std::string& document, const std::string& senderIp) {
  JsonParser parser;
  parser.load(document);
  Json root;
  parser.parse(root);
  if (!root.isObject()) return std::nullopt;

  ZelScanResult record{};
  SetField(record.ip, senderIp);
  if (root.has("device")) TakeDevice(record, root.get("device"));
  if (root.has("frames") && !root.get("frames").isNull()) TakeFrame(record, root["frames"]);
  return record;
}

}  // namespace libzel
