#include "Directory.h"

#include <chrono>
#include <optional>
#include <utility>

#include "Streams.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kWriteEvery{1000};

}  // namespace

Directory::Directory(Nats& nats, Fleet& fleet, std::function<bool()> isLeaseValid)
    : nats_(nats),
      fleet_(fleet),
      isLeaseValid_(std::move(isLeaseValid)),
      thread_([this] { Run(); }),
      watch_(nats, kDeviceBucket, FindingKey(">"),
             [this](const BucketContent& content) { OnFound(content); }) {}

Directory::~Directory() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Directory::OnFound(const BucketContent& content) {
  std::map<std::string, DeviceFacts> fresh;
  for (const auto& [key, value] : content) {
    const auto finding = ParseFinding(value);
    if (finding)
      fresh[key] = {finding->id, finding->address, finding->name, finding->serial, !finding->twins.empty()};
  }
  for (const auto& [key, facts] : known_) {
    if (!fresh.contains(key)) fleet_.RemoveDevice(facts.id);
  }
  for (const auto& [key, facts] : fresh) {
    const auto before = known_.find(key);
    if (before == known_.end() || before->second != facts) fleet_.SetDevice(facts);
  }
  known_ = std::move(fresh);
}

void Directory::Run() {
  std::unique_lock lock(mutex_);
  while (!isStopping_) {
    lock.unlock();
    if (nats_.IsUp()) WriteLinks();
    lock.lock();
    (void)changed_.wait_for(lock, kWriteEvery, [this] { return isStopping_; });
  }
}

void Directory::WriteLinks() {
  const std::map<std::string, DeviceLink> links = fleet_.Links();
  if (!isOpen_) isOpen_ = bucket_.Open(nats_, kDeviceBucket).IsOk();
  if (!isOpen_) return;  // the watch of the same bucket says why
  std::erase_if(written_, [&](const auto& link) { return !links.contains(link.first); });
  for (const auto& [token, link] : links) {
    const auto before = written_.find(token);
    if (before != written_.end() && before->second == link) continue;
    if (!isLeaseValid_()) return;
    const NatsResult put = bucket_.Put(LinkKey(token), ToJson(link));
    if (!put) return reminder_.Warn(put.why);
    written_[token] = link;
  }
}

}  // namespace zelgate
