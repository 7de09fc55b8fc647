#include "zelclient/CFileThread.h"

#include <chrono>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "utils/Options.h"
#include "zelclient/ZelCreateFactory.h"

namespace libzel {

namespace {
constexpr std::chrono::milliseconds kEmptyQueuePause{30};
constexpr std::chrono::milliseconds kIdleTransferPause{1};
}  // namespace

CFileThread& CFileThread::Instance() {
  static Forever<CFileThread> thread;
  return *thread;
}

void CFileThread::Submit(std::unique_ptr<CFileTransfer> transfer) {
  transfer->SetConnection(connections_.ConnectionTo(transfer->device(), kCreateTimeoutMs));
  {
    const MutexLock lock(mutex_);
    queue_.push_back(std::move(transfer));
  }
  StartWorker();
}

// noexcept: files cannot be sent without the thread, and the process ends.
void CFileThread::StartWorker() noexcept {
  (void)worker_.Start({"zel-files", [this] { svc(); },
                       [this] {
                         CFileTransfer* const transfer = First();
                         if (transfer == nullptr) return;
                         transfer->FailOnNoMemory();
                         Finish(*transfer);
                       }});
}

CFileTransfer* CFileThread::First() {
  const MutexLock lock(mutex_);
  return queue_.empty() ? nullptr : queue_.front().get();
}

void CFileThread::Remove(const CFileTransfer* transfer) {
  const MutexLock lock(mutex_);
  queue_.remove_if([&](const auto& queued) { return queued.get() == transfer; });
}

void CFileThread::Finish(CFileTransfer& transfer) {
  ZEL_LOG_AS("CFileThread::svc", kInfo, "transfer over");
  Remove(&transfer);
}

void CFileThread::svc() {
  for (;;) {
    CFileTransfer* const transfer = First();
    if (transfer == nullptr) {
      std::this_thread::sleep_for(kEmptyQueuePause);
      continue;
    }
    transfer->Step();
    if (transfer->IsComplete() || (transfer->IsIdle() && OptionsOfProcess().fileDropUnopened != 0)) {
      Finish(*transfer);
    } else if (transfer->IsIdle()) {
      // It stays first for good; only there is no point in asking it as fast as the machine can.
      std::this_thread::sleep_for(kIdleTransferPause);
    }
  }
}

}  // namespace libzel
