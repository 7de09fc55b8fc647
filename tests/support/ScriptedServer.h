// A server that a test plays step by step: it does exactly what the test says, and nothing by itself. Every
// server has a loopback address of its own, which no other server of this process or of one beside it uses.
// In a lab with a relay (tests/lab/lab.sh) the servers stand behind it.
// Every wait has a bound; a wait that runs out gives an empty result. Time-outs are in ms.
#pragma once

#include <optional>
#include <string>

#include "libzel/libzel.h"
#include "support/TestSocket.h"
#include "support/Wire.h"

namespace zeltest {

inline constexpr int kPatienceMs = 10000;

// The server's side of one connection.
class Peer {
 public:
  Peer() = default;
  explicit Peer(TestSocket socket) : socket_(std::move(socket)) {}

  bool IsOpen() const { return socket_.IsOpen(); }
  bool Send(const Bytes& bytes) { return socket_.Send(bytes.data(), bytes.size()); }
  // Exactly `size` bytes; fewer when the connection ended or the time ran out.
  Bytes Read(size_t size, int timeoutMs = kPatienceMs);
  Request ReadRequest(int timeoutMs = kPatienceMs);
  // Reads a request and answers it.
  Request Serve(const Bytes& payload, uint32_t error = 0);
  bool HasInput(int timeoutMs) { return socket_.WaitReadable(timeoutMs); }
  // Reads on until the library closes the connection, in whatever manner.
  bool AwaitEnd(int timeoutMs = kPatienceMs);
  // As above: true when it ended with a reset.
  bool AwaitReset(int timeoutMs = kPatienceMs);
  void EndSending() { socket_.EndSending(); }
  void Close() { socket_.Close(); }
  void Reset() { socket_.Reset(); }

 private:
  std::optional<int> EndOfStream(int timeoutMs);

  TestSocket socket_;
};

class ScriptedServer {
 public:
  static constexpr uint16_t kPort = 9999;

  ScriptedServer();

  Peer Accept(int timeoutMs = kPatienceMs);
  bool IsCalled(int timeoutMs) { return listener_.WaitReadable(timeoutMs); }
  void StopListening() { listener_.Close(); }
  void Listen();
  // From here on the system takes in little for a connection that nobody reads from.
  void LimitReceiveBuffer(int bytes) { listener_.SetReceiveBuffer(bytes); }
  // From here on a connect to the server neither succeeds nor fails.
  void Stall();

  const std::string& host() const { return host_; }
  const ZelDeviceId& device() const { return device_; }

 private:
  ZelDeviceId device_{};
  std::string host_;        // where it is called
  std::string listenHost_;  // where it is
  TestSocket listener_;
  std::vector<TestSocket> fillers_;
};

// The identifier of a loopback address where nobody listens.
ZelDeviceId DeviceWithoutServer();
// The identifier of an address on the lab's network that nobody has: a connect to it goes on for about 3 s.
// Numbers from 0 to 150.
ZelDeviceId UnreachableDevice(int number);
// That of the simulator in the lab, which listens on 127.0.0.1, or on x.y.0.1 where a
// relay stands before x.y.
ZelDeviceId SimulatedServer();
std::string HostOf(const ZelDeviceId& device);

}  // namespace zeltest
