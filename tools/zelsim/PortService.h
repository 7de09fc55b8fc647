// Something that serves one router port in place of the answer rules.
#pragma once

#include "Connection.h"

namespace zelsim {

class PortService {
 public:
  virtual ~PortService() = default;
  virtual uint16_t Port() const = 0;
  virtual void OnRequest(Connection& connection, const Request& request, uint64_t frame) = 0;
  virtual void OnClosed(Connection& connection) = 0;
};

}  // namespace zelsim
