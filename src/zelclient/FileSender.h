// Sends the files of libzelx_sendFile: as many threads as LIBZELX_FILE_WORKERS says, each with one device's file at a time.
// Files to one device go one after the other; whose turn it is goes by their submission.
//
// Any thread may call any member, from callbacks too. The mutex is never held during a connect, a step or a callback. The
// threads stay for as long as the process runs.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <thread>

#include "utils/Mutex.h"
#include "utils/Thread.h"
#include "zelclient/DeviceConnections.h"
#include "zelclient/FileSending.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

class FileSender {
 public:
  static constexpr size_t kMostWorkers = 64;

  static FileSender& Instance();

  // Queues the file and gives it its ticket, which is written before its callback can run. When no thread can be started
  // this throws, and the callback never runs.
  void Submit(std::unique_ptr<FileSending> sending, uint64_t& ticket);
  // True for a ticket that was given.
  bool WasGiven(uint64_t ticket);
  // False when the end has come. A file that waits ends as soon as a thread is between two messages.
  bool Cancel(uint64_t ticket);

  // Cancels all that there is, and gives the last ticket of it.
  uint64_t CancelAll();
  // Waits until the callbacks of all files up to this ticket, which have been cancelled, have been told the end. Called
  // from a callback it does not wait for that one, nor for callbacks that wait here themselves.
  void AwaitEnds(uint64_t last);

 private:
  struct Job;
  using Queue = std::list<Job*>;
  struct Job {
    uint64_t ticket = 0;
    std::unique_ptr<FileSending> sending;
    Queue* queue = nullptr;  // that it waits in
    Queue::iterator place{};
    bool isSent = false;     // its turn came before it was cancelled
    std::thread::id thread;  // that has it
  };
  struct Device {
    Queue waiting;
    bool isBusy = false;
  };
  // A thread in AwaitEnds, on its stack.
  struct Waiter {
    std::thread::id thread;
    Waiter* next = nullptr;
  };

  uint64_t Enter(std::unique_ptr<FileSending> sending, uint64_t& ticket);
  void Withdraw(uint64_t ticket);
  void CancelWaiting(Job& job) ZEL_REQUIRES(mutex_);
  void DropIfUnused(const ZelDeviceId& device) ZEL_REQUIRES(mutex_);

  bool WantsWorker();
  void StartWorker();
  void StartHelp() noexcept;
  [[noreturn]] void Work();
  Job& AwaitJob();
  Job* TakeNext() ZEL_REQUIRES(mutex_);
  Job* TakeCancelled() ZEL_REQUIRES(mutex_);
  Job* TakeFirst(Queue& queue) ZEL_REQUIRES(mutex_);
  Device* FirstReady() ZEL_REQUIRES(mutex_);
  void Send(Job& job);
  void BeginSending(FileSending& sending);
  void LookRound();
  void EndCancelled();
  void Finish(const Job& job);

  void EndOwn(uint64_t last);
  void Leave(const Waiter& waiter) ZEL_REQUIRES(mutex_);
  bool HasJob(std::thread::id thread) const ZEL_REQUIRES(mutex_);
  bool IsAwaited(uint64_t last, bool bySender) const ZEL_REQUIRES(mutex_);
  bool IsWaiting(std::thread::id thread) const ZEL_REQUIRES(mutex_);

  Mutex mutex_;
  CondVar changed_;
  std::map<uint64_t, Job> jobs_ ZEL_GUARDED_BY(mutex_);  // that have not ended, by ticket
  std::map<ZelDeviceId, Device, DeviceIdLess> devices_
      ZEL_GUARDED_BY(mutex_);               // that a file goes to, or waits for
  Queue cancelled_ ZEL_GUARDED_BY(mutex_);  // before their turn
  uint64_t lastTicket_ ZEL_GUARDED_BY(mutex_) = 0;
  Waiter* waiters_ ZEL_GUARDED_BY(mutex_) = nullptr;
  size_t started_ ZEL_GUARDED_BY(mutex_) = 0;
  bool startFailed_ ZEL_GUARDED_BY(mutex_) = false;  // since the last file was submitted
  size_t idle_ ZEL_GUARDED_BY(mutex_) = 0;
  size_t busyDevices_ ZEL_GUARDED_BY(mutex_) = 0;

  Mutex startMutex_;
  std::array<Thread, kMostWorkers> threads_;
  DeviceConnections connections_;
};

}  // namespace libzel
