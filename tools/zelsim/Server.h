// The TCP side: listeners, connections, topics, answers and ticks.
//
// Everything happens on the event loop's thread.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AnswerRule.h"
#include "Burst.h"
#include "Connection.h"
#include "Fault.h"
#include "PortService.h"
#include "Ticker.h"
#include "TopicTable.h"

namespace zelsim {

struct ServerOptions {
  std::vector<std::string> listens;  // "A.B.C.D:PORT"; port 0 takes any free port
  AnswerRules answers;
  std::vector<TickRule> ticks;
  std::vector<BurstRule> bursts;
  std::vector<Fault> faults;
  std::chrono::microseconds spin{0};
};

class Server : public ConnectionHost {
 public:
  Server(asio::io_context& loop, ServerOptions options, Trace& trace);
  ~Server() override;

  // Hands the requests on the service's port to it. The service outlives the server.
  void Serve(PortService& service) { services_[service.Port()] = &service; }
  // Opens every listener. Empty on success, otherwise what went wrong, for people.
  std::string Listen();
  // The bound addresses, in the order of the options.
  std::vector<asio::ip::tcp::endpoint> LocalEndpoints() const;
  // Closes the listeners and, in an orderly way, every connection; calls `done` when the last one is gone.
  void Stop(std::function<void()> done);

  bool OnRequest(Connection& connection, const Request& request, uint64_t frame) override;
  void OnClosed(Connection& connection) override;

 private:
  struct Listener {
    std::string where;
    asio::ip::tcp::acceptor acceptor;
    asio::steady_timer retry;
    uint64_t accepted = 0;
  };
  struct Client {
    std::shared_ptr<Connection> connection;
    std::map<uint16_t, uint64_t> ticks;  // messages sent, by port
  };

  std::string OpenListener(const std::string& where);
  void Accept(Listener& listener);
  void OnAccepted(Listener& listener, const asio::error_code& error, asio::ip::tcp::socket socket);
  void AnswerByRule(Connection& connection, const Request& request, uint64_t frame);
  bool OnTopicRequest(Connection& connection, const Request& request);
  void OnSubscribe(std::string_view topic, Connection& connection);
  void Publish(std::string_view topic, ByteView record);
  void SendTicks(const TickRule& rule);

  asio::io_context& loop_;
  ServerOptions options_;
  Trace& trace_;
  std::list<Listener> listeners_;
  std::list<Ticker> tickers_;
  std::map<uint64_t, Client> clients_;
  TopicTable topics_;
  std::map<uint16_t, PortService*> services_;
  Bytes counting_;
  uint64_t lastId_ = 0;
  std::function<void()> stopped_;  // set while stopping
};

}  // namespace zelsim
