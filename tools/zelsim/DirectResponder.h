// Answers direct requests, one datagram for one, on UDP port 38898.
//
// A device with an address of its own on the command line has a socket bound to it; all other devices share
// one socket, and the address that a request was sent to says which of them is meant. An answer always comes
// from the address and port that were asked.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <list>
#include <string>
#include <vector>

#include "DatagramSocket.h"
#include "DirectAnswer.h"
#include "Fault.h"
#include "Fleet.h"
#include "Trace.h"

namespace zelsim {

inline constexpr uint16_t kDirectPort = 38898;

class DirectResponder {
 public:
  // All of it outlives the responder.
  DirectResponder(asio::io_context& loop, Fleet& fleet, const std::vector<Fault>& faults, Trace& trace);

  std::string Open();
  void Close();

 private:
  std::string OpenSocket(const asio::ip::address_v4& address);
  void OnDatagram(DatagramSocket& socket, const Datagram& datagram);
  void Answer(DatagramSocket& socket, const Datagram& datagram, const Request& request, Device& device);
  void SendLater(DatagramSocket& socket, const Datagram& datagram, DirectAnswer answer);

  asio::io_context& loop_;
  Fleet& fleet_;
  const std::vector<Fault>& faults_;
  Trace& trace_;
  std::list<DatagramSocket> sockets_;
  bool closed_ = false;
};

}  // namespace zelsim
