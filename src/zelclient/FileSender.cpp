#include "zelclient/FileSender.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "utils/Options.h"
#include "utils/Stopwatch.h"
#include "zelclient/ZelCreateFactory.h"

namespace libzel {

namespace {

// How many devices files are sent to at the same time. It may change at any time.
size_t WantedWorkers() {
  return std::clamp<size_t>(static_cast<size_t>(int64_t{OptionsOfProcess().fileWorkers}), 1,
                            FileSender::kMostWorkers);
}

}  // namespace

FileSender& FileSender::Instance() {
  static Forever<FileSender> sender;
  return *sender;
}

// ---- Files ------------------------------------------------------------------------------------------------

void FileSender::Submit(std::unique_ptr<FileSending> sending, uint64_t& ticket) {
  const uint64_t mine = Enter(std::move(sending), ticket);
  try {
    StartWorker();
  } catch (const std::exception& fault) {
    ZEL_LOG(kError, "no further thread:%s", fault.what());
    Withdraw(mine);
  }
}

// What takes memory comes first: a file is entered whole or not at all.
uint64_t FileSender::Enter(std::unique_ptr<FileSending> sending, uint64_t& ticket) {
  std::map<uint64_t, Job> made;
  Job& job = made[0];
  job.sending = std::move(sending);
  Queue place{&job};
  uint64_t mine = 0;
  {
    const MutexLock lock(mutex_);
    Device& device = devices_[job.sending->device()];
    startFailed_ = false;
    mine = job.ticket = ++lastTicket_;
    ticket = mine;  // which is the program's from here on
    job.sending->SetTicket(mine);
    job.queue = &device.waiting;
    job.place = place.begin();
    device.waiting.splice(device.waiting.end(), place);
    auto node = made.extract(made.begin());
    node.key() = mine;
    (void)jobs_.insert(std::move(node));
  }
  changed_.NotifyAll();
  return mine;
}

// Takes a file back that there is no thread for, and fails.
void FileSender::Withdraw(uint64_t ticket) {
  decltype(jobs_)::node_type node;
  {
    const MutexLock lock(mutex_);
    if (started_ != 0) return;
    node = jobs_.extract(ticket);
    const Job& job = node.mapped();
    (void)job.queue->erase(job.place);
    DropIfUnused(job.sending->device());
  }
  changed_.NotifyAll();
  throw;
}

bool FileSender::WasGiven(uint64_t ticket) {
  const MutexLock lock(mutex_);
  return ticket != 0 && ticket <= lastTicket_;
}

bool FileSender::Cancel(uint64_t ticket) {
  {
    const MutexLock lock(mutex_);
    const auto found = jobs_.find(ticket);
    if (found == jobs_.end() || found->second.sending->HasEnded()) return false;
    found->second.sending->Cancel();
    CancelWaiting(found->second);
  }
  changed_.NotifyAll();
  return true;
}

uint64_t FileSender::CancelAll() {
  uint64_t last = 0;
  {
    const MutexLock lock(mutex_);
    last = lastTicket_;
    for (auto& [ticket, job] : jobs_) {
      job.sending->Cancel();
      CancelWaiting(job);
    }
  }
  changed_.NotifyAll();
  return last;
}

// One that waits for its turn need not wait for it any more.
void FileSender::CancelWaiting(Job& job) {
  if (job.queue == nullptr || job.queue == &cancelled_) return;
  cancelled_.splice(cancelled_.end(), *job.queue, job.place);
  job.queue = &cancelled_;
  DropIfUnused(job.sending->device());
}

void FileSender::DropIfUnused(const ZelDeviceId& device) {
  const auto found = devices_.find(device);
  if (found != devices_.end() && !found->second.isBusy && found->second.waiting.empty())
    devices_.erase(found);
}

// ---- Threads ----------------------------------------------------------------------------------------------

// True when a file waits that no thread will take.
bool FileSender::WantsWorker() {
  const MutexLock lock(mutex_);
  if (idle_ != 0 || startFailed_ || started_ >= WantedWorkers()) return false;
  return !cancelled_.empty() || FirstReady() != nullptr;
}

void FileSender::StartWorker() {
  const MutexLock starting(startMutex_);
  if (!WantsWorker()) return;
  for (Thread& thread : threads_) {
    if (thread.Start({"zel-sendfile", [this] { Work(); }, {}})) break;
  }
  const MutexLock lock(mutex_);
  ++started_;
}

void FileSender::StartHelp() noexcept {
  try {
    StartWorker();
  } catch (const std::exception& fault) {
    ZEL_LOG(kError, "no further thread:%s", fault.what());  // those that there are take its part
    const MutexLock lock(mutex_);
    startFailed_ = true;
  }
}

void FileSender::Work() {
  for (;;) {
    Job& job = AwaitJob();
    StartHelp();
    Send(job);
  }
}

FileSender::Job& FileSender::AwaitJob() {
  const MutexLock lock(mutex_);
  ++idle_;
  Job* job = TakeNext();
  while (job == nullptr) {
    changed_.Wait(mutex_);
    job = TakeNext();
  }
  --idle_;
  return *job;
}

FileSender::Job* FileSender::TakeNext() {
  if (Job* const job = TakeCancelled()) return job;
  Device* const device = FirstReady();
  if (device == nullptr) return nullptr;
  device->isBusy = true;
  ++busyDevices_;
  Job* const job = TakeFirst(device->waiting);
  job->isSent = true;
  return job;
}

FileSender::Job* FileSender::TakeCancelled() { return cancelled_.empty() ? nullptr : TakeFirst(cancelled_); }

FileSender::Job* FileSender::TakeFirst(Queue& queue) {
  Job* const job = queue.front();
  queue.pop_front();
  job->queue = nullptr;
  job->thread = std::this_thread::get_id();
  return job;
}

// The device whose turn it is, if one more may be sent to.
FileSender::Device* FileSender::FirstReady() {
  if (busyDevices_ >= WantedWorkers()) return nullptr;
  Device* first = nullptr;
  for (auto& [id, device] : devices_) {
    if (device.isBusy || device.waiting.empty()) continue;
    if (first == nullptr || device.waiting.front()->ticket < first->waiting.front()->ticket) first = &device;
  }
  return first;
}

void FileSender::Send(Job& job) {
  FileSending& sending = *job.sending;
  try {
    if (job.isSent) BeginSending(sending);
    while (!sending.HasEnded()) {
      sending.Step();
      LookRound();
    }
  } catch (const std::exception& fault) {
    ZEL_LOG(kError, "cannot send a file:%s", fault.what());
    sending.End(ZEL_E_FILE_TRANSFER);
  }
  Finish(job);
}

void FileSender::BeginSending(FileSending& sending) {
  const auto end = FileLink::EndFromNow();
  const auto connection = connections_.RequestsTo(sending.device(), std::min(MsUntil(end), kCreateTimeoutMs));
  // One that was made while all instances were destroyed would stay behind.
  const auto live = sending.IsCancelled() ? CPeerConnMgr::IfLive(connection) : nullptr;
  if (live != nullptr) CPeerConnMgr::Instance().ReleaseInstance(CPeerConnMgr::HandleOf(live));
  sending.Begin(connection, end);
}

// Between two messages: what was cancelled does not wait for a slow device, and when more threads are wanted than before
// they take what waits.
void FileSender::LookRound() {
  EndCancelled();
  {
    const MutexLock lock(mutex_);
    if (FirstReady() == nullptr) return;
  }
  changed_.NotifyAll();
  StartHelp();
}

void FileSender::EndCancelled() {
  for (;;) {
    Job* job = nullptr;
    {
      const MutexLock lock(mutex_);
      job = TakeCancelled();
    }
    if (job == nullptr) return;
    job->sending->End(LIBZELX_E_CANCELLED);
    Finish(*job);
  }
}

void FileSender::Finish(const Job& job) {
  decltype(jobs_)::node_type node;  // closes its file without the lock
  {
    const MutexLock lock(mutex_);
    if (job.isSent) {
      const ZelDeviceId& device = job.sending->device();
      devices_.at(device).isBusy = false;
      --busyDevices_;
      DropIfUnused(device);
    }
    node = jobs_.extract(job.ticket);
  }
  changed_.NotifyAll();
}

// ---- Waiting for all --------------------------------------------------------------------------------------

// A file whose thread is in here because of another one, between two of its messages, ends here.
void FileSender::EndOwn(uint64_t last) {
  for (;;) {
    FileSending* own = nullptr;
    {
      const MutexLock lock(mutex_);
      for (auto& [ticket, job] : jobs_) {
        const bool isOwn = ticket <= last && job.thread == std::this_thread::get_id();
        if (isOwn && !job.sending->HasEnded() && !job.sending->IsTelling()) own = job.sending.get();
      }
    }
    if (own == nullptr) return;
    own->End(LIBZELX_E_CANCELLED);
  }
}

void FileSender::AwaitEnds(uint64_t last) {
  EndOwn(last);
  Waiter waiter{std::this_thread::get_id()};
  const MutexLock lock(mutex_);
  waiter.next = waiters_;
  waiters_ = &waiter;
  changed_.NotifyAll();
  // A thread that sends files may be the only one, and two of them would wait for each other.
  const bool isSender = HasJob(waiter.thread);
  while (IsAwaited(last, isSender)) {
    if (isSender && !cancelled_.empty()) {
      mutex_.unlock();
      EndCancelled();
      mutex_.lock();
    } else {
      changed_.Wait(mutex_);
    }
  }
  Leave(waiter);
}

void FileSender::Leave(const Waiter& waiter) {
  Waiter** at = &waiters_;
  while (*at != &waiter) at = &(*at)->next;
  *at = waiter.next;
}

bool FileSender::HasJob(std::thread::id thread) const {
  return std::any_of(jobs_.begin(), jobs_.end(),
                     [&](const auto& entry) { return entry.second.thread == thread; });
}

bool FileSender::IsAwaited(uint64_t last, bool bySender) const {
  for (const auto& [ticket, job] : jobs_) {
    if (ticket > last) return false;
    if (!bySender || !IsWaiting(job.thread)) return true;
  }
  return false;
}

bool FileSender::IsWaiting(std::thread::id thread) const {
  for (const Waiter* waiter = waiters_; waiter != nullptr; waiter = waiter->next) {
    if (waiter->thread == thread) return true;
  }
  return false;
}

}  // namespace libzel
