// A UDP socket that says where a datagram was sent to, and answers from a chosen address.
//
// Lives on the event loop's thread.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>
#include <deque>
#include <functional>
#include <string>

#include "Bytes.h"

namespace zelsim {

struct Datagram {
  asio::ip::udp::endpoint from{};
  asio::ip::udp::endpoint to{};  // as in the datagram: a group, a broadcast address or one of ours
  asio::ip::address_v4 local{};  // our address on the network that it came from
  int ttl = -1;
  ByteView bytes{};  // valid during the call only
};

class DatagramSocket {
 public:
  using Handler = std::function<void(const Datagram&)>;

  explicit DatagramSocket(asio::io_context& loop);

  enum class Sharing { kExclusive, kShared };
  // Empty on success, otherwise what went wrong, for people. A shared port may be bound by other sockets too.
  std::string Open(const asio::ip::udp::endpoint& local, Sharing sharing);
  // Joins the group on the interface that has this address.
  std::string Join(const asio::ip::address_v4& group, const asio::ip::address_v4& interface);
  void Receive(Handler handler);
  // Sends from `source` (unspecified for the system's choice). Waits for room when the system has none; an
  // error of the network drops the datagram, as a network would.
  void Send(ByteView bytes, const asio::ip::udp::endpoint& to, const asio::ip::address_v4& source);
  void Close();

 private:
  struct Waiting {
    Bytes bytes;
    asio::ip::udp::endpoint to;
    asio::ip::address_v4 source;
  };

  void WaitReadable();
  void ReceiveReady();
  bool ReceiveOne();
  // False when the system has no room now.
  bool TrySend(ByteView bytes, const asio::ip::udp::endpoint& to, const asio::ip::address_v4& source);
  void WaitWritable();

  asio::ip::udp::socket socket_;
  Handler handler_;
  Bytes buffer_;
  std::deque<Waiting> waiting_;
};

// The IPv4 addresses of all interfaces that are up, loopback included, one per interface.
std::vector<asio::ip::address_v4> InterfaceAddresses();

}  // namespace zelsim
