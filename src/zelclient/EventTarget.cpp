#include "zelclient/EventTarget.h"

namespace libzel {

void EventTarget::Set(ZelConnEventCallback callback, void* user) {
  const MutexLock lock(mutex_);
  if (isClosed_) return;
  callback_ = callback;
  user_ = user;
}

void EventTarget::Fire(const ZelDeviceId& device, int32_t event) {
  Call call{std::this_thread::get_id()};
  ZelConnEventCallback callback = nullptr;
  void* user = nullptr;
  if (!Begin(call, callback, user)) return;
  callback(&device, user, event);
  End(call);
}

bool EventTarget::Begin(Call& call, ZelConnEventCallback& callback, void*& user) {
  const MutexLock lock(mutex_);
  if (callback_ == nullptr) return false;
  callback = callback_;
  user = user_;
  call.next = calls_;
  calls_ = &call;
  return true;
}

void EventTarget::End(const Call& call) {
  const MutexLock lock(mutex_);
  Call** at = &calls_;
  while (*at != &call) at = &(*at)->next;
  *at = call.next;
  ended_.NotifyAll();
}

void EventTarget::Close() {
  const MutexLock lock(mutex_);
  isClosed_ = true;
  callback_ = nullptr;
  user_ = nullptr;
}

void EventTarget::AwaitOthers() {
  const MutexLock lock(mutex_);
  while (OthersRun()) ended_.Wait(mutex_);
}

bool EventTarget::OthersRun() const {
  for (const Call* call = calls_; call != nullptr; call = call->next) {
    if (call->thread != std::this_thread::get_id()) return true;
  }
  return false;
}

}  // namespace libzel
