// The devices that this process serves: those that are known, in the shards that are its own, with what their
// profiles say.
#pragma once

#include <libzel/libzel.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Asker.h"
#include "DeviceTable.h"
#include "EventWriter.h"
#include "Profile.h"
#include "ServedDevice.h"
#include "Subjects.h"

namespace zelgate {

struct FleetLimits {
  int shards = 1024;
  size_t devices = 2000;
};

// Any thread.
class Fleet {
 public:
  Fleet(zel::Library& library, EventWriter& writer, Asker& asker, const Subjects& subjects,
        FleetLimits limits);
  // Lets all devices go.
  ~Fleet();
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  // A device is there, or is another than before. An identifier that is none is said and left alone.
  void SetDevice(const DeviceFacts& facts);
  void RemoveDevice(const std::string& id);
  // Changes the routes of those devices alone whose profiles say something else now.
  void SetProfiles(std::map<std::string, Profile> profiles);

  // These shards are this process's, in the name of this holder. Their devices are opened in the background,
  // at a pace.
  void Take(const std::vector<int>& shards, const std::string& holder);
  // They are not any more: when it returns nothing of their devices is running.
  void Drop(const std::vector<int>& shards);

  // How many are served, and how many are not because the limit is reached.
  size_t Served() const;
  size_t Unserved() const;
  // True from when the limit is reached until there is room again.
  bool IsFull() const;
  // The shards of those.
  std::vector<int> Excess() const;
  // Of the devices in this process's shards, by token: their links, or why they are not served.
  std::map<std::string, DeviceLink> Links() const;
  std::vector<std::shared_ptr<ServedDevice>> Devices() const;

 private:
  using DevicePtr = std::shared_ptr<ServedDevice>;

  void Run();
  bool WorkOnce();
  void OpenOne(const DeviceFacts& facts, const std::string& token);
  void Close(const std::vector<DevicePtr>& devices);
  void FollowProfiles();
  void NoteFullLocked(size_t served, size_t unserved);
  void SayFull() const;
  bool IsWantedLocked(const std::string& token, const DeviceFacts& facts) const;
  std::vector<DevicePtr> TakeUnwantedLocked();

  zel::Library& library_;
  EventWriter& writer_;
  Asker& asker_;
  const Subjects subjects_;
  const FleetLimits limits_;
  const std::string epoch_;

  // Held over what opens, changes and closes devices, one at a time; never with a lock of theirs.
  std::mutex workMutex_;

  mutable std::mutex mutex_;  // guards the following
  std::condition_variable changed_;
  std::map<std::string, DeviceFacts> known_;  // by token
  std::map<std::string, Profile> profiles_;
  std::map<int, std::string> own_;  // shards, and in whose name
  std::map<std::string, DevicePtr> served_;
  size_t unserved_ = 0;
  std::set<int> excess_;
  bool isFull_ = false;
  uint64_t servings_ = 0;
  bool hasWork_ = false;
  bool haveProfilesChanged_ = false;
  bool isStopping_ = false;

  std::thread thread_;
};

}  // namespace zelgate
