// zelgate run
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Asker.h"
#include "BucketWatch.h"
#include "Commands.h"
#include "Directory.h"
#include "EventWriter.h"
#include "Fleet.h"
#include "Http.h"
#include "Journal.h"
#include "Metrics.h"
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
constexpr std::chrono::seconds kStreamLook{30};
constexpr std::chrono::minutes kStreamWarning{10};  // between two warnings

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

  // Tells figures from here on. Why it cannot, one sentence, or nothing.
  std::string Tell(const std::string& listen) {
    http_ = std::make_unique<Http>();
    return http_->Start(listen,
                        {{"/metrics",
                          [this](const std::string&) {
                            return HttpAnswer{200, MetricsText(Figures())};
                          }},
                         {"/healthz", [this](const std::string&) { return HealthPage(HealthOf(Figures())); }},
                         {"/probe", [this](const std::string& device) { return ProbePage(device); }}});
  }

  // To be called now and then while it serves.
  void LookAtStream() {
    const auto now = GateClock::now();
    if (now < nextLook_ || !nats_.IsUp()) return;
    nextLook_ = now + kStreamLook;
    const std::string stream = EventStreamName(config_.site);
    StreamUse use;
    if (!ReadStreamUse(nats_, stream, use)) return;  // the next look may say more
    if (use.IsNearlyFull() && now >= nextWarning_) {
      Say(Priority::kWarning, NearlyFullText(stream, use));
      nextWarning_ = now + kStreamWarning;
    }
    const std::lock_guard lock(streamMutex_);
    stream_ = use;
  }

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
  // On threads of the HTTP server.
  GateFigures Figures() const {
    GateFigures figures;
    figures.site = config_.site;
    figures.isNatsUp = nats_.IsUp();
    figures.events = writer_.GetFigures();
    if (!isServing_) return figures;
    figures.isServing = keeper_->IsValid();
    figures.shards = keeper_->Count();
    figures.requests = asker_->GetFigures();
    figures.devicesLeftOut = fleet_->Unserved();
    for (const auto& device : fleet_->Devices()) {
      ++figures.devices;
      figures.devicesUp += device->IsUp() ? 1U : 0U;
      figures.dropped += device->Dropped();
    }
    const std::lock_guard lock(streamMutex_);
    figures.stream = stream_;
    return figures;
  }

  static HttpAnswer HealthPage(const Health& health) { return {health.isGood ? 200 : 503, health.text}; }

  HttpAnswer ProbePage(const std::string& device) const {
    const std::string token = DeviceToken(device).value_or(device);
    if (!DeviceOfToken(token)) return {400, "write /probe?device=10.20.0.7.0.1, say\n"};
    if (isServing_) {
      for (const auto& served : fleet_->Devices()) {
        if (served->Token() == token) return {200, ProbeText(served->Facts(), served->Link())};
      }
    }
    return {404, "this process does not serve that device; zelgate status shows who does\n"};
  }

  void Serve() {
    const auto isLeaseValid = [this] { return keeper_->IsValid(); };
    const FleetLimits limits{config_.limits.shards, static_cast<size_t>(config_.limits.devices)};
    keeper_ = std::make_unique<ShardKeeper>(nats_, config_.limits.shards, MakeTasks());
    asker_ = std::make_unique<Asker>(nats_, subjects_, isLeaseValid);
    fleet_ = std::make_unique<Fleet>(library_, writer_, *asker_, subjects_, limits);
    directory_ = std::make_unique<Directory>(nats_, *fleet_, isLeaseValid);
    profileWatch_ = std::make_unique<BucketWatch>(
        nats_, kProfileBucket, ">", [this](const BucketContent& content) { OnProfiles(content); });
    isServing_ = true;
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
    http_.reset();  // it looks at all the others
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
  std::atomic<bool> isServing_ = false;  // what it has been set for stays until the HTTP server has gone
  GateClock::time_point nextLook_;
  GateClock::time_point nextWarning_;
  mutable std::mutex streamMutex_;
  StreamUse stream_;  // guarded by it
  std::unique_ptr<Http> http_;
};

int RunGate(const Config& config, const std::string& listen) {
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
  const std::string deaf = listen.empty() ? "" : gate.Tell(listen);
  if (!deaf.empty()) {
    Say(Priority::kError, deaf);
    return kFailed;
  }
  bool isServing = false;
  while (gate.IsGood()) {
    isServing = isServing || gate.TryServe();
    if (isServing) gate.LookAtStream();
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
  auto listen = std::make_shared<std::string>();
  command->add_option("--http", *listen, "Tell figures at this address, not at http.listen")
      ->type_name("HOST:PORT");
  command->footer(kRunHelp);
  command->callback([listen, &task] {
    task.run = [listen](const Config& config) {
      return RunGate(config, listen->empty() ? config.http.listen : *listen);
    };
  });
}

}  // namespace zelgate
