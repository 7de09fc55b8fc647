#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>

#include "platform/Platform.h"

namespace libzel::platform {

namespace {

template <typename T>
bool SetOption(SocketHandle socket, int level, int name, const T& value) {
  return setsockopt(static_cast<int>(socket), level, name, &value, sizeof value) == 0;
}

bool GetOption(SocketHandle socket, int level, int name, int32_t& value) {
  socklen_t size = sizeof value;
  return getsockopt(static_cast<int>(socket), level, name, &value, &size) == 0;
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

void RaiseReceiveBuffer(SocketHandle socket, int32_t bytes) {
  // The first needs a privilege and goes past the system's limit; the second is cut to that limit.
  if (!SetOption(socket, SOL_SOCKET, SO_RCVBUFFORCE, bytes)) (void)SetReceiveBuffer(socket, bytes);
}

bool SetLinger(SocketHandle socket, bool on, uint16_t seconds) {
  return SetOption(socket, SOL_SOCKET, SO_LINGER, linger{on ? 1 : 0, seconds});
}

bool SetKeepAlive(SocketHandle socket, bool on) {
  return SetOption<int>(socket, SOL_SOCKET, SO_KEEPALIVE, on ? 1 : 0);
}
bool SetKeepAliveIdle(SocketHandle socket, int32_t seconds) {
  return SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, seconds);
}
bool SetKeepAliveInterval(SocketHandle socket, int32_t seconds) {
  return SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, seconds);
}
bool SetKeepAliveCount(SocketHandle socket, int32_t probes) {
  return SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, probes);
}
bool SetDeadPeerTime(SocketHandle socket, int32_t timeMs) {
  if (!SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, timeMs)) return false;
  if (timeMs == 0) return true;
  return SetKeepAliveIdle(socket, std::max(timeMs / 2000, 1)) &&
         SetKeepAliveInterval(socket, std::max(timeMs / 6000, 1)) && SetKeepAliveCount(socket, 3);
}
bool SetNoDelay(SocketHandle socket, bool on) {
  return SetOption<int>(socket, IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

bool SetReuseAddress(SocketHandle socket, bool on) {
  return SetOption<int>(socket, SOL_SOCKET, SO_REUSEADDR, on ? 1 : 0);
}
bool SetBroadcast(SocketHandle socket, bool on) {
  return SetOption<int>(socket, SOL_SOCKET, SO_BROADCAST, on ? 1 : 0);
}
bool SetMulticastTtl(SocketHandle socket, int32_t hops) {
  return SetOption(socket, IPPROTO_IP, IP_MULTICAST_TTL, hops);
}
bool SetMulticastLoop(SocketHandle socket, bool on) {
  return SetOption<uint8_t>(socket, IPPROTO_IP, IP_MULTICAST_LOOP, on ? 1 : 0);
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
