// Private networks for tests that send datagrams. Nothing here ever reaches a network of the
// machine.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Bytes.h"
#include "Support.h"

namespace zelsim::test {

// Moves this process, before it has a second thread, into a network of its own with nothing but a loopback
// interface. False where the system does not allow that.
bool EnterPrivateNetwork();

// A host of its own: a thread that lives in a network namespace of its own and runs what it is given.
class Host {
 public:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void Do(const std::function<void()>& task);
  // Runs a command there; fails the test when the command fails.
  void Command(const std::string& command);
  pid_t ThreadId() const { return threadId_; }

 private:
  void Live();

  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<void()>* task_ = nullptr;
  bool ending_ = false;
  pid_t threadId_ = 0;
  std::thread thread_;
};

void RunCommand(const std::string& command);

struct Received {
  std::string from;
  uint16_t port = 0;
  Bytes bytes;
};

// A UDP socket with bounded waits.
class UdpClient {
 public:
  explicit UdpClient(const char* address = "0.0.0.0", uint16_t port = 0);
  ~UdpClient();
  UdpClient(const UdpClient&) = delete;
  UdpClient& operator=(const UdpClient&) = delete;

  void SendTo(ByteView bytes, const char* address, uint16_t port);
  // Sends multicasts out of the interface with this address.
  void MulticastVia(const char* address, int ttl);
  std::optional<Received> Receive(int ms = 5000);
  uint16_t Port() const;

 private:
  int socket_;
};

// Two hosts joined by a cable: the test's own at 10.77.0.1/16 and one for the simulator at 10.77.0.2/16.
class TwoHosts : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Starts a simulator on the other host.
  void StartDevice(std::vector<std::string> arguments);
  // The trace lines so far that hold all of these pieces.
  std::vector<std::string> TraceLines(std::initializer_list<std::string_view> pieces) const;

  std::unique_ptr<Host> host_;
  std::unique_ptr<RunningSimulator> device_;
  TemporaryDirectory directory_;
};

}  // namespace zelsim::test
