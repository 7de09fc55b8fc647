// Keeps a fleet and the bucket zel_devices in step: devices that were found come from there, and how their
// links are goes there.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "BucketWatch.h"
#include "DeviceTable.h"
#include "Fleet.h"
#include "Nats.h"
#include "Reminder.h"

namespace zelgate {

class Directory {
 public:
  // `isLeaseValid` is asked before each write: who has lost a device says nothing of it.
  Directory(Nats& nats, Fleet& fleet, std::function<bool()> isLeaseValid);
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

 private:
  void OnFound(const BucketContent& content);
  void Run();
  void WriteLinks();

  Nats& nats_;
  Fleet& fleet_;
  const std::function<bool()> isLeaseValid_;
  std::map<std::string, DeviceFacts> known_;   // by key; on the thread of the watch
  std::map<std::string, DeviceLink> written_;  // by token; on the thread that writes
  KeyValue bucket_;
  bool isOpen_ = false;
  Reminder reminder_;

  std::mutex mutex_;
  std::condition_variable changed_;
  bool isStopping_ = false;  // guarded by the mutex

  std::thread thread_;
  BucketWatch watch_;
};

}  // namespace zelgate
