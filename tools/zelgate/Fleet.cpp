#include "Fleet.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <random>
#include <utility>

#include "Journal.h"
#include "ShardShare.h"

namespace zelgate {
namespace {

// A fleet that is opened at once would call its devices in one instant, and ask this host for thousands of
// threads.
constexpr size_t kOpenedAtOnce = 30;
constexpr std::chrono::milliseconds kOpenPause{100};
constexpr size_t kClosers = 16;

std::string MakeEpoch() {
  std::random_device random;
  std::array<char, 24> text{};
  (void)std::snprintf(text.data(), text.size(), "%08x%08x", random(), random());
  return text.data();
}

}  // namespace

Fleet::Fleet(zel::Library& library, EventWriter& writer, Asker& asker, const Subjects& subjects,
             FleetLimits limits)
    : library_(library),
      writer_(writer),
      asker_(asker),
      subjects_(subjects),
      limits_(limits),
      epoch_(MakeEpoch()),
      thread_([this] { Run(); }) {}

Fleet::~Fleet() {
  std::vector<DevicePtr> all;
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    own_.clear();
  }
  changed_.notify_all();
  thread_.join();
  {
    const std::lock_guard lock(mutex_);
    all = TakeUnwantedLocked();
  }
  Close(all);
}

// ---- What is known ----------------------------------------------------------------------------------------

void Fleet::SetDevice(const DeviceFacts& facts) {
  const auto token = DeviceToken(facts.id);
  if (!token) {
    return Say(Priority::kWarning, "the device " + facts.name + " has an identifier that is none, " +
                                       facts.id + ": it is not served; give it one of six numbers (zel id)");
  }
  if (facts.hasTwins) {
    Say(Priority::kError, "several devices have the identifier " + facts.id +
                              ": none of them is served; give all but one another (zel id, zel doctor)");
  }
  {
    const std::lock_guard lock(mutex_);
    known_[*token] = facts;
    hasWork_ = true;
  }
  changed_.notify_all();
}

void Fleet::RemoveDevice(const std::string& id) {
  const auto token = DeviceToken(id);
  {
    const std::lock_guard lock(mutex_);
    if (!token || known_.erase(*token) == 0) return;
    hasWork_ = true;
  }
  changed_.notify_all();
}

void Fleet::SetProfiles(std::map<std::string, Profile> profiles) {
  {
    const std::lock_guard lock(mutex_);
    profiles_ = std::move(profiles);
    haveProfilesChanged_ = hasWork_ = true;
  }
  changed_.notify_all();
}

// ---- Shards -----------------------------------------------------------------------------------------------

void Fleet::Take(const std::vector<int>& shards, const std::string& holder) {
  {
    const std::lock_guard lock(mutex_);
    for (const int shard : shards) own_[shard] = holder;
    hasWork_ = true;
  }
  changed_.notify_all();
}

void Fleet::Drop(const std::vector<int>& shards) {
  const std::lock_guard work(workMutex_);
  std::vector<DevicePtr> unwanted;
  {
    const std::lock_guard lock(mutex_);
    for (const int shard : shards) own_.erase(shard);
    unwanted = TakeUnwantedLocked();
    hasWork_ = true;
  }
  changed_.notify_all();
  Close(unwanted);
}

bool Fleet::IsWantedLocked(const std::string& token, const DeviceFacts& facts) const {
  const auto found = known_.find(token);
  return found != known_.end() && found->second == facts && !facts.hasTwins &&
         own_.contains(ShardOf(token, limits_.shards));
}

std::vector<Fleet::DevicePtr> Fleet::TakeUnwantedLocked() {
  std::vector<DevicePtr> unwanted;
  for (auto at = served_.begin(); at != served_.end();) {
    const bool stays = IsWantedLocked(at->first, at->second->Facts());
    if (!stays) unwanted.push_back(std::move(at->second));
    at = stays ? std::next(at) : served_.erase(at);
  }
  return unwanted;
}

// Each may take a while: data that must get out, a callback that runs.
void Fleet::Close(const std::vector<DevicePtr>& devices) {
  std::atomic<size_t> next = 0;
  const auto work = [&] {
    for (size_t i = next++; i < devices.size(); i = next++) {
      asker_.Forget(devices[i]->Token());
      devices[i]->Close();
    }
  };
  std::vector<std::thread> closers;
  for (size_t i = 1; i < std::min(kClosers, devices.size()); ++i) closers.emplace_back(work);
  work();
  for (std::thread& closer : closers) closer.join();
}

// ---- The thread -------------------------------------------------------------------------------------------

void Fleet::Run() {
  std::unique_lock lock(mutex_);
  while (!isStopping_) {
    changed_.wait(lock, [this] { return isStopping_ || hasWork_; });
    hasWork_ = false;
    lock.unlock();
    FollowProfiles();
    const bool isMore = WorkOnce();
    lock.lock();
    hasWork_ = hasWork_ || isMore;
    if (isMore) (void)changed_.wait_for(lock, kOpenPause, [this] { return isStopping_; });
  }
}

