#include <winsock2.h>

#include <cstring>

#include "platform/Platform.h"
#include "platform/windows/RuntimeNumber.h"

namespace libzel::platform {

int32_t RuntimeNumber(int socketError) {
  constexpr int32_t kBadDescriptor = 9;
  switch (socketError) {
    case WSAEINTR: return kRuntimeInterrupted;
    case WSAEWOULDBLOCK: return kRuntimeTryAgain;
    case WSAESHUTDOWN: return kRuntimeBrokenPipe;
    case WSAENOTSOCK: return kBadDescriptor;
    default: return socketError;
  }
}

int32_t SystemError() { return WSAGetLastError(); }
void SetSystemError(int32_t error) { WSASetLastError(error); }

int32_t SocketError() { return WSAGetLastError(); }

int32_t RuntimeError() { return RuntimeNumber(WSAGetLastError()); }

// A join tells it by the first two, or by the third under Wine.
bool IsRouteMissing() {
  const int error = WSAGetLastError();
  return error == WSAENETUNREACH || error == WSAEADDRNOTAVAIL || error == WSAEINVAL;
}

// NOLINTNEXTLINE(concurrency-mt-unsafe): this runtime keeps the text per thread
std::string ErrorText(int32_t runtimeError) { return std::strerror(runtimeError); }

std::string ReasonText(int32_t runtimeError) {
  switch (runtimeError) {
    case WSAECONNREFUSED: return "refused";
    case WSAENETUNREACH:
    case WSAEHOSTUNREACH: return "no route";
    case WSAETIMEDOUT: return "timed out";
    case kRuntimeBrokenPipe:
    case WSAECONNABORTED:
    case WSAECONNRESET: return "reset";
    default: return ErrorText(runtimeError);
  }
}

}  // namespace libzel::platform
