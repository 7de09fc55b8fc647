#include "support/TestSocket.h"

#include <stdexcept>
#include <utility>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace zeltest {

namespace {

#ifdef _WIN32
using Handle = SOCKET;
using PollEntry = WSAPOLLFD;
constexpr int kSendFlags = 0;
constexpr int kEndSending = SD_SEND;

Handle Of(intptr_t handle) { return static_cast<SOCKET>(handle); }
void CloseHandleOf(intptr_t handle) { (void)closesocket(Of(handle)); }
int PollOne(PollEntry& entry, int timeoutMs) { return WSAPoll(&entry, 1, timeoutMs); }

void StartSockets() {
  static const int started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (started != 0) throw std::runtime_error("no sockets");
}
#else
using Handle = int;
using PollEntry = pollfd;
constexpr int kSendFlags = MSG_NOSIGNAL;
constexpr int kEndSending = SHUT_WR;

Handle Of(intptr_t handle) { return static_cast<int>(handle); }
void CloseHandleOf(intptr_t handle) { (void)close(Of(handle)); }
int PollOne(PollEntry& entry, int timeoutMs) { return poll(&entry, 1, timeoutMs); }
void StartSockets() {}
#endif

sockaddr_in AddressOf(const std::string& host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(host.c_str());
  address.sin_port = htons(port);
  return address;
}

template <typename T>
void SetOption(intptr_t handle, int level, int name, const T& value) {
  (void)setsockopt(Of(handle), level, name, reinterpret_cast<const char*>(&value), sizeof value);
}

intptr_t OpenStream() {
  StartSockets();
  const auto handle = static_cast<intptr_t>(socket(AF_INET, SOCK_STREAM, 0));
  if (handle == -1) throw std::runtime_error("no socket");
  return handle;
}

}  // namespace

TestSocket& TestSocket::operator=(TestSocket&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = std::exchange(other.handle_, kNone);
  }
  return *this;
}

TestSocket TestSocket::Listen(const std::string& host, uint16_t port, int backlog) {
  TestSocket listener(OpenStream());
  SetOption<int>(listener.handle_, SOL_SOCKET, SO_REUSEADDR, 1);
  const sockaddr_in address = AddressOf(host, port);
  if (bind(Of(listener.handle_), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(Of(listener.handle_), backlog) != 0) {
    throw std::runtime_error("cannot listen on " + host);
  }
  return listener;
}

TestSocket TestSocket::Connect(const std::string& host, uint16_t port, int timeoutMs) {
  TestSocket client(OpenStream());
#ifdef _WIN32
  u_long nonBlocking = 1;
  (void)ioctlsocket(Of(client.handle_), static_cast<long>(FIONBIO), &nonBlocking);
#else
  (void)fcntl(Of(client.handle_), F_SETFL, O_NONBLOCK);
#endif
  const sockaddr_in address = AddressOf(host, port);
  (void)connect(Of(client.handle_), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  PollEntry entry{Of(client.handle_), POLLOUT, 0};
  if (PollOne(entry, timeoutMs) != 1 || (entry.revents & (POLLERR | POLLHUP)) != 0) client.Close();
  return client;
}

bool TestSocket::WaitReadable(int timeoutMs) const {
  PollEntry entry{Of(handle_), POLLIN, 0};
  return PollOne(entry, timeoutMs) == 1;
}

TestSocket TestSocket::Accept(int timeoutMs) const {
  if (!IsOpen() || !WaitReadable(timeoutMs)) return {};
  return TestSocket(static_cast<intptr_t>(accept(Of(handle_), nullptr, nullptr)));
}

int TestSocket::Receive(uint8_t* buffer, int size) const {
  return static_cast<int>(recv(Of(handle_), reinterpret_cast<char*>(buffer), static_cast<unsigned>(size), 0));
}

bool TestSocket::Send(const uint8_t* data, size_t size) const {
  while (size > 0) {
    const int chunk = static_cast<int>(size < 65536 ? size : 65536);
    const auto sent =
        send(Of(handle_), reinterpret_cast<const char*>(data), static_cast<unsigned>(chunk), kSendFlags);
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

void TestSocket::SetNoDelay() const { SetOption<int>(handle_, IPPROTO_TCP, TCP_NODELAY, 1); }
void TestSocket::SetReceiveBuffer(int bytes) const { SetOption(handle_, SOL_SOCKET, SO_RCVBUF, bytes); }
void TestSocket::EndSending() const { (void)shutdown(Of(handle_), kEndSending); }

void TestSocket::Close() {
  if (IsOpen()) CloseHandleOf(std::exchange(handle_, kNone));
}

void TestSocket::Reset() {
  linger abort{};
  abort.l_onoff = 1;
  SetOption(handle_, SOL_SOCKET, SO_LINGER, abort);
  Close();
}

}  // namespace zeltest
