#include "zelclient/FileLink.h"

#include <algorithm>
#include <chrono>

#include "utils/Options.h"
#include "utils/Stopwatch.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelclient/ZelTcpclient.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

namespace {

constexpr int64_t kMessageTimeoutMs = 1000;
constexpr std::chrono::milliseconds kEarly{20};  // that a wait may end before its time

std::shared_ptr<CTcpclient> LiveClient(const std::weak_ptr<IZelPeerConnection>& connection) {
  return std::static_pointer_cast<CTcpclient>(CPeerConnMgr::IfLive(connection));  // there are no others
}

uint32_t TimeoutBefore(FileLink::TimePoint end) {
  return static_cast<uint32_t>(std::clamp<int64_t>(MsUntil(end), 0, kMessageTimeoutMs));
}

}  // namespace

FileLink::TimePoint FileLink::EndFromNow() {
  const int64_t totalMs = OptionsOfProcess().fileTotalMs;
  return totalMs == 0 ? SocketLink::kNoEnd : CondVar::Clock::now() + std::chrono::milliseconds(totalMs);
}

bool FileLink::IsOver(TimePoint end) {
  return end != SocketLink::kNoEnd && CondVar::Clock::now() + kEarly >= end;
}

bool FileLink::Exchange(std::span<const uint8_t> message, FileAnswerBuffer& answer, TimePoint end) {
  return Send(message, end) > 0 && Receive(answer, end) > 0;
}

// Each call is made as an application's would be: with the error number cleared, on a live instance.
int32_t FileLink::Send(std::span<const uint8_t> message, TimePoint end) const {
  SetErrno(ZEL_OK);
  if (const auto client = LiveClient(connection_))
    return client->SendBefore(port_, kFileAddress, message, TimeoutBefore(end), end);
  SetErrno(ZEL_E_HANDLE);
  return -1;
}

int32_t FileLink::Receive(FileAnswerBuffer& answer, TimePoint end) const {
  SetErrno(ZEL_OK);
  if (const auto client = LiveClient(connection_))
    return client->Recv(nullptr, answer.data(), static_cast<uint32_t>(answer.size()), TimeoutBefore(end));
  SetErrno(ZEL_E_HANDLE);
  return -1;
}

}  // namespace libzel
