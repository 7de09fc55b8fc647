// The other end for tests of sockets: a TCP server on a free port of 127.0.0.1. Not for use by several
// threads at once.
#pragma once

#include <cstdint>

#include "platform/Platform.h"

namespace libzel::test {

// The port that the system gave to a socket, 0 when it has none.
uint16_t LocalPort(platform::SocketHandle socket);

class Listener {
 public:
  Listener();
  ~Listener() { Close(); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  uint16_t port() const { return port_; }
  // The next connection, the caller's to close, or kNoSocket when none comes within 5 s.
  platform::SocketHandle Accept();
  // From now on connections to the port are refused.
  void Close();

 private:
  platform::SocketHandle socket_;
  uint16_t port_ = 0;
};

// Closes a socket at the end of its scope.
class Owned {
 public:
  explicit Owned(platform::SocketHandle socket) : socket_(socket) {}
  ~Owned() { Close(); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

  operator platform::SocketHandle() const { return socket_; }
  void Close() {
    if (socket_ != platform::kNoSocket) platform::CloseSocket(socket_);
    socket_ = platform::kNoSocket;
  }

 private:
  platform::SocketHandle socket_;
};

}  // namespace libzel::test
