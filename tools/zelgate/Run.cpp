// zelgate run
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Asker.h"
#include "BucketWatch.h"
#include "Commands.h"
#include "Directory.h"
#include "EventWriter.h"
#include "Fleet.h"
#include "Journal.h"
#include "Nats.h"
#include "Profiles.h"
#include "Reminder.h"
#include "ShardKeeper.h"
#include "Signals.h"
#include "Streams.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kRunLook{250};
constexpr std::chrono::milliseconds kTryPause{500};
constexpr std::chrono::seconds kLastEvents{5};

// The links of a fleet that went down together must not come back in one instant. What is unsent when a
// device is let go gets out, and one that is gone without a word is noticed.
zel::Options LibraryOptions() {
  using std::chrono::seconds;
  zel::Options options;
  options.Set(zel::Option::kJitterPercent, 100);
  options.Set(zel::TimeOption::kReconnectMax, seconds(30));
  options.Set(zel::TimeOption::kCloseWait, seconds(1));
  options.Set(zel::TimeOption::kDeadPeer, seconds(10));
  // Each device's failures are told once, in this program's own words.
  options.Log(nullptr);
  return options;
}

// What `zelgate run` is made of, in the order in which it needs each other.
class Gate {
 public:
  explicit Gate(const Config& config)
      : config_(config),
        library_(LibraryOptions()),
        subjects_(config.site),
        writer_(nats_, config.limits.window) {}
  ~Gate() {
    Stop();
    nats_.Close();  // its callbacks use what goes before it
  }

  zel::Result LibraryStart() const { return library_.Start(); }
  NatsResult Connect() {
    NatsEvents events;
    events.onUp = [this] { writer_.Resume(); };
    return nats_.Start(config_.nats, "zelgate run " + config_.site, events);
  }
  // False when NATS has closed the connection for good.
  bool IsGood() const { return !nats_.IsClosed(); }

  // Begins to serve as soon as NATS has what that takes. To be called now and then until it gives true.
  bool TryServe() {
    if (!nats_.IsUp()) return false;
    NatsResult ready = MakeSiteStreams(nats_, config_);
    if (ready) ready = writer_.Start();
    if (ready) Serve();
    if (!ready) reminder_.Warn(ready.why);
    return ready.IsOk();
  }

 private:
  void Serve() {
    const auto isLeaseValid = [this] { return keeper_->IsValid(); };
    const FleetLimits limits{config_.limits.shards, static_cast<size_t>(config_.limits.devices)};
    keeper_ = std::make_unique<ShardKeeper>(nats_, config_.limits.shards, MakeTasks());
    asker_ = std::make_unique<Asker>(nats_, subjects_, isLeaseValid);
    fleet_ = std::make_unique<Fleet>(library_, writer_, *asker_, subjects_, limits);
    directory_ = std::make_unique<Directory>(nats_, *fleet_, isLeaseValid);
    profileWatch_ = std::make_unique<BucketWatch>(
        nats_, kProfileBucket, ">", [this](const BucketContent& content) { OnProfiles(content); });
  }

  ShardTasks MakeTasks() {
    ShardTasks tasks;
    tasks.onTaken = [this](const std::vector<int>& shards) { fleet_->Take(shards, keeper_->Holder()); };
    tasks.onLost = [this](const std::vector<int>& shards) { fleet_->Drop(shards); };
    tasks.isFull = [this] { return fleet_->IsFull(); };
    tasks.excess = [this] { return fleet_->Excess(); };
    tasks.devices = [this] { return fleet_->Served(); };
    return tasks;
  }

  // Shards are taken when the profiles are known: before, nothing of a device would be heard.
  void OnProfiles(const BucketContent& content) {
    FollowProfiles(content, profiles_);
    fleet_->SetProfiles(profiles_);
    if (!std::exchange(isKeeping_, true)) keeper_->Start();
  }

  void Stop() {
    if (keeper_ == nullptr) return;
    profileWatch_.reset();  // it starts the keeper
    keeper_->Stop();
    directory_.reset();
    fleet_.reset();
    asker_.reset();
    if (writer_.Drain(kLastEvents)) return;
    Say(Priority::kWarning,
        "ends with events that the stream has not acknowledged, which may be lost: NATS was away, or slow");
  }

  const Config& config_;
  zel::Library library_;
  const Subjects subjects_;
  Nats nats_;
  EventWriter writer_;
  std::unique_ptr<ShardKeeper> keeper_;
  std::unique_ptr<Asker> asker_;
  std::unique_ptr<Fleet> fleet_;
  std::unique_ptr<Directory> directory_;
  std::map<std::string, Profile> profiles_;  // on the thread of their watch, as the next one
  bool isKeeping_ = false;
  Reminder reminder_;
  std::unique_ptr<BucketWatch> profileWatch_;
};

int RunGate(const Config& config) {
  Gate gate(config);
  if (!gate.LibraryStart()) {
    Say(Priority::kError, std::string("the system's network does not start: ") + gate.LibraryStart().Text());
    return kFailed;
  }
  const NatsResult connected = gate.Connect();
  if (!connected) {
    Say(Priority::kError, connected.why);
    return kFailed;
  }
  bool isServing = false;
  while (gate.IsGood()) {
    isServing = isServing || gate.TryServe();
    if (WaitForStop(isServing ? kRunLook : kTryPause)) return kDone;
  }
  return kFailed;
}

constexpr const char* kRunHelp = R"(Example:
  zelgate run --config /etc/zelgate/plant1.toml

Serves its share of the site's devices, which zelgate find has found or the list of the
configuration names. Start as many as you like, on one host or several: they share the
devices, and take over from one that ends. Ends with SIGTERM or SIGINT.)";

}  // namespace

void AddRun(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("run", "Serve the devices of a site");
  command->footer(kRunHelp);
  command->callback([&task] { task.run = RunGate; });
}

}  // namespace zelgate
