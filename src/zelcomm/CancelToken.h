// Ends, for good, every wait on the links of one connection. Any thread may use it.
#pragma once

#include <atomic>

#include "platform/Platform.h"

namespace libzel {

class CancelToken {
 public:
  CancelToken() { (void)waker_.Open(); }  // without one a wait ends by the shutdown of its socket alone

  void Cancel() {
    isCancelled_ = true;
    waker_.Wake();
  }
  bool IsCancelled() const { return isCancelled_; }
  // To be waited on beside the socket; it is never drained.
  const platform::Waker& waker() const { return waker_; }

 private:
  std::atomic<bool> isCancelled_{false};
  platform::Waker waker_;
};

}  // namespace libzel
