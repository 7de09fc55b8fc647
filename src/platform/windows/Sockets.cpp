#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>

#include "platform/Platform.h"
#include "platform/windows/RuntimeNumber.h"

namespace libzel::platform {

namespace {

static_assert(kMaxWatched <= FD_SETSIZE);

SOCKET Handle(SocketHandle socket) { return static_cast<SOCKET>(socket); }

int Cut(size_t size) { return static_cast<int>(std::min<size_t>(size, INT_MAX)); }

SocketHandle Open(int type, int protocol) {
  return static_cast<SocketHandle>(
      WSASocketW(AF_INET, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
}

// Without this a datagram that nobody wanted fails a later, unrelated receive.
void IgnoreUnreachablePeers(SocketHandle socket) {
  constexpr DWORD kUdpConnectionReset = IOC_IN | IOC_VENDOR | 12;
  BOOL report = FALSE;
  DWORD unused = 0;
  (void)WSAIoctl(Handle(socket), kUdpConnectionReset, &report, sizeof report, nullptr, 0, &unused, nullptr,
                 nullptr);
}

sockaddr_in Ipv4Address(const char* host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(host);
  address.sin_port = htons(port);
  return address;
}

// One select(); the time that remains may be longer than it can take at once.
int Select(fd_set* readable, fd_set* writable, fd_set* failed, int64_t timeoutMs) {
  const int64_t slice = std::min<int64_t>(timeoutMs, INT_MAX);
  timeval time{static_cast<long>(slice / 1000), static_cast<long>(slice % 1000 * 1000)};
  return select(0, readable, writable, failed, &time);
}

struct Watched {
  fd_set readable{};
  fd_set writable{};
  fd_set failed{};
};

fd_set* OrNull(fd_set& set) { return set.fd_count > 0 ? &set : nullptr; }

// select() that goes on with the remaining time after an interruption.
int Wait(Watched& watched, int64_t timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const int64_t wantedMs = std::max<int64_t>(timeoutMs, 0);
  const auto start = wantedMs > 0 ? Clock::now() : Clock::time_point{};
  const Watched wanted = watched;
  for (int64_t remainingMs = wantedMs;;) {
    const int result =
        Select(OrNull(watched.readable), OrNull(watched.writable), OrNull(watched.failed), remainingMs);
    if (result > 0 || (result < 0 && WSAGetLastError() != WSAEINTR)) return result;
    if (wantedMs == 0 && result == 0) return 0;
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    remainingMs = wantedMs == 0 ? 0 : std::max<int64_t>(wantedMs - elapsed, 0);
    if (result == 0 && remainingMs == 0) return 0;
    watched = wanted;
  }
}

bool Contains(const fd_set& set, SocketHandle socket) {
  const SOCKET* const end = set.fd_array + set.fd_count;
  return std::find(set.fd_array, end, Handle(socket)) != end;
}

void Add(fd_set& set, SocketHandle socket) { set.fd_array[set.fd_count++] = Handle(socket); }

// The result of a wait on one socket. One that ShutdownSocket ended counts as ready: the connection is over.
int OnOne(int result) {
  if (result < 0 && WSAGetLastError() == WSA_OPERATION_ABORTED) return 1;
  return std::min(result, 1);
}

int RefuseNoSocket() {
  WSASetLastError(WSAENOTSOCK);
  return -1;
}

}  // namespace

int32_t StartSockets() {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data);
}
void StopSockets() { (void)WSACleanup(); }

SocketHandle OpenStreamSocket() { return Open(SOCK_STREAM, IPPROTO_TCP); }

SocketHandle OpenDatagramSocket() {
  const SocketHandle socket = Open(SOCK_DGRAM, IPPROTO_UDP);
  if (socket != kNoSocket) IgnoreUnreachablePeers(socket);
  return socket;
}

SocketHandle OpenLocalStreamSocket() {
  WSASetLastError(WSAEAFNOSUPPORT);
  return kNoSocket;
}

void CloseSocket(SocketHandle socket) { (void)closesocket(Handle(socket)); }

// A select() that waits does not notice a shutdown from its own side, so it is cancelled. One that starts afterwards
// lasts its time.
void ShutdownSocket(SocketHandle socket) {
  (void)shutdown(Handle(socket), SD_BOTH);
  (void)CancelIoEx(reinterpret_cast<HANDLE>(socket), nullptr);
}

bool SetNonBlocking(SocketHandle socket) {
  u_long on = 1;
  return ioctlsocket(Handle(socket), static_cast<long>(FIONBIO), &on) == 0;
}

ConnectResult StartConnect(SocketHandle socket, const char* host, uint16_t port) {
  const sockaddr_in address = Ipv4Address(host, port);
  if (connect(Handle(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return ConnectResult::kConnected;
  }
  switch (WSAGetLastError()) {
    case WSAEWOULDBLOCK:
    case WSAEINPROGRESS:
    case WSAEALREADY:
    case WSAEISCONN: return ConnectResult::kInProgress;
    default: return ConnectResult::kFailed;
  }
}

ConnectResult StartLocalConnect(SocketHandle, const char*) {
  WSASetLastError(WSAEAFNOSUPPORT);
  return ConnectResult::kFailed;
}

int32_t TakePendingError(SocketHandle socket) {
  int error = 0;
  int size = sizeof error;
  const bool known =
      getsockopt(Handle(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) == 0;
  return RuntimeNumber(known ? error : WSAGetLastError());
}

Waker::~Waker() {
  if (IsOpen()) CloseSocket(handle_);
}

// A datagram socket that is its own and only peer.
bool Waker::Open() {
  if (IsOpen()) return true;
  const SocketHandle socket = OpenDatagramSocket();
  if (socket == kNoSocket) return false;
  sockaddr_in self{};
  int size = sizeof self;
  auto* const address = reinterpret_cast<sockaddr*>(&self);
  if (!Bind(socket, "127.0.0.1", 0) || getsockname(Handle(socket), address, &size) != 0 ||
      connect(Handle(socket), address, size) != 0 || !SetNonBlocking(socket)) {
    CloseSocket(socket);
    return false;
  }
  handle_ = socket;
  return true;
}

void Waker::Wake() {
  const char one = 1;
  if (IsOpen()) (void)send(Handle(handle_), &one, sizeof one, 0);
}

void Waker::Drain() {
  char byte = 0;
  while (IsOpen() && recv(Handle(handle_), &byte, sizeof byte, 0) > 0) {
  }
}

int WaitReadable(SocketHandle socket, int64_t timeoutMs, const Waker* waker) {
  if (socket == kNoSocket) return RefuseNoSocket();
  Watched watched;
  Add(watched.readable, socket);
  if (waker != nullptr && waker->IsOpen()) Add(watched.readable, waker->handle());
  const int result = Wait(watched, timeoutMs);
  if (result <= 0) return OnOne(result);
  return Contains(watched.readable, socket) ? 1 : 0;
}

int WaitWritable(SocketHandle socket, int64_t timeoutMs, const Waker* waker) {
  if (socket == kNoSocket) return RefuseNoSocket();
  Watched watched;
  Add(watched.writable, socket);
  // A refused connect shows here and never as writable.
  Add(watched.failed, socket);
  if (waker != nullptr && waker->IsOpen()) Add(watched.readable, waker->handle());
  const int result = Wait(watched, timeoutMs);
  if (result <= 0) return OnOne(result);
  return Contains(watched.writable, socket) || Contains(watched.failed, socket) ? 1 : 0;
}

int WaitReadableSet(std::span<const SocketHandle> sockets, std::span<bool> ready, int64_t timeoutMs) {
  const auto some = sockets.first(std::min(sockets.size(), kMaxWatched));
  Watched watched;
  for (const SocketHandle socket : some) {
    if (socket == kNoSocket) return RefuseNoSocket();
    Add(watched.readable, socket);
  }
  const int result = Wait(watched, timeoutMs);
  for (size_t i = 0; i < some.size(); ++i) ready[i] = result > 0 && Contains(watched.readable, some[i]);
  return result;
}

int64_t Receive(SocketHandle socket, uint8_t* buffer, size_t size) {
  const int received = recv(Handle(socket), reinterpret_cast<char*>(buffer), Cut(size), 0);
  // After a shutdown from this side there is nothing to receive, which elsewhere is no error.
  return received < 0 && WSAGetLastError() == WSAESHUTDOWN ? 0 : received;
}

bool HasPeerEnded(SocketHandle socket) {
  char byte = 0;
  const int seen = recv(Handle(socket), &byte, 1, MSG_PEEK);
  return seen == 0 || (seen < 0 && WSAGetLastError() != WSAEWOULDBLOCK);
}

int64_t Send(SocketHandle socket, std::span<const ConstBytes> pieces) {
  std::array<WSABUF, kMaxPieces> buffers{};
  const size_t count = std::min(pieces.size(), buffers.size());
  for (size_t i = 0; i < count; ++i) {
    const auto* const data = reinterpret_cast<const char*>(pieces[i].data());
    buffers[i] = WSABUF{static_cast<ULONG>(Cut(pieces[i].size())), const_cast<char*>(data)};
  }
  DWORD sent = 0;
  const int result =
      WSASend(Handle(socket), buffers.data(), static_cast<DWORD>(count), &sent, 0, nullptr, nullptr);
  return result == 0 ? static_cast<int64_t>(sent) : -1;
}

int64_t UnsentBytes(SocketHandle) { return -1; }
void FinishSending(SocketHandle socket) { (void)shutdown(Handle(socket), SD_SEND); }
bool HasDelivered(SocketHandle socket) { return HasPeerEnded(socket); }

std::string HostText(const char* host) {
  const in_addr address = Ipv4Address(host, 0).sin_addr;
  char text[INET_ADDRSTRLEN] = "";
  return inet_ntop(AF_INET, &address, text, sizeof text) != nullptr ? text : "";
}

int64_t ReceiveDatagram(SocketHandle socket, uint8_t* buffer, size_t size, Endpoint* sender) {
  sockaddr_in address{};
  int addressSize = sizeof address;
  const int received = recvfrom(Handle(socket), reinterpret_cast<char*>(buffer), Cut(size), 0,
                                reinterpret_cast<sockaddr*>(&address), &addressSize);
  if (received >= 0 && sender != nullptr) {
    char text[INET_ADDRSTRLEN] = "";
    sender->host = inet_ntop(AF_INET, &address.sin_addr, text, sizeof text) != nullptr ? text : "";
    sender->port = ntohs(address.sin_port);
  }
  return received;
}

int64_t SendDatagram(SocketHandle socket, const char* host, uint16_t port, ConstBytes datagram) {
  const sockaddr_in address = Ipv4Address(host, port);
  return sendto(Handle(socket), reinterpret_cast<const char*>(datagram.data()), Cut(datagram.size()), 0,
                reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

bool Bind(SocketHandle socket, const char* ip, uint16_t port) {
  const sockaddr_in address = Ipv4Address(ip, port);
  return bind(Handle(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace libzel::platform
