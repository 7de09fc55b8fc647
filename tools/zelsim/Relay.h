// A host between clients and servers: accepts for the servers, passes the streams on, and does to
// them what the rules say.
//
// Everything happens on the event loop's thread.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "RelayLink.h"
#include "RelayRule.h"
#include "Trace.h"

namespace zelsim {

class Relay {
 public:
  Relay(asio::io_context& loop, std::vector<RelayRule> rules, Trace& trace);
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  // Opens every listener. Empty on success, otherwise what went wrong, for people.
  std::string Listen();
  // The bound addresses; rules for ranges of addresses at one port share one.
  std::vector<asio::ip::tcp::endpoint> LocalEndpoints() const;
  // Closes the listeners and every connection.
  void Stop();

 private:
  struct Listener {
    asio::ip::tcp::acceptor acceptor;
    asio::steady_timer retry;
    std::vector<const RelayRule*> rules;
  };

  std::string Add(const RelayRule& rule);
  void Accept(Listener& listener);
  void OnAccepted(Listener& listener, const asio::error_code& error, asio::ip::tcp::socket socket);
  void Pass(const Listener& listener, asio::ip::tcp::socket socket);

  asio::io_context& loop_;
  const std::vector<RelayRule> rules_;
  Trace& trace_;
  std::list<Listener> listeners_;
  std::map<uint64_t, std::shared_ptr<RelayLink>> links_;
  uint64_t lastId_ = 0;
  bool stopped_ = false;
};

}  // namespace zelsim
