#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "platform/Platform.h"
#include "platform/posix/Descriptors.h"

namespace libzel::platform {

namespace {

int Fd(SocketHandle socket) { return static_cast<int>(socket); }

// The move is for an application that closes one of the standard streams at this very moment.
SocketHandle Open(int family, int type, int protocol) {
  const StandardDescriptorsTaken taken;
  return MoveAboveStandard(::socket(family, type | SOCK_CLOEXEC, protocol));
}

sockaddr_in Ipv4Address(const char* host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(host);
  address.sin_port = htons(port);
  return address;
}

ConnectResult FinishStart(int result) {
  if (result == 0) return ConnectResult::kConnected;
  return errno == EINPROGRESS || errno == EISCONN || errno == EALREADY ? ConnectResult::kInProgress
                                                                       : ConnectResult::kFailed;
}

// The first connect() after one that went on in the background succeeds, and only later ones say "is connected"; a
// caller must not see the difference.
bool HasPeer(SocketHandle socket) {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  return getpeername(Fd(socket), reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

// poll() that goes on with the remaining time after a signal.
int Poll(std::span<pollfd> watched, int64_t timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const int64_t wantedMs = std::max<int64_t>(timeoutMs, 0);
  const auto start = wantedMs > 0 ? Clock::now() : Clock::time_point{};
  int64_t remainingMs = wantedMs;
  for (;;) {
    const int slice = static_cast<int>(std::min<int64_t>(remainingMs, INT_MAX));
    const int result = poll(watched.data(), watched.size(), slice);
    if (result > 0 || (result < 0 && errno != EINTR)) return result;
    if (wantedMs == 0 && result == 0) return 0;
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    remainingMs = wantedMs == 0 ? 0 : std::max<int64_t>(wantedMs - elapsed, 0);
    if (result == 0 && remainingMs == 0) return 0;
  }
}

// poll() ignores an invalid handle; a wait must fail on it.
int CheckHandle(const pollfd& watched, int result) {
  if (result > 0 && (watched.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return -1;
  }
  return result;
}

int Wait(SocketHandle socket, short events, int64_t timeoutMs, const Waker* waker) {
  if (socket < 0) {
    errno = EBADF;
    return -1;
  }
  std::array<pollfd, 2> watched{pollfd{Fd(socket), events, 0}, pollfd{-1, POLLIN, 0}};
  if (waker != nullptr) watched[1].fd = Fd(waker->handle());
  const int result = CheckHandle(watched[0], Poll(watched, timeoutMs));
  if (result <= 0) return result;
  return watched[0].revents != 0 ? 1 : 0;
}

}  // namespace

int32_t StartSockets() { return 0; }
void StopSockets() {}

SocketHandle OpenStreamSocket() { return Open(AF_INET, SOCK_STREAM, 0); }
SocketHandle OpenDatagramSocket() { return Open(AF_INET, SOCK_DGRAM, IPPROTO_UDP); }
SocketHandle OpenLocalStreamSocket() { return Open(AF_UNIX, SOCK_STREAM, 0); }

void CloseSocket(SocketHandle socket) { (void)close(Fd(socket)); }
void ShutdownSocket(SocketHandle socket) { (void)shutdown(Fd(socket), SHUT_RDWR); }

bool SetNonBlocking(SocketHandle socket) {
  const int flags = fcntl(Fd(socket), F_GETFL);
  return flags >= 0 && fcntl(Fd(socket), F_SETFL, flags | O_NONBLOCK) == 0;
}

ConnectResult StartConnect(SocketHandle socket, const char* host, uint16_t port) {
  if (HasPeer(socket)) return ConnectResult::kInProgress;
  const sockaddr_in address = Ipv4Address(host, port);
  return FinishStart(connect(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

ConnectResult StartLocalConnect(SocketHandle socket, const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t length = std::strlen(path);
  if (length >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return ConnectResult::kFailed;
  }
  std::memcpy(address.sun_path, path, length);
  return FinishStart(connect(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

int32_t TakePendingError(SocketHandle socket) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(Fd(socket), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

Waker::~Waker() {
  if (IsOpen()) CloseSocket(handle_);
}

bool Waker::Open() {
  if (IsOpen()) return true;
  const StandardDescriptorsTaken taken;
  handle_ = MoveAboveStandard(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  return IsOpen();
}

void Waker::Wake() {
  const uint64_t one = 1;
  if (IsOpen()) (void)!write(Fd(handle_), &one, sizeof one);
}

void Waker::Drain() {
  uint64_t count = 0;
  if (IsOpen()) (void)!read(Fd(handle_), &count, sizeof count);
}

int WaitReadable(SocketHandle socket, int64_t timeoutMs, const Waker* waker) {
  return Wait(socket, POLLIN, timeoutMs, waker);
}

int WaitWritable(SocketHandle socket, int64_t timeoutMs, const Waker* waker) {
  return Wait(socket, POLLOUT, timeoutMs, waker);
}

int WaitReadableSet(std::span<const SocketHandle> sockets, std::span<bool> ready, int64_t timeoutMs) {
  std::array<pollfd, kMaxWatched> watched{};
  const size_t count = std::min(sockets.size(), watched.size());
  for (size_t i = 0; i < count; ++i) {
    if (sockets[i] < 0) {
      errno = EBADF;
      return -1;
    }
    watched[i] = pollfd{Fd(sockets[i]), POLLIN, 0};
  }
  int result = Poll(std::span(watched).first(count), timeoutMs);
  for (size_t i = 0; i < count; ++i) {
    result = CheckHandle(watched[i], result);
    ready[i] = watched[i].revents != 0;
  }
  return result;
}

int64_t Receive(SocketHandle socket, uint8_t* buffer, size_t size) {
  return recv(Fd(socket), buffer, size, 0);
}

bool HasPeerEnded(SocketHandle socket) {
  uint8_t byte = 0;
  const ssize_t seen = recv(Fd(socket), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return seen == 0 || (seen < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

int64_t Send(SocketHandle socket, std::span<const ConstBytes> pieces) {
  if (pieces.size() == 1) return send(Fd(socket), pieces[0].data(), pieces[0].size(), MSG_NOSIGNAL);
  std::array<iovec, kMaxPieces> vectors{};
  const size_t count = std::min(pieces.size(), vectors.size());
  for (size_t i = 0; i < count; ++i) {
    vectors[i] = iovec{const_cast<uint8_t*>(pieces[i].data()), pieces[i].size()};
  }
  msghdr message{};
  message.msg_iov = vectors.data();
  message.msg_iovlen = count;
  return sendmsg(Fd(socket), &message, MSG_NOSIGNAL);
}

int64_t UnsentBytes(SocketHandle socket) {
  int bytes = 0;
  return ioctl(Fd(socket), SIOCOUTQ, &bytes) == 0 ? bytes : -1;
}

void FinishSending(SocketHandle) {}
bool HasDelivered(SocketHandle socket) { return UnsentBytes(socket) <= 0; }

std::string HostText(const char* host) {
  const in_addr address = Ipv4Address(host, 0).sin_addr;
  char text[INET_ADDRSTRLEN] = "";
  return inet_ntop(AF_INET, &address, text, sizeof text) != nullptr ? text : "";
}

int64_t ReceiveDatagram(SocketHandle socket, uint8_t* buffer, size_t size, Endpoint* sender) {
  sockaddr_in address{};
  iovec vector{buffer, size};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof address;
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  const ssize_t received = recvmsg(Fd(socket), &message, 0);
  if (received < 0) return -1;
  if ((message.msg_flags & MSG_TRUNC) != 0) {
    errno = EMSGSIZE;
    return -1;
  }
  if (sender != nullptr) {
    char text[INET_ADDRSTRLEN] = "";
    sender->host = inet_ntop(AF_INET, &address.sin_addr, text, sizeof text) != nullptr ? text : "";
    sender->port = ntohs(address.sin_port);
  }
  return received;
}

int64_t SendDatagram(SocketHandle socket, const char* host, uint16_t port, ConstBytes datagram) {
  const sockaddr_in address = Ipv4Address(host, port);
  return sendto(Fd(socket), datagram.data(), datagram.size(), MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

bool Bind(SocketHandle socket, const char* ip, uint16_t port) {
  const sockaddr_in address = Ipv4Address(ip, port);
  return bind(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace libzel::platform
