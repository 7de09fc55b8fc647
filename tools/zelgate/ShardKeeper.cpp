#include "ShardKeeper.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

#include "Journal.h"
#include "ShardShare.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kPause{250};
// Between two renewals there is time for so many writes.
constexpr size_t kMostAtOnce = 64;

}  // namespace

ShardKeeper::ShardKeeper(Nats& nats, int shards, ShardTasks tasks)
    : nats_(nats), shards_(shards), tasks_(std::move(tasks)), process_(MakeHolderName()), book_(shards) {}

ShardKeeper::~ShardKeeper() { Stop(); }

void ShardKeeper::Start() {
  BeginAnew();
  thread_ = std::thread([this] { Run(); });
}

void ShardKeeper::Stop() {
  isStopping_ = true;
  if (thread_.joinable()) thread_.join();
}

std::string ShardKeeper::Holder() const {
  const std::lock_guard lock(holderMutex_);
  return holder_;
}

void ShardKeeper::Run() {
  while (!isStopping_) Step();
  Drop({own_.begin(), own_.end()});
  if (lease_ == nullptr || !nats_.IsUp()) return;
  const NatsResult released = lease_->Release();
  if (!released) Complain(released);
}

void ShardKeeper::Step() {
  if (!nats_.IsUp() || !Listen()) {
    std::this_thread::sleep_for(kPause);
  } else {
    Hear();
    lease_->SetValue(Describe());
    Complain(lease_->Step());
  }
  // Also while NATS is away: what is held is over then, and its devices are let go.
  const bool isOver = !own_.empty() && !lease_->IsValid();
  if (isOver || lease_->IsLost()) return BeginAnew();
  if (!isComplete_ || !lease_->IsValid()) return;
  EndDead();
  Share();
}

// Every holder has a name that was never used, so that what is written in an earlier one's name means
// nothing.
void ShardKeeper::BeginAnew() {
  term_.End();
  if (!own_.empty()) {
    Say(Priority::kWarning,
        "lost the lease of " + std::to_string(own_.size()) +
            " shards: it was not renewed in time, because NATS was away or this process stood " +
            "still; their devices are let go, and shards are taken again");
  }
  // Requests that came meanwhile are refused as long as their subscriptions are there: first let all come in.
  if (!own_.empty() && nats_.IsUp()) (void)nats_.Flush(std::chrono::seconds(1));
  Drop({own_.begin(), own_.end()});
  const std::string earlier = Holder();
  if (!earlier.empty()) book_.End(earlier);
  {
    const std::lock_guard lock(holderMutex_);
    holder_ = process_ + "-" + std::to_string(++generation_);
  }
  lease_ = std::make_unique<Lease>(bucket_, term_, HolderKey(holder_), Describe(), AfterLoss::kGiveUp);
  watcher_.reset();
}

bool ShardKeeper::Listen() {
  if (watcher_ != nullptr) return true;
  auto watcher = std::make_unique<KeyWatcher>();
  NatsResult result = bucket_.Open(nats_, kLeaseBucket);
  if (result) result = bucket_.Watch(">", *watcher);
  Complain(result);
  if (!result) return false;
  book_ = ShardBook(shards_);
  isComplete_ = false;
  watcher_ = std::move(watcher);
  return true;
}

void ShardKeeper::Hear() {
  std::optional<KeyEntry> entry;
  auto patience = kPause;
  do {
    const bool wasComplete = isComplete_;
    const NatsResult result = watcher_->Next(patience, entry, isComplete_);
    if (!result) {
      Complain(result);
      return watcher_.reset();
    }
    if (entry && IsEarlierSelf(entry->key)) {
      if (!entry->isDeleted && !entry->value.empty()) leftOver_.insert(entry->key);
    } else if (entry) {
      book_.See(entry->key, entry->value, entry->revision, entry->isDeleted, GateClock::now());
    }
    patience = std::chrono::milliseconds(isComplete_ && wasComplete ? 1 : 250);
  } while (entry && !isStopping_);
}

// What this process held in an earlier name it has let go of: nobody need wait for the end of that.
bool ShardKeeper::IsEarlierSelf(const std::string& key) const {
  return key.starts_with(HolderKey(process_) + "-") && key != HolderKey(Holder());
}

