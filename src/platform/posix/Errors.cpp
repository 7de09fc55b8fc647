#include <cerrno>
#include <cstring>

#include "platform/Platform.h"

namespace libzel::platform {

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

}  // namespace libzel::platform
