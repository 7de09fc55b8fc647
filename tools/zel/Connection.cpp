#include "Connection.h"

#include <string>
#include <utility>

#include "Device.h"
#include "Failure.h"

namespace zeltool {
namespace {

constexpr int32_t kConnectTimeoutMs = 1500;

}  // namespace

Connection::Connection(const ZelDeviceId& device, Listener listener)
    : device_(device), listener_(std::move(listener)) {
  handle_ = libzel_createInstanceEx(&device_, 0, kConnectTimeoutMs, OnEvent, this);
  if (handle_ == 0) throw LibraryFailure("cannot create a connection", libzel_get_errno());
}

// The result of a release says nothing, on purpose.
Connection::~Connection() { (void)libzel_releaseInstance(handle_); }

void Connection::OnEvent(const ZelDeviceId*, void* user, int32_t event) {
  auto* self = static_cast<Connection*>(user);
  const bool outcome = event == ZEL_EVENT_CONNECTED || event == ZEL_EVENT_FAILED;
  // Written while the constructor runs only; other threads come later.
  if (outcome && self->firstOutcome_ == 0) self->firstOutcome_ = event;
  if (self->listener_) self->listener_(event);
}

void Connection::RequireConnected() const {
  if (firstOutcome_ == ZEL_EVENT_CONNECTED) return;
  throw LibraryFailure("cannot connect to " + ToText(device_), ZEL_E_DISCONNECTED);
}

void Connection::Require(int32_t result, const char* what) {
  if (result != ZEL_OK) throw LibraryFailure(what, result);
}

void Connection::StartReceiving() const { Require(libzel_loop_start(handle_), "cannot receive"); }

}  // namespace zeltool
