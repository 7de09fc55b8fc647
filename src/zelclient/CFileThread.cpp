#include "zelclient/CFileThread.h"

#include <chrono>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelcomm/DeviceId.h"

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
  transfer->SetConnection(ConnectionTo(transfer->device()));
  Enqueue(std::move(transfer));
}

ZelInstance CFileThread::ConnectionTo(const ZelDeviceId& device) {
  auto& manager = CPeerConnMgr::Instance();
  std::unique_lock lock(mutex_);
  DeviceConnection& entry = connections_[DeviceIdText(device)];
  created_.wait(lock, [&] { return !entry.isCreating; });
  if (manager.FindInstance(entry.handle) != nullptr) return entry.handle;

  entry.isCreating = true;
  lock.unlock();
  const auto connection = manager.CreateInstance(&device, 0);
  (void)connection->Connect(kCreateTimeoutMs);  // the first message reconnects, or fails the transfer
  lock.lock();
  entry.handle = CPeerConnMgr::HandleOf(connection);
  entry.isCreating = false;
  created_.notify_all();
  return entry.handle;
}

void CFileThread::Enqueue(std::unique_ptr<CFileTransfer> transfer) noexcept {
  const std::lock_guard lock(mutex_);
  queue_.push_back(std::move(transfer));
  if (!worker_.joinable()) worker_ = std::thread([this] { svc(); });
}

CFileTransfer* CFileThread::First() {
  const std::lock_guard lock(mutex_);
  return queue_.empty() ? nullptr : queue_.front().get();
}

void CFileThread::Remove(const CFileTransfer* transfer) {
  const std::lock_guard lock(mutex_);
  queue_.remove_if([&](const auto& queued) { return queued.get() == transfer; });
}

void CFileThread::svc() {
  for (;;) {
    CFileTransfer* const transfer = First();
    if (transfer == nullptr) {
      std::this_thread::sleep_for(kEmptyQueuePause);
      continue;
    }
    transfer->Step();
    if (transfer->IsComplete()) {
      ZEL_LOG(kInfo, "transfer over");
      Remove(transfer);
    } else if (transfer->IsIdle()) {
      // It stays first for good; only there is no point in asking it as fast as the machine can.
      std::this_thread::sleep_for(kIdleTransferPause);
    }
  }
}

}  // namespace libzel
