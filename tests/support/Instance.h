// An instance that is released with this object, and short forms of the calls that tests make on it.
#pragma once

#include "libzel/libzel.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {

class Instance {
 public:
  explicit Instance(const ZelDeviceId& device, int32_t timeoutMs = 1500)
      : handle_(libzel_createInstanceEx(&device, 0, timeoutMs, EventRecorder::Callback, &events)) {}
  ~Instance() { Release(); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  operator ZelInstance() const { return handle_; }
  void Release() {
    if (handle_ != 0) (void)libzel_releaseInstance(handle_);
    handle_ = 0;
  }
  int32_t Send(uint16_t port, const Bytes& data, uint32_t timeoutMs = 1000) const {
    return libzel_sync_send(handle_, port, 1, 2, data.data(), static_cast<uint32_t>(data.size()), timeoutMs);
  }
  int32_t Receive(Bytes& buffer, uint32_t timeoutMs = kPatienceMs) const {
    return libzel_sync_recv(handle_, nullptr, buffer.data(), static_cast<uint32_t>(buffer.size()), timeoutMs);
  }

  EventRecorder events;

 private:
  ZelInstance handle_;
};

// An instance and the server's side of its connection.
struct Link {
  explicit Link(ScriptedServer& server) : instance(server.device()), peer(server.Accept()) {}

  Instance instance;
  Peer peer;
};

}  // namespace zeltest
