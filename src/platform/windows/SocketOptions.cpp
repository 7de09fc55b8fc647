#include <winsock2.h>
#include <ws2tcpip.h>
// Only after the sockets' own header.
#include <mstcpip.h>

#include <algorithm>

#include "platform/Platform.h"

namespace libzel::platform {

namespace {

// The system's numbers of the keep-alive options, which not every header has.
constexpr int kKeepIdle = 3;
constexpr int kKeepCount = 16;
constexpr int kKeepInterval = 17;
constexpr int kMostRetransmissionSec = 5;
constexpr DWORD kSystemsOwn = 0;

SOCKET Handle(SocketHandle socket) { return static_cast<SOCKET>(socket); }

template <typename T>
bool SetOption(SocketHandle socket, int level, int name, const T& value) {
  return setsockopt(Handle(socket), level, name, reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

bool GetOption(SocketHandle socket, int level, int name, int32_t& value) {
  int size = sizeof value;
  return getsockopt(Handle(socket), level, name, reinterpret_cast<char*>(&value), &size) == 0;
}

bool SetSwitch(SocketHandle socket, int level, int name, bool on) {
  return SetOption<DWORD>(socket, level, name, on ? 1 : 0);
}

}  // namespace

bool GetSendBuffer(SocketHandle socket, int32_t& bytes) {
  return GetOption(socket, SOL_SOCKET, SO_SNDBUF, bytes);
}
bool GetReceiveBuffer(SocketHandle socket, int32_t& bytes) {
  return GetOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}
bool SetSendBuffer(SocketHandle socket, int32_t bytes) {
  return SetOption(socket, SOL_SOCKET, SO_SNDBUF, bytes);
}
bool SetReceiveBuffer(SocketHandle socket, int32_t bytes) {
  return SetOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}
void RaiseReceiveBuffer(SocketHandle socket, int32_t bytes) { (void)SetReceiveBuffer(socket, bytes); }

bool SetLinger(SocketHandle socket, bool on, uint16_t seconds) {
  const linger value{static_cast<u_short>(on ? 1 : 0), seconds};
  return SetOption(socket, SOL_SOCKET, SO_LINGER, value);
}

bool SetKeepAlive(SocketHandle socket, bool on) { return SetSwitch(socket, SOL_SOCKET, SO_KEEPALIVE, on); }
bool SetKeepAliveIdle(SocketHandle socket, int32_t seconds) {
  return SetOption(socket, IPPROTO_TCP, kKeepIdle, seconds);
}
bool SetKeepAliveInterval(SocketHandle socket, int32_t seconds) {
  return SetOption(socket, IPPROTO_TCP, kKeepInterval, seconds);
}
bool SetKeepAliveCount(SocketHandle socket, int32_t probes) {
  return SetOption(socket, IPPROTO_TCP, kKeepCount, probes);
}
// Probes are asked for by the call that every Windows has; it sends ten before it gives up. How long data may be under way
// only newer ones can be told, in seconds.
bool SetDeadPeerTime(SocketHandle socket, int32_t timeMs) {
  (void)SetOption<DWORD>(socket, IPPROTO_TCP, kMostRetransmissionSec,
                         timeMs == 0 ? kSystemsOwn : static_cast<DWORD>(std::max(timeMs / 1000, 1)));
  if (timeMs == 0) return true;
  const auto time = static_cast<ULONG>(timeMs);
  tcp_keepalive probes{1, std::max<ULONG>(time / 2, 1), std::max<ULONG>(time / 20, 1)};
  DWORD unused = 0;
  return WSAIoctl(Handle(socket), SIO_KEEPALIVE_VALS, &probes, sizeof probes, nullptr, 0, &unused, nullptr,
                  nullptr) == 0;
}
bool SetNoDelay(SocketHandle socket, bool on) { return SetSwitch(socket, IPPROTO_TCP, TCP_NODELAY, on); }

bool SetReuseAddress(SocketHandle socket, bool on) { return SetSwitch(socket, SOL_SOCKET, SO_REUSEADDR, on); }
bool SetBroadcast(SocketHandle socket, bool on) { return SetSwitch(socket, SOL_SOCKET, SO_BROADCAST, on); }
bool SetMulticastTtl(SocketHandle socket, int32_t hops) {
  return SetOption(socket, IPPROTO_IP, IP_MULTICAST_TTL, hops);
}
bool SetMulticastLoop(SocketHandle socket, bool on) {
  return SetSwitch(socket, IPPROTO_IP, IP_MULTICAST_LOOP, on);
}

bool SetMulticastInterface(SocketHandle socket, const char* interfaceIp) {
  in_addr interfaceAddress{};
  interfaceAddress.s_addr = inet_addr(interfaceIp);
  return SetOption(socket, IPPROTO_IP, IP_MULTICAST_IF, interfaceAddress);
}

bool JoinMulticastGroup(SocketHandle socket, const char* group, const char* interfaceIp) {
  ip_mreq request{};
  request.imr_multiaddr.s_addr = inet_addr(group);
  request.imr_interface.s_addr = inet_addr(interfaceIp);
  return SetOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, request);
}

}  // namespace libzel::platform
