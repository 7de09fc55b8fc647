// The process's one transfer thread: it carries out all file transfers, one after the other, in order of submission.
// Any thread may submit. The mutex is never held during a connect, a step or a callback.
#pragma once

#include <list>
#include <memory>

#include "utils/Mutex.h"
#include "utils/Thread.h"
#include "zelclient/CFileTransfer.h"
#include "zelclient/DeviceConnections.h"

namespace libzel {

class CFileThread {
 public:
  static CFileThread& Instance();

  // Gives the transfer its device's connection, queues it and starts the thread if it does not run. A thread that
  // cannot be started ends the process.
  void Submit(std::unique_ptr<CFileTransfer> transfer);

 private:
  void StartWorker() noexcept;
  CFileTransfer* First();
  void Remove(const CFileTransfer* transfer);
  void Finish(CFileTransfer& transfer);
  [[noreturn]] void svc();

  Mutex mutex_;
  Thread worker_;
  std::list<std::unique_ptr<CFileTransfer>> queue_ ZEL_GUARDED_BY(mutex_);
  DeviceConnections connections_;
};

}  // namespace libzel
