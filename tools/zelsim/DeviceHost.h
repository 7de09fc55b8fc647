// What the fleet's devices share: options and the two responders.
#pragma once

#include <asio/io_context.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Description.h"
#include "DirectResponder.h"
#include "DiscoveryResponder.h"
#include "Fault.h"
#include "Fleet.h"
#include "Trace.h"

namespace zelsim {

struct DeviceOptions {
  Fleet fleet;
  DescriptionOptions description;
  std::vector<asio::ip::address_v4> interfaces;  // where the group is joined; empty for every interface
  bool discovery = true;
  std::chrono::milliseconds answerSpread{0};
  std::vector<Fault> faults;  // scan- and udp- kinds
};

class DeviceHost {
 public:
  DeviceHost(asio::io_context& loop, DeviceOptions options, Trace& trace);

  // Opens every socket. Empty on success, otherwise what went wrong, for people.
  std::string Open();
  void Close();

 private:
  DeviceOptions options_;
  DiscoveryResponder discovery_;
  DirectResponder direct_;
};

}  // namespace zelsim
