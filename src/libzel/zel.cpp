// The second, plain family.
#include <array>
#include <atomic>
#include <chrono>
#include <memory>

#include "libzel/Guard.h"
#include "libzel/libzel.h"
#include "zelclient/CFileThread.h"
#include "zelcomm/Frame.h"

using namespace libzel;

namespace {

constexpr uint16_t kCmdRead = 2;
constexpr uint32_t kNotAwaited = 0xFFFFFFFF;
constexpr uint8_t kStateFailed = 3;

std::atomic<uint32_t> g_nextTransfer{0};

FrameBuffer AddressOnly(uint32_t idGroup, uint32_t idOffset) {
  std::array<uint8_t, kAddressBlockSize> address;
  AddressBlock{idGroup, idOffset}.Write(address.data());
  FrameBuffer message(static_cast<uint32_t>(kRequestOverhead));
  message.prepend(address.data(), address.size());
  return message;
}

}  // namespace

int32_t ZelInit() { return libzel_init(); }

int32_t ZelMakeDeviceId(const char* text, ZelDeviceId* out) { return libzel_makeZelDeviceId(text, out); }

int32_t ZelGetLocalDeviceId(ZelDeviceId* out) { return libzel_getLocalZelDeviceId(out); }

int32_t ZelGetRemoteDeviceId(const char* host, ZelDeviceId* out, int32_t timeoutMs) {
  return libzel_getRemoteZelDeviceId(host, timeoutMs, out);
}

uint32_t ZelSyncReadReq(const ZelDeviceAddr* target, uint32_t idGroup, uint32_t idOffset, uint32_t reserved,
                        uint8_t* outBuffer, uint32_t* outLength, uint32_t timeoutMs) {
  return Guard(Always(kNotAwaited), [&] {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    if (outLength != nullptr) *outLength = 0;
    if (target == nullptr) return Fail(Always(kNotAwaited), ZEL_E_PARAM);
    ZelRequest request{
        AddressOnly(idGroup, idOffset), target, kCmdRead, reserved, outBuffer, outLength, deadline};
    const auto connection = CDeviceConnectionCache::Instance().GetConnection(target->id);
    return connection != nullptr ? static_cast<uint32_t>(connection->SyncRequest(request)) : kNotAwaited;
  });
}

uint32_t ZelSyncWriteReq(const ZelDeviceAddr* /*target*/, uint32_t /*idGroup*/, uint32_t /*idOffset*/,
                         uint32_t /*reserved*/, const uint8_t* /*data*/, uint32_t /*length*/,
                         uint32_t /*timeoutMs*/) {
  SetErrno(ZEL_OK);
  return ZEL_OK;
}

// A transfer that cannot be begun tells its callback so and is over.
uint32_t ZelFileTransfer(ZelDeviceAddr target, uint64_t /*reserved1*/, uint64_t /*reserved2*/,
                         const char* localPath, const char* remotePath, FileTransferCallback callback,
                         void* user) {
  const uint32_t id = g_nextTransfer.fetch_add(1);
  const auto refuse = [&](int32_t code) {
    if (callback != nullptr) {
      (void)callback(&target.id, id, 0.0F, static_cast<uint32_t>(code), kStateFailed, user);
    }
    return id;
  };
  return Guard(refuse, [&] {
    if (localPath == nullptr || remotePath == nullptr) return Fail(refuse, ZEL_E_PARAM);
    auto transfer = std::make_unique<CFileTransfer>(id, target, localPath, remotePath, callback, user);
    transfer->Report();
    CFileThread::Instance().Submit(std::move(transfer));
    return id;
  });
}
