#include "zelclient/CFileThread.h"

#include <chrono>
#include <exception>

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

std::weak_ptr<IZelPeerConnection> CFileThread::ConnectionTo(const ZelDeviceId& device) {
  auto& manager = CPeerConnMgr::Instance();
  std::unique_lock lock(mutex_);
  DeviceConnection& entry = connections_[DeviceIdText(device)];
  created_.wait(lock, [&] { return !entry.isCreating; });
  if (manager.IfLive(entry.connection) != nullptr) return entry.connection;

  entry.isCreating = true;
  lock.unlock();
  CPeerConnMgr::Connection connection;
  try {
    connection = manager.CreateInstance(&device, 0);
    (void)connection->Connect(kCreateTimeoutMs);  // the first message reconnects, or fails the transfer
  } catch (const std::exception& fault) {
    // Whoever waits for the connection must not wait for ever; without one the transfers fail.
    ZEL_LOG(kError, "cannot connect %s:%s", DeviceIdText(device).c_str(), fault.what());
  }
  lock.lock();
  entry.connection = connection;
  entry.isCreating = false;
  created_.notify_all();
  return entry.connection;
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
