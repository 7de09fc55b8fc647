// One connection to a device's server.
#pragma once

#include <libzel/libzel.h>

#include <cstdint>
#include <functional>

namespace zeltool {

class Connection {
 public:
  // Hears of every connection event, on the thread that connects or the receive thread.
  using Listener = std::function<void(int32_t event)>;

  // Connects, waiting at most 1.5 s. Whether that succeeded, the listener hears; IsConnected tells too.
  explicit Connection(const ZelDeviceId& device, Listener listener = {});
  // Waits for a callback that is running.
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  ZelInstance Handle() const { return handle_; }
  // Throws LibraryFailure when the first connect failed.
  void RequireConnected() const;
  // Throws LibraryFailure when a call's result is not 0. `what` is what could not be done.
  static void Require(int32_t result, const char* what);
  void StartReceiving() const;

 private:
  static void OnEvent(const ZelDeviceId* device, void* user, int32_t event);

  ZelDeviceId device_;
  Listener listener_;
  int32_t firstOutcome_ = 0;
  ZelInstance handle_ = 0;
};

}  // namespace zeltool
