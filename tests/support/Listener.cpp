#include "support/Listener.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
using Native = SOCKET;
#else
#include <netinet/in.h>
#include <sys/socket.h>
using Native = int;
#endif

#include <utility>

namespace libzel::test {

uint16_t LocalPort(platform::SocketHandle socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(static_cast<Native>(socket), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin_port);
}

Listener::Listener() : socket_(platform::OpenStreamSocket()) {
  if (platform::Bind(socket_, "127.0.0.1", 0) && listen(static_cast<Native>(socket_), 16) == 0) {
    port_ = LocalPort(socket_);
  }
}

platform::SocketHandle Listener::Accept() {
  if (platform::WaitReadable(socket_, 5000) != 1) return platform::kNoSocket;
  return static_cast<platform::SocketHandle>(accept(static_cast<Native>(socket_), nullptr, nullptr));
}

void Listener::Close() {
  if (socket_ != platform::kNoSocket) platform::CloseSocket(socket_);
  socket_ = platform::kNoSocket;
}

}  // namespace libzel::test
