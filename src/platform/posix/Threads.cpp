#include <pthread.h>
#include <signal.h>

#include <new>

#include "platform/Platform.h"

namespace libzel::platform {

static_assert(sizeof(sigset_t) <= 128);

AsyncSignalBlock::AsyncSignalBlock() {
  sigset_t blocked;
  (void)sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
    (void)sigdelset(&blocked, fault);
  (void)pthread_sigmask(SIG_SETMASK, &blocked, ::new (static_cast<void*>(earlier_)) sigset_t);
}

AsyncSignalBlock::~AsyncSignalBlock() {
  (void)pthread_sigmask(SIG_SETMASK, std::launder(reinterpret_cast<sigset_t*>(earlier_)), nullptr);
}

void NameThread(const char* name) { (void)pthread_setname_np(pthread_self(), name); }

}  // namespace libzel::platform
