#include "DatagramSocket.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <system_error>

namespace zelsim {
namespace {

using asio::ip::address_v4;
using asio::ip::udp;

constexpr size_t kReceiveBuffer = 65536;
// Datagrams taken before other sockets get their turn.
constexpr int kReceivesPerTurn = 64;
// Room for the requests to a whole fleet; the system gives what it allows.
constexpr int kSocketBuffer = 4 * 1024 * 1024;
constexpr size_t kMostWaiting = 100'000;

address_v4 FromSystem(const in_addr& address) { return address_v4(ntohl(address.s_addr)); }

in_addr ToSystem(const address_v4& address) { return {.s_addr = htonl(address.to_uint())}; }

sockaddr_in ToSystem(const udp::endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port());
  address.sin_addr = ToSystem(endpoint.address().to_v4());
  return address;
}

void ReadControl(msghdr& message, Datagram& datagram, uint16_t localPort) {
  for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr; item = CMSG_NXTHDR(&message, item)) {
    if (item->cmsg_level != IPPROTO_IP) continue;
    if (item->cmsg_type == IP_PKTINFO) {
      in_pktinfo info{};
      std::memcpy(&info, CMSG_DATA(item), sizeof info);
      datagram.to = udp::endpoint(FromSystem(info.ipi_addr), localPort);
      datagram.local = FromSystem(info.ipi_spec_dst);
    } else if (item->cmsg_type == IP_TTL) {
      std::memcpy(&datagram.ttl, CMSG_DATA(item), sizeof datagram.ttl);
    }
  }
}

bool SetOption(int descriptor, int level, int option, int value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

}  // namespace

DatagramSocket::DatagramSocket(asio::io_context& loop) : socket_(loop), buffer_(kReceiveBuffer) {}

std::string DatagramSocket::Open(const udp::endpoint& local, Sharing sharing) {
  asio::error_code error;
  socket_.open(udp::v4(), error);
  if (error) return error.message();
  const int descriptor = socket_.native_handle();
  SetOption(descriptor, SOL_SOCKET, SO_RCVBUF, kSocketBuffer);
  SetOption(descriptor, SOL_SOCKET, SO_SNDBUF, kSocketBuffer);
  // A group's datagrams come in only where this very socket has joined it.
  SetOption(descriptor, IPPROTO_IP, IP_MULTICAST_ALL, 0);
  const bool told =
      SetOption(descriptor, IPPROTO_IP, IP_PKTINFO, 1) && SetOption(descriptor, IPPROTO_IP, IP_RECVTTL, 1);
  if (!told) return std::generic_category().message(errno);
  if (sharing == Sharing::kShared) socket_.set_option(asio::socket_base::reuse_address(true), error);
  if (!error) socket_.bind(local, error);
  if (!error) socket_.native_non_blocking(true, error);
  return error ? error.message() : std::string();
}

std::string DatagramSocket::Join(const address_v4& group, const address_v4& interface) {
  ip_mreqn request{};
  request.imr_multiaddr = ToSystem(group);
  request.imr_address = ToSystem(interface);
  const int result =
      setsockopt(socket_.native_handle(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request);
  return result == 0 ? std::string() : std::generic_category().message(errno);
}

void DatagramSocket::Receive(Handler handler) {
  handler_ = std::move(handler);
  WaitReadable();
}

void DatagramSocket::WaitReadable() {
  socket_.async_wait(udp::socket::wait_read, [this](const asio::error_code& error) {
    if (!error) ReceiveReady();
  });
}

void DatagramSocket::ReceiveReady() {
  for (int i = 0; i < kReceivesPerTurn && socket_.is_open(); ++i) {
    if (!ReceiveOne()) break;
  }
  if (socket_.is_open()) WaitReadable();
}

bool DatagramSocket::ReceiveOne() {
  sockaddr_in from{};
  alignas(cmsghdr) char control[256];
  iovec part{.iov_base = buffer_.data(), .iov_len = buffer_.size()};
  msghdr message{};
  message.msg_name = &from;
  message.msg_namelen = sizeof from;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t count = recvmsg(socket_.native_handle(), &message, 0);
  // An error here is that of an earlier send (a port that nobody has); it is taken off and the next one is
  // tried.
  if (count < 0) return errno != EAGAIN && errno != EWOULDBLOCK;
  Datagram datagram{.from = udp::endpoint(FromSystem(from.sin_addr), ntohs(from.sin_port)),
                    .bytes = ByteView(buffer_).first(static_cast<size_t>(count))};
  asio::error_code ignored;
  ReadControl(message, datagram, socket_.local_endpoint(ignored).port());
  handler_(datagram);
  return true;
}

void DatagramSocket::Send(ByteView bytes, const udp::endpoint& to, const address_v4& source) {
  if (waiting_.empty() && TrySend(bytes, to, source)) return;
  if (waiting_.size() == kMostWaiting) return;
  waiting_.push_back({Bytes(bytes.begin(), bytes.end()), to, source});
  if (waiting_.size() == 1) WaitWritable();
}

bool DatagramSocket::TrySend(ByteView bytes, const udp::endpoint& to, const address_v4& source) {
  sockaddr_in address = ToSystem(to);
  iovec part{.iov_base = const_cast<uint8_t*>(bytes.data()), .iov_len = bytes.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof address;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* item = CMSG_FIRSTHDR(&message);
  item->cmsg_level = IPPROTO_IP;
  item->cmsg_type = IP_PKTINFO;
  item->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  const in_pktinfo info{.ipi_ifindex = 0, .ipi_spec_dst = ToSystem(source), .ipi_addr = {}};
  std::memcpy(CMSG_DATA(item), &info, sizeof info);
  const ssize_t count = sendmsg(socket_.native_handle(), &message, MSG_NOSIGNAL);
  return count >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != ENOBUFS);
}

void DatagramSocket::WaitWritable() {
  socket_.async_wait(udp::socket::wait_write, [this](const asio::error_code& error) {
    if (error) return;
    while (!waiting_.empty()) {
      const Waiting& next = waiting_.front();
      if (!TrySend(next.bytes, next.to, next.source)) return WaitWritable();
      waiting_.pop_front();
    }
  });
}

void DatagramSocket::Close() {
  asio::error_code ignored;
  socket_.close(ignored);
  waiting_.clear();
}

std::vector<address_v4> InterfaceAddresses() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
  std::vector<address_v4> addresses;
  std::set<std::string> seen;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    if ((entry->ifa_flags & IFF_UP) == 0 || !seen.insert(entry->ifa_name).second) continue;
    sockaddr_in address{};
    std::memcpy(&address, entry->ifa_addr, sizeof address);
    addresses.push_back(FromSystem(address.sin_addr));
  }
  return addresses;
}

}  // namespace zelsim
