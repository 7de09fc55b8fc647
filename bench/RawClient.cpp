#include "RawClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Support.h"

namespace bench {

RawClient::RawClient(const char* host) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(host);
  address.sin_port = htons(kServerPort);
  Require(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "raw connect");
  const int on = 1;
  (void)setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    (void)getsockopt(fd_, SOL_SOCKET, option, &bytes, &size);
    bytes *= 4;
    (void)setsockopt(fd_, SOL_SOCKET, option, &bytes, sizeof bytes);
  }
}

RawClient::~RawClient() { (void)close(fd_); }

void RawClient::Write(const std::vector<uint8_t>& frame) const {
  for (size_t sent = 0; sent < frame.size();) {
    const ssize_t count = send(fd_, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
    Require(count > 0, "raw send");
    sent += static_cast<size_t>(count);
  }
}

void RawClient::Read(uint8_t* buffer, size_t size) const {
  for (size_t got = 0; got < size;) {
    const ssize_t count = recv(fd_, buffer + got, size - got, MSG_WAITALL);
    Require(count > 0, "raw receive");
    got += static_cast<size_t>(count);
  }
}

size_t RawClient::ReadSome(uint8_t* buffer, size_t size) const {
  const ssize_t count = recv(fd_, buffer, size, 0);
  Require(count > 0, "raw receive");
  return static_cast<size_t>(count);
}

}  // namespace bench
