// A plain datagram socket for the devices that tests play, the same on both systems. A wait that runs out
// gives an empty result. Time-outs are in ms.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/Wire.h"

namespace zeltest {

struct Datagram {
  Bytes bytes;
  std::string host;
  uint16_t port = 0;
};

class TestDatagram {
 public:
  // A process of an earlier test may be on its way out, and have the port until it is gone.
  static constexpr int kPortPatienceMs = 20000;

  // Port 0 takes a free one; another is waited for. Throws std::runtime_error when the system refuses.
  TestDatagram(const std::string& host, uint16_t port, int patienceMs = kPortPatienceMs);
  ~TestDatagram();
  TestDatagram(const TestDatagram&) = delete;
  TestDatagram& operator=(const TestDatagram&) = delete;

  uint16_t port() const;
  bool Send(const std::string& host, uint16_t port, const Bytes& bytes) const;
  std::optional<Datagram> Receive(int timeoutMs) const;

 private:
  intptr_t handle_ = -1;
};

}  // namespace zeltest
