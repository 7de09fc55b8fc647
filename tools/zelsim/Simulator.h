// The whole simulator behind one start, one run and one stop.
//
// Start() and Run() belong to one thread; RequestStop() may be called from any.
#pragma once

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <string>
#include <vector>

#include "DeviceHost.h"
#include "FileService.h"
#include "Options.h"
#include "Relay.h"
#include "Server.h"
#include "Trace.h"

namespace zelsim {

class Simulator {
 public:
  explicit Simulator(const Options& options);

  // Opens everything. Empty on success, otherwise what went wrong, for people.
  std::string Start();
  // Ends the simulator in an orderly way on SIGTERM and SIGINT.
  void StopOnSignals();
  // Serves until a stop is asked for and everything is closed, or a second after it.
  void Run();
  void RequestStop();

  // The server's, then the relay's.
  std::vector<asio::ip::tcp::endpoint> LocalEndpoints() const;

 private:
  void Stop();

  Options options_;
  Trace trace_;
  asio::io_context loop_;
  asio::signal_set signals_;
  asio::steady_timer lastCall_;
  FileService files_;
  Server server_;
  DeviceHost devices_;
  Relay relay_;
};

}  // namespace zelsim
