// Library frame and life of the instances.
#include "libzel/libzel.h"

#include <algorithm>
#include <atomic>

#include "libzel/Guard.h"
#include "platform/Platform.h"
#include "utils/Options.h"
#include "zelclient/FileSender.h"
#include "zelclient/ZelScanClient.h"
#include "zelcomm/ZelDeviceIdGenerator.h"

using namespace libzel;

namespace {

constexpr uint32_t kMajor = 0;
constexpr uint32_t kMinor = 2;
constexpr uint32_t kPatch = 3;

// Starts of the system's socket library that libzel_init made and libzel_destory has not undone. The host's own starts are
// not ours to undo.
std::atomic<int32_t> g_socketStarts{0};

int32_t StartSockets() {
  const int32_t result = platform::StartSockets();
  if (result == 0) ++g_socketStarts;
  return result;
}

void StopSockets() {
  int32_t starts = g_socketStarts;
  while (starts > 0 && !g_socketStarts.compare_exchange_weak(starts, starts - 1)) {
  }
  if (starts > 0) platform::StopSockets();
}

ZelInstance CreateInstance(const ZelDeviceId* device, uint32_t type, int64_t timeoutMs,
                           ZelConnEventCallback callback, void* user) {
  const auto connection = CPeerConnMgr::Instance().CreateInstance(device, type);
  if (connection == nullptr) return 0;
  connection->SetEventCallback(callback, user);
  try {
    (void)connection->Connect(timeoutMs);  // the instance reconnects by itself
  } catch (const std::exception& fault) {
    ZEL_LOG_AS("libzel_createInstance", kError, "connect:%s", fault.what());
  }
  return CPeerConnMgr::HandleOf(connection);
}

// A description file that cannot be read as such leaves this machine without an identifier, and nothing else.
void DeriveLocalDeviceId() {
  try {
    (void)LocalDeviceIdSource();
  } catch (const std::exception& fault) {
    ZEL_LOG_AS("libzel_init", kError, "local device id:%s", fault.what());
  }
}

// noexcept: without its discovery thread the library cannot work, and the process ends.
void StartDiscovery() noexcept { (void)CZelScanClient::Instance().start(); }

}  // namespace

int32_t libzel_init() {
  return Guard(Always(-1), []() -> int32_t {
    platform::KeepLoaded();
    OptionsOfProcess().hasStarted = true;
    ZEL_LOG_AS("libzel_init", kNotice, "libzelclient Version %d.%d.%d", static_cast<int>(kMajor),
               static_cast<int>(kMinor), static_cast<int>(kPatch));
    ZEL_LOG_AS("libzel_init", kNotice, "libzelclient Compile Time:%s", GetBuildTimeText().c_str());
    SetDefaultLogLevel(static_cast<int32_t>(LogLevel::kDebug));
    const int32_t result = StartSockets();
    DeriveLocalDeviceId();
    if (OptionsOfProcess().discovery != 0) StartDiscovery();
    return result;
  });
}

// The pointers are not looked at. Deliberate.
int32_t libzel_version(uint32_t* major, uint32_t* minor, uint32_t* patch) {
  SetErrno(ZEL_OK);
  *major = kMajor;
  *minor = kMinor;
  *patch = kPatch;
  return ZEL_OK;
}

int32_t libzel_get_errno() { return GetErrno(); }

const char* libzel_strerror(int32_t code) { return ErrorCodeText(code); }

ZelInstance libzel_createInstance(const ZelDeviceId* device, uint32_t type) {
  return Guard(Always(ZelInstance{0}),
               [&] { return CreateInstance(device, type, kCreateTimeoutMs, nullptr, nullptr); });
}

ZelInstance libzel_createInstanceEx(const ZelDeviceId* device, uint32_t type, int32_t timeoutMs,
                                    ZelConnEventCallback callback, void* user) {
  return Guard(Always(ZelInstance{0}),
               [&] { return CreateInstance(device, type, std::max(timeoutMs, 100), callback, user); });
}

int32_t libzel_releaseInstance(ZelInstance instance) {
  (void)Guard(kTheCode, [&] {
    CPeerConnMgr::Instance().ReleaseInstance(instance);
    return ZEL_OK;
  });
  // In every case, also after a release. Deliberate.
  return Fail(kTheCode, ZEL_E_HANDLE);
}

int32_t libzel_destory() {
  return Guard(kTheCode, [] {
    const uint64_t lastFile =
        FileSender::Instance().CancelAll();  // first: the end of their links is not their reason
    CPeerConnMgr::Instance().ReleaseAll();
    FileSender::Instance().AwaitEnds(lastFile);
    StopSockets();
    return ZEL_OK;
  });
}

int32_t libzel_loop_start(ZelInstance instance) {
  return WithInstance(instance, kTheCode,
                      [](IZelPeerConnection& connection) { return connection.loop_start(); });
}

int32_t libzel_loop_stop(ZelInstance instance) {
  return WithInstance(instance, kTheCode,
                      [](IZelPeerConnection& connection) { return connection.loop_stop(); });
}

bool libzel_reconnect(ZelInstance instance, int32_t timeoutMs) {
  return WithInstance(instance, Always(false), [&](IZelPeerConnection& connection) {
    return connection.Reconnect(std::max(timeoutMs, 50));
  });
}

int32_t libzel_reconnect_delay_set(ZelInstance instance, uint32_t intervalSec) {
  return WithInstance(instance, kTheCode, [&](IZelPeerConnection& connection) {
    connection.SetReconnectDelay(intervalSec, true);
    return ZEL_OK;
  });
}

int32_t libzel_registerZelScanEvent(ZelScanEventCallback callback, void* user) {
  return Guard(kTheCode, [&] { return CZelScanClient::Instance().registerScanEvent(callback, user); });
}

int32_t libzel_startZelScan() {
  return Guard(kTheCode, [] { return CZelScanClient::Instance().startScan(); });
}

int32_t libzel_stopZelScan() {
  return Guard(kTheCode, [] { return CZelScanClient::Instance().stopScan(); });
}
