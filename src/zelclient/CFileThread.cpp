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
  {
    const MutexLock lock(mutex_);
    queue_.push_back(std::move(transfer));
  }
  StartWorker();
}

std::weak_ptr<IZelPeerConnection> CFileThread::ConnectionTo(const ZelDeviceId& device) {
  const std::string text = DeviceIdText(device);
  std::weak_ptr<IZelPeerConnection> known;
  if (!BeginConnection(text, known)) return known;
  CPeerConnMgr::Connection connection;
  try {
    connection = CPeerConnMgr::Instance().CreateInstance(&device, 0);
    (void)connection->Connect(kCreateTimeoutMs);  // the first message reconnects, or fails the transfer
  } catch (const std::exception& fault) {
    // Whoever waits for the connection must not wait for ever; without one the transfers fail.
    ZEL_LOG(kError, "cannot connect %s:%s", text.c_str(), fault.what());
  }
  EndConnection(text, connection);
  return connection;
}

// True when the caller is the one to make the connection; else it is there.
bool CFileThread::BeginConnection(const std::string& device, std::weak_ptr<IZelPeerConnection>& connection) {
  const MutexLock lock(mutex_);
  DeviceConnection& entry = connections_[device];
  while (entry.isCreating) created_.Wait(mutex_);
  connection = entry.connection;
  if (CPeerConnMgr::IfLive(connection) != nullptr) return false;
  entry.isCreating = true;
  return true;
}

void CFileThread::EndConnection(const std::string& device,
                                const std::weak_ptr<IZelPeerConnection>& connection) {
  const MutexLock lock(mutex_);
  connections_[device] = {connection, false};
  created_.NotifyAll();
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
    if (transfer->IsComplete()) {
      Finish(*transfer);
    } else if (transfer->IsIdle()) {
      // It stays first for good; only there is no point in asking it as fast as the machine can.
      std::this_thread::sleep_for(kIdleTransferPause);
    }
  }
}

}  // namespace libzel
