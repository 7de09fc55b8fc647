// A device that receives files, played on a thread: it answers each message as the test says. Its address is
// a loopback address of its own. And a transfer callback that remembers its calls.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {

inline constexpr uint32_t kFileHandle = 0x01020304;

inline Bytes FileAnswer(uint8_t type, uint32_t error = 0) {
  return Bytes{type} + Be(kFileHandle, 4) + Be(error, 4);
}

// What a device that is content answers to a message.
inline Bytes GoodFileAnswer(const Bytes& message) {
  if (message.empty()) return FileAnswer(0x82);
  return FileAnswer(message[0]);
}

class FileDevice {
 public:
  // Gives the answer to message `number`, counted from 0 over all connections; std::nullopt closes the
  // connection, an empty answer is none.
  using Reaction = std::function<std::optional<Bytes>(const Bytes& message, size_t number)>;
  // The same with whole frames, for answers that no device should give.
  using FrameReaction = std::function<std::optional<Bytes>(const Request& request, size_t number)>;

  FileDevice() : FileDevice([](const Bytes& message, size_t) { return GoodFileAnswer(message); }) {}
  explicit FileDevice(Reaction reaction) : FileDevice(FrameReaction(InFrames{std::move(reaction)})) {}
  explicit FileDevice(FrameReaction reaction) : reaction_(std::move(reaction)), thread_([this] { Run(); }) {}
  ~FileDevice() {
    ended_ = true;
    thread_.join();
  }
  FileDevice(const FileDevice&) = delete;
  FileDevice& operator=(const FileDevice&) = delete;

  ZelDeviceAddr Target(uint16_t port = 700) const { return {server_.device(), port}; }
  int connections() const { return connections_; }

  Recorder<Request> messages;

 private:
  static constexpr int kTurnMs = 10;

  struct InFrames {
    std::optional<Bytes> operator()(const Request& request, size_t number) const {
      auto answer = reaction(request.payload, number);
      if (answer && !answer->empty()) answer = Answer(request.port, request.invokeId, *answer);
      return answer;
    }
    Reaction reaction;
  };

  void Run() {
    while (!ended_) {
      Peer peer = server_.Accept(kTurnMs);
      if (peer.IsOpen()) Serve(peer);
    }
  }
  void Serve(Peer& peer) {
    ++connections_;
    while (!ended_) {
      if (!peer.HasInput(kTurnMs)) continue;
      const Request request = peer.ReadRequest();
      if (!request.whole) return;
      const size_t number = messages.Count();
      messages.Add(request);
      const auto answer = reaction_(request, number);
      if (!answer) return;
      if (!answer->empty() && !peer.Send(*answer)) return;
    }
  }

  const FrameReaction reaction_;
  ScriptedServer server_;
  std::atomic<int> connections_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

struct SeenProgress {
  uint32_t transfer;
  float progress;
  uint32_t error;
  uint8_t state;
  ZelDeviceId device;
  std::thread::id thread;
};

// Never destroyed before the library has dropped the transfers that it was given to: leave it alive, or wait.
class ProgressRecorder : public Recorder<SeenProgress> {
 public:
  static int32_t Callback(const ZelDeviceId* device, uint32_t transfer, float progress, uint32_t error,
                          uint8_t state, void* user) {
    auto& self = *static_cast<ProgressRecorder*>(user);
    const size_t number = self.calls_++;
    const int32_t result = number == self.refusedCall ? -1 : 0;
    self.Add({transfer, progress, error, state, *device, std::this_thread::get_id()});
    return result;
  }

  // The call that asks for a stop, from 0; none by default.
  size_t refusedCall = SIZE_MAX;

 private:
  std::atomic<size_t> calls_{0};
};

}  // namespace zeltest
