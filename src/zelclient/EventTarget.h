// Whom a connection tells of its events. Any thread may use it; no lock is held while the application is told.
#pragma once

#include <thread>

#include "libzel/libzel.h"
#include "utils/Mutex.h"

namespace libzel {

class EventTarget {
 public:
  // Replaces callback and user pointer together; does nothing once closed.
  void Set(ZelConnEventCallback callback, void* user);
  // Tells of an event on the calling thread.
  void Fire(const ZelDeviceId& device, int32_t event);
  // From here on nobody is told of anything.
  void Close();
  // Waits until no callback runs on another thread. After Close that stays so.
  void AwaitOthers();

 private:
  // A callback that runs, on the stack of its thread.
  struct Call {
    std::thread::id thread;
    Call* next = nullptr;
  };

  bool Begin(Call& call, ZelConnEventCallback& callback, void*& user);
  void End(const Call& call);
  bool OthersRun() const ZEL_REQUIRES(mutex_);

  Mutex mutex_;
  CondVar ended_;
  ZelConnEventCallback callback_ ZEL_GUARDED_BY(mutex_) = nullptr;
  void* user_ ZEL_GUARDED_BY(mutex_) = nullptr;
  bool isClosed_ ZEL_GUARDED_BY(mutex_) = false;
  Call* calls_ ZEL_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace libzel
