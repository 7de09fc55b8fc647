// Device identifiers: made from text, this machine's, another host's.
#include <array>
#include <cstring>

#include "libzel/Guard.h"
#include "libzel/libzel.h"
#include "zelclient/UdpRequest.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/DeviceId.h"
#include "zelcomm/ZelDeviceIdGenerator.h"

using namespace libzel;

namespace {

constexpr uint16_t kIdentifierPort = 101;
constexpr uint16_t kCmdRead = 1;
constexpr uint16_t kCmdWrite = 5;
constexpr AddressBlock kReadAddress{0x1000, 0x1001};
constexpr AddressBlock kWriteAddress{0x1001, 0x1002};
constexpr size_t kAnswerSize = 1024;

int32_t AskForIdentifier(const char* host, int32_t timeoutMs, ZelDeviceId& out) {
  std::array<uint8_t, kAnswerSize> answer{};
  const uint32_t result = UdpSendRecv(host, {kIdentifierPort, kCmdRead, kReadAddress, {}}, answer, timeoutMs);
  if (result != 0) return static_cast<int32_t>(result);
  std::memcpy(out.bytes, answer.data(), sizeof out.bytes);
  ZEL_LOG_AS("libzel_getRemoteZelDeviceId", kDebug, "get remote:%s DeviceId:%s", host,
             DeviceIdText(out).c_str());
  return CRouterTable::Instance().SetHostIp(out, host);
}

}  // namespace

int32_t libzel_makeZelDeviceId(const char* text, ZelDeviceId* out) {
  return Guard(kTheCode, [&] {
    if (text == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    const ZelDeviceId id = ParseDeviceId(text);
    if (out != nullptr) *out = id;
    return ZEL_OK;
  });
}

int32_t libzel_makeZelDeviceAddr(const char* text, uint16_t port, ZelDeviceAddr* out) {
  return Guard(kTheCode, [&] {
    if (text == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    const ZelDeviceId id = ParseDeviceId(text);
    if (out != nullptr) *out = {id, port};
    return ZEL_OK;
  });
}

int32_t libzel_getLocalZelDeviceId(ZelDeviceId* out) {
  return Guard(kTheCode, [&] {
    if (out == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    *out = LocalDeviceIdSource().GetLocalDeviceId();
    (void)CRouterTable::Instance().SetHostIp(*out, "127.0.0.1");
    ZEL_LOG_AS("libzel_getLocalZelDeviceId", kDebug, "Get Local DeviceId:%s", DeviceIdText(*out).c_str());
    return ZEL_OK;
  });
}

int32_t libzel_getRemoteZelDeviceId(const char* host, int32_t timeoutMs, ZelDeviceId* out) {
  return Guard(kTheCode, [&] {
    if (host == nullptr || out == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    return AskForIdentifier(host, timeoutMs, *out);
  });
}

int32_t libzel_setRemoteZelDeviceId(const char* host, const char* text, int32_t timeoutMs) {
  return Guard(kTheCode, [&] {
    if (host == nullptr || text == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    const ZelDeviceId id = ParseDeviceId(text);
    const uint32_t result =
        UdpSendRecv(host, {kIdentifierPort, kCmdWrite, kWriteAddress, id.bytes}, {}, timeoutMs);
    if (result == 0) (void)CRouterTable::Instance().SetHostIp(id, host);
    return static_cast<int32_t>(result);
  });
}