// The write with the revision that was seen last ends a holder: its own next renewal then fails. If it has
// renewed after all, this write is the one that fails.
void ShardKeeper::EndDead() {
  for (const std::string& key : std::exchange(leftOver_, {}))
    (void)bucket_.Delete(key);  // others end it else
  for (const ShardBook::Dead& dead : book_.DeadHolders(GateClock::now())) {
    if (dead.holder == Holder()) return watcher_.reset();  // it is this process that hears nothing
    uint64_t revision = 0;
    const NatsResult ended = bucket_.Update(HolderKey(dead.holder), "", dead.revision, revision);
    if (!ended) {
      if (!IsConflict(ended)) Complain(ended);
      return watcher_.reset();
    }
    Say(Priority::kWarning,
        "the holder " + dead.holder + " has not renewed its lease for " +
            std::to_string(kOverAfter.count() / 1000) +
            " s: its shards go to those that are there; see whether its process or host stands still");
    book_.End(dead.holder);
    (void)bucket_.Delete(HolderKey(dead.holder));  // the mark is as good
  }
}

void ShardKeeper::Share() {
  FollowBook();
  const std::vector<std::string> holders = book_.Holders();
  const std::string self = Holder();
  if (std::find(holders.begin(), holders.end(), self) == holders.end()) return;  // not heard of itself yet
  std::set<std::string> full = book_.FullHolders();
  if (tasks_.isFull()) full.insert(self);  // the key says so a second later
  const ShardPlan plan = PlanShards(book_.Owners(), holders, full, self, kMostAtOnce);
  for (const int shard : plan.take) WriteOwner(shard, self);
  FollowBook();
  HandOver(plan.handOver.empty() ? Excess(holders) : plan.handOver);
}

// What this process cannot serve is another's, if there is one with room.
std::vector<int> ShardKeeper::Excess(const std::vector<std::string>& holders) const {
  const std::set<std::string> full = book_.FullHolders();
  const auto hasRoom = [&](const std::string& holder) { return holder != holder_ && !full.contains(holder); };
  if (std::none_of(holders.begin(), holders.end(), hasRoom)) return {};
  std::vector<int> shards = tasks_.excess();
  std::erase_if(shards, [&](int shard) { return !own_.contains(shard); });
  if (shards.size() > kMostAtOnce) shards.resize(kMostAtOnce);
  return shards;
}

void ShardKeeper::HandOver(const std::vector<int>& shards) {
  if (shards.empty()) return;
  Say(Priority::kInfo, "hands over " + std::to_string(shards.size()) + " of " + std::to_string(own_.size()) +
                           " shards, so that all holders have their share");
  Drop(shards);
  for (const int shard : shards) WriteOwner(shard, "");
}

// A write that came to nothing changes nothing here: what the watcher tells next is what holds.
void ShardKeeper::WriteOwner(int shard, const std::string& holder) {
  if (watcher_ == nullptr) return;
  const std::string key = ShardKey(shard);
  const auto last = book_.RevisionOf(shard);
  uint64_t revision = 0;
  const NatsResult written =
      last ? bucket_.Update(key, holder, *last, revision) : bucket_.Create(key, holder, revision);
  if (written) return book_.See(key, holder, revision, false, GateClock::now());
  if (IsConflict(written)) return;
  Complain(written);
  watcher_.reset();
}

void ShardKeeper::FollowBook() {
  const std::vector<std::string> owners = book_.Owners();
  const std::string self = Holder();
  std::vector<int> taken;
  std::vector<int> lost;
  for (int shard = 0; shard < shards_; ++shard) {
    const bool isOwn = owners[static_cast<size_t>(shard)] == self;
    if (isOwn && !own_.contains(shard)) taken.push_back(shard);
    if (!isOwn && own_.contains(shard)) lost.push_back(shard);
  }
  Drop(lost);
  own_.insert(taken.begin(), taken.end());
  count_ = own_.size();
  if (!taken.empty()) tasks_.onTaken(taken);
}

void ShardKeeper::Drop(const std::vector<int>& shards) {
  if (shards.empty()) return;
  tasks_.onLost(shards);
  for (const int shard : shards) own_.erase(shard);
  count_ = own_.size();
}

std::string ShardKeeper::Describe() const {
  const nlohmann::json value = {{"holder", Holder()},
                                {"shards", own_.size()},
                                {"devices", tasks_.devices()},
                                {"full", tasks_.isFull()}};
  return value.dump();
}

void ShardKeeper::Complain(const NatsResult& result) {
  if (!result) reminder_.Warn("leases of shards: " + result.why);
}

}  // namespace zelgate
