// Answers the discovery requests of clients for every device of the fleet.
//
// A multicast request (type 0) is answered to the address and port that it came from, a broadcast request
// (type 2) to the address that it came from at port 38897. Every device answers from its own address, all of
// them from port 38897. Requests that are not exactly 9 bytes, of another type, or with the reserved word set
// are dropped.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "DatagramSocket.h"
#include "Description.h"
#include "Fault.h"
#include "Fleet.h"
#include "ScanAnswer.h"
#include "Trace.h"

namespace zelsim {

class DiscoveryResponder {
 public:
  // All of it outlives the responder.
  struct Settings {
    Fleet& fleet;
    const DescriptionOptions& description;
    const std::vector<Fault>& faults;
    std::chrono::milliseconds answerSpread;  // the fleet's answers to one request are spread evenly over it
  };

  DiscoveryResponder(asio::io_context& loop, const Settings& settings, Trace& trace);

  // Joins the group on these interfaces, or on every interface when none is named.
  std::string Open(const std::vector<asio::ip::address_v4>& interfaces);
  void Close();

 private:
  // One request on its way through the fleet.
  struct Round {
    asio::ip::udp::endpoint to;
    asio::ip::address_v4 local;
    std::chrono::steady_clock::time_point start;
    size_t next = 0;
    asio::steady_timer timer;
  };

  std::string OpenGroup(const std::vector<asio::ip::address_v4>& interfaces);
  void OnDatagram(const Datagram& datagram);
  void StartRound(const Datagram& datagram, const asio::ip::udp::endpoint& to);
  void Continue(const std::shared_ptr<Round>& round);
  void Answer(const Round& round, Device& device);
  std::chrono::steady_clock::time_point DueTime(const Round& round) const;

  asio::io_context& loop_;
  Settings settings_;
  Trace& trace_;
  DatagramSocket group_;
  DatagramSocket broadcast_;
  std::set<std::shared_ptr<Round>> rounds_;
};

}  // namespace zelsim
