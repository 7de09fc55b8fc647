#include "PlainServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

#include "Support.h"

namespace bench {

namespace {

int Listen(const char* host) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(host);
  address.sin_port = htons(kServerPort);
  Require(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
  Require(listen(fd, SOMAXCONN) == 0, "listen");
  return fd;
}

bool SendAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

// Turns a request into its answer, in place: the address block goes, headers move up to the payload.
bool Answer(int fd, uint8_t* frame, size_t size) {
  if (frame[2] == kTopicPort && frame[3] == 0) return true;
  std::memmove(frame + kAddressSize, frame, kOuterSize + kInnerSize);
  uint8_t* answer = frame + kAddressSize;
  const auto length = static_cast<uint32_t>(size - kOuterSize - kAddressSize);
  for (size_t i = 0; i < 4; ++i) answer[4 + i] = static_cast<uint8_t>(length >> (8 * i));
  return SendAll(fd, answer, size - kAddressSize);
}

void Serve(int fd) {
  const int on = 1;
  (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  std::vector<uint8_t> buffer(4 * 1024);
  size_t filled = 0;
  for (;;) {
    if (filled == buffer.size()) buffer.resize(buffer.size() * 2);
    const ssize_t count = recv(fd, buffer.data() + filled, buffer.size() - filled, 0);
    if (count <= 0) break;
    filled += static_cast<size_t>(count);
    size_t at = 0;
    while (filled - at >= kOuterSize) {
      const size_t size = kOuterSize + ReadLe32(buffer.data() + at + 4);
      if (filled - at < size) {
        if (size > buffer.size()) buffer.resize(size);
        break;
      }
      if (!Answer(fd, buffer.data() + at, size)) break;
      at += size;
    }
    std::memmove(buffer.data(), buffer.data() + at, filled - at);
    filled -= at;
  }
  (void)close(fd);
}

[[noreturn]] void Run(int listener) {
  for (;;) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) _exit(1);
    std::thread(Serve, client).detach();
  }
}

}  // namespace

PlainServer::PlainServer(const char* host) {
  const int listener = Listen(host);
  pid_ = fork();
  Require(pid_ >= 0, "fork");
  if (pid_ == 0) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    Run(listener);
  }
  (void)close(listener);
}

PlainServer::~PlainServer() {
  (void)kill(pid_, SIGKILL);
  (void)waitpid(pid_, nullptr, 0);
}

}  // namespace bench
