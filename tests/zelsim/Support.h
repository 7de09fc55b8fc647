// What the simulator's tests share: requests by hand, a raw client, a running simulator.
#pragma once

#include <netinet/in.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Bytes.h"
#include "DataSegments.h"
#include "Simulator.h"

namespace zelsim::test {

Bytes FromText(std::string_view text);
std::string ToText(ByteView bytes);
Bytes Join(std::initializer_list<Bytes> parts);

// The bytes of a request, put together here and not by the simulator's own code.
struct RequestSpec {
  uint16_t port = 700;
  uint32_t invokeId = 1;
  Bytes payload{};
  uint32_t idGroup = 0;
  uint32_t idOffset = 0;
  uint16_t cmd = 9;
};
Bytes BuildRequest(const RequestSpec& spec);
Bytes BuildRecord(std::string_view verb, std::string_view topic, std::string_view data = {},
                  uint32_t idGroup = 0, uint32_t idOffset = 0);
Bytes BuildTopicRequest(std::string_view verb, std::string_view topic, std::string_view data = {},
                        uint32_t idGroup = 0, uint32_t idOffset = 0);

struct Frame {
  uint8_t version = 0;
  uint16_t port = 0;
  uint32_t length = 0;
  Bytes body{};

  uint32_t Error() const;
  uint32_t InvokeId() const;
  uint16_t Cmd() const;
  std::string Payload() const;
};

enum class End { kOpen, kClosed, kReset };

// A blocking TCP client. Every wait has a bound of a few seconds; then a read gives nothing.
class RawClient {
 public:
  explicit RawClient(uint16_t port, const char* address = "127.0.0.1");
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void Send(ByteView bytes);
  void HalfClose();
  std::optional<Bytes> Read(size_t count);
  std::optional<Frame> ReadFrame();
  // Everything until the stream ends or the bound passes.
  Bytes ReadAll();
  // How the stream stands after the last read.
  End State() const { return end_; }
  // True when nothing arrives for `ms` milliseconds.
  bool StaysSilent(int ms);
  // How many segments with data have arrived.
  size_t Segments() const { return DataSegments(socket_); }

 private:
  int socket_;
  End end_ = End::kOpen;
};

// A simulator in this process, from a command line. Reports a failure when it does not start.
class RunningSimulator {
 public:
  explicit RunningSimulator(std::vector<std::string> arguments);
  ~RunningSimulator();
  RunningSimulator(const RunningSimulator&) = delete;
  RunningSimulator& operator=(const RunningSimulator&) = delete;

  void Stop();
  uint16_t Port(size_t listener = 0) const;

 private:
  std::unique_ptr<Simulator> simulator_;
  std::thread thread_;
};

std::optional<Options> OptionsFrom(std::vector<std::string> arguments, std::string* errors = nullptr);

// Looks every few milliseconds, for at most a few seconds.
template <typename Condition>
bool Eventually(Condition condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return condition();
}

// A directory of its own under the temporary directory, removed at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

std::string ReadTextFile(const std::string& path);

}  // namespace zelsim::test
