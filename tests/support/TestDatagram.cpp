#include "support/TestDatagram.h"

#include <stdexcept>

#include "support/Recorders.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace zeltest {

namespace {

constexpr size_t kLargest = 65536;

#ifdef _WIN32
using Handle = SOCKET;
using PollEntry = WSAPOLLFD;
void CloseHandleOf(Handle handle) { (void)closesocket(handle); }
int PollOne(PollEntry& entry, int timeoutMs) { return WSAPoll(&entry, 1, timeoutMs); }
void StartSockets() {
  WSADATA data;
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) throw std::runtime_error("no sockets");
}
#else
using Handle = int;
using PollEntry = pollfd;
void CloseHandleOf(Handle handle) { (void)close(handle); }
int PollOne(PollEntry& entry, int timeoutMs) { return poll(&entry, 1, timeoutMs); }
void StartSockets() {}
#endif

Handle Of(intptr_t handle) { return static_cast<Handle>(handle); }

sockaddr_in AddressOf(const std::string& host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(host.c_str());
  address.sin_port = htons(port);
  return address;
}

}  // namespace

TestDatagram::TestDatagram(const std::string& host, uint16_t port, int patienceMs) {
  StartSockets();
  handle_ = static_cast<intptr_t>(socket(AF_INET, SOCK_DGRAM, 0));
  const sockaddr_in address = AddressOf(host, port);
  const auto isBound = [&] {
    return bind(Of(handle_), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  };
  if (handle_ == -1 || !Eventually(isBound, port != 0 ? patienceMs : 0)) {
    if (handle_ != -1) CloseHandleOf(Of(handle_));
    throw std::runtime_error("no datagram socket on " + host);
  }
}

TestDatagram::~TestDatagram() { CloseHandleOf(Of(handle_)); }

uint16_t TestDatagram::port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(Of(handle_), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin_port);
}

bool TestDatagram::Send(const std::string& host, uint16_t port, const Bytes& bytes) const {
  const sockaddr_in address = AddressOf(host, port);
  const auto sent =
      sendto(Of(handle_), reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned>(bytes.size()), 0,
             reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return sent >= 0 && static_cast<size_t>(sent) == bytes.size();
}

std::optional<Datagram> TestDatagram::Receive(int timeoutMs) const {
  PollEntry entry{Of(handle_), POLLIN, 0};
  if (PollOne(entry, timeoutMs) != 1) return std::nullopt;
  Datagram datagram{Bytes(kLargest), "", 0};
  sockaddr_in sender{};
  socklen_t size = sizeof sender;
  const auto got =
      recvfrom(Of(handle_), reinterpret_cast<char*>(datagram.bytes.data()),
               static_cast<unsigned>(datagram.bytes.size()), 0, reinterpret_cast<sockaddr*>(&sender), &size);
  if (got < 0) return std::nullopt;
  datagram.bytes.resize(static_cast<size_t>(got));
  const auto* octets = reinterpret_cast<const uint8_t*>(&sender.sin_addr);
  for (int i = 0; i < 4; ++i) {
    if (i != 0) datagram.host += '.';
    datagram.host += std::to_string(octets[i]);
  }
  datagram.port = ntohs(sender.sin_port);
  return datagram;
}

}  // namespace zeltest
