#include <cerrno>
#include <cstring>

#include "platform/Platform.h"

namespace libzel::platform {

int32_t SystemError() { return errno; }
void SetSystemError(int32_t error) { errno = error; }

int32_t SocketError() {
  switch (errno) {
    case EINTR: return kSocketInterrupted;
    case EAGAIN: return kSocketWouldBlock;
    case EBADF:
    case ENOTSOCK: return kSocketNotASocket;
    case EMSGSIZE: return kSocketMessageTooLong;
    case ECONNABORTED: return kSocketAborted;
    case ECONNRESET: return kSocketReset;
    case ENOTCONN: return kSocketNotConnected;
    case EPIPE:
    case ESHUTDOWN: return kSocketShutDown;
    default: return errno;
  }
}

int32_t RuntimeError() { return errno; }

bool IsRouteMissing() { return errno == ENODEV || errno == ENETUNREACH; }

std::string ErrorText(int32_t runtimeError) {
  char text[256];
  return strerror_r(runtimeError, text, sizeof text);
}

std::string ReasonText(int32_t runtimeError) {
  switch (runtimeError) {
    case ECONNREFUSED: return "refused";
    case ENETUNREACH:
    case EHOSTUNREACH: return "no route";
    case ETIMEDOUT: return "timed out";
    case EPIPE:
    case ECONNABORTED:
    case ECONNRESET: return "reset";
    default: return ErrorText(runtimeError);
  }
}

}  // namespace libzel::platform
