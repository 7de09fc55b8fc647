// The process's one transfer thread: it carries out all file transfers, one after the other, in order of submission.
// Any thread may submit. The mutex is never held during a connect, a step or a callback.
#pragma once

#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "zelclient/CFileTransfer.h"

namespace libzel {

class CFileThread {
 public:
  static CFileThread& Instance();

  // Gives the transfer its device's connection, queues it and starts the thread if it does not run. A thread that
  // cannot be started ends the process.
  void Submit(std::unique_ptr<CFileTransfer> transfer);

 private:
  // A device's connection; while `isCreating`, one thread makes it and the others wait.
  struct DeviceConnection {
    std::weak_ptr<IZelPeerConnection> connection;
    bool isCreating = false;
  };

  std::weak_ptr<IZelPeerConnection> ConnectionTo(const ZelDeviceId& device);
  void Enqueue(std::unique_ptr<CFileTransfer> transfer) noexcept;
  CFileTransfer* First();
  void Remove(const CFileTransfer* transfer);
  [[noreturn]] void svc();

  std::mutex mutex_;
  std::condition_variable created_;
  std::thread worker_;
  std::list<std::unique_ptr<CFileTransfer>> queue_;
  std::map<std::string, DeviceConnection> connections_;
};

}  // namespace libzel