// Lets go what is not wanted as it is, and opens some of those that are missing. True when there are more.
bool Fleet::WorkOnce() {
  const std::lock_guard work(workMutex_);
  std::vector<DevicePtr> unwanted;
  std::vector<std::pair<std::string, DeviceFacts>> missing;
  bool isMore = false;
  bool isNewlyFull = false;
  {
    const std::lock_guard lock(mutex_);
    unwanted = TakeUnwantedLocked();
    size_t unserved = 0;
    excess_.clear();
    for (const auto& [token, facts] : known_) {
      if (served_.contains(token) || !IsWantedLocked(token, facts)) continue;
      const bool hasRoom = served_.size() + missing.size() < limits_.devices;
      isMore = isMore || (hasRoom && missing.size() == kOpenedAtOnce);
      if (hasRoom && missing.size() < kOpenedAtOnce) missing.emplace_back(token, facts);
      if (hasRoom) continue;
      ++unserved;
      excess_.insert(ShardOf(token, limits_.shards));
    }
    const bool wasFull = isFull_;
    NoteFullLocked(served_.size() + missing.size(), unserved);
    isNewlyFull = isFull_ && !wasFull;
    unserved_ = unserved;
  }
  if (isNewlyFull) SayFull();
  Close(unwanted);
  for (const auto& [token, facts] : missing) OpenOne(facts, token);
  return isMore;
}

// Not before a quarter is free again is there room: else shards would go to and fro.
void Fleet::NoteFullLocked(size_t served, size_t unserved) {
  if (unserved != 0 || served >= limits_.devices) isFull_ = true;
  if (unserved == 0 && served < limits_.devices - limits_.devices / 4) isFull_ = false;
}

void Fleet::SayFull() const {
  Say(Priority::kWarning,
      "serves " + std::to_string(limits_.devices) +
          " devices, as many as it may, and leaves more to other processes: start another " +
          "zelgate run if none has room, or raise limits.devices");
}

void Fleet::OpenOne(const DeviceFacts& facts, const std::string& token) {
  DevicePtr device;
  Routes routes;
  {
    const std::lock_guard lock(mutex_);
    if (isStopping_) return;
    const std::string epoch = epoch_ + "-" + std::to_string(++servings_);
    device = std::make_shared<ServedDevice>(facts, token, subjects_, writer_,
                                            own_[ShardOf(token, limits_.shards)], epoch);
    served_[token] = device;
    routes = RoutesOf(profiles_, facts);
  }
  const auto id = zel::DeviceId::Parse(facts.id);
  if (!facts.address.empty() && id) {
    const zel::Result pinned = library_.PinRoute(*id, facts.address);
    if (!pinned) {
      Say(Priority::kWarning, "the device " + facts.id + " has an address that is none, " + facts.address +
                                  ": the identifier's own is called; correct its entry");
    }
  }
  device->Open(routes);
  const NatsResult asked = asker_.Serve(device);
  if (!asked) Say(Priority::kError, "no requests reach " + facts.id + ": " + asked.why);
}

void Fleet::FollowProfiles() {
  const std::lock_guard work(workMutex_);
  std::vector<std::pair<DevicePtr, Routes>> devices;
  {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(haveProfilesChanged_, false)) return;
    for (const auto& [token, device] : served_) {
      devices.emplace_back(device, RoutesOf(profiles_, device->Facts()));
    }
  }
  for (const auto& [device, routes] : devices) device->SetRoutes(routes);
}

size_t Fleet::Served() const {
  const std::lock_guard lock(mutex_);
  return served_.size();
}

size_t Fleet::Unserved() const {
  const std::lock_guard lock(mutex_);
  return unserved_;
}

bool Fleet::IsFull() const {
  const std::lock_guard lock(mutex_);
  return isFull_;
}

std::vector<int> Fleet::Excess() const {
  const std::lock_guard lock(mutex_);
  return {excess_.begin(), excess_.end()};
}

std::map<std::string, DeviceLink> Fleet::Links() const {
  std::map<std::string, DeviceLink> links;
  const std::lock_guard lock(mutex_);
  for (const auto& [token, facts] : known_) {
    const auto shard = own_.find(ShardOf(token, limits_.shards));
    if (shard == own_.end()) continue;
    const auto device = served_.find(token);
    if (device != served_.end()) {
      links[token] = device->second->Link();
    } else if (facts.hasTwins) {
      links[token] = {LinkState::kTwins, "", shard->second, "several devices have this identifier"};
    } else if (unserved_ != 0) {
      links[token] = {LinkState::kRefused, "", shard->second, "limits.devices is reached"};
    }
  }
  return links;
}

std::vector<Fleet::DevicePtr> Fleet::Devices() const {
  const std::lock_guard lock(mutex_);
  std::vector<DevicePtr> devices;
  for (const auto& [token, device] : served_) devices.push_back(device);
  return devices;
}

}  // namespace zelgate
