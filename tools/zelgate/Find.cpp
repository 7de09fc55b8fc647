// zelgate find
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include "Commands.h"
#include "DeviceTable.h"
#include "Findings.h"
#include "Journal.h"
#include "Lease.h"
#include "Nats.h"
#include "Scanner.h"
#include "Signals.h"
#include "Streams.h"
#include "Subjects.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kFindStep{250};
// The first question leaves a second after a round began, the next ones every second or two.
constexpr std::chrono::seconds kFindRound{3};
constexpr std::chrono::seconds kFindPause{60};  // between two lines that say the same failure
constexpr size_t kMostFindLines = 20;           // about devices, a round
constexpr const char* kLeaseKey = "find";

std::string AboutFinding(const DeviceFinding& finding) {
  std::string text = finding.id + " at " + finding.address;
  if (!finding.name.empty()) text += " (" + finding.name + ")";
  return text;
}

void SayTwins(const DeviceFinding& finding) {
  std::string addresses;
  for (const std::string& address : finding.twins) addresses += (addresses.empty() ? "" : " and ") + address;
  Say(Priority::kWarning,
      "several devices call themselves " + finding.id + ": at " + addresses +
          "; none of them is served; give all but one another identifier (zel id set ADDRESS "
          "IDENTIFIER), or switch them off");
}

// Says a failure that lasts once in a while.
class FailureVoice {
 public:
  void Say(const std::string& what) {
    const auto now = std::chrono::steady_clock::now();
    if (what == last_ && now < next_) return;
    zelgate::Say(Priority::kWarning, what);
    last_ = what;
    next_ = now + kFindPause;
  }

 private:
  std::string last_;
  std::chrono::steady_clock::time_point next_;
};

class Finder {
 public:
  explicit Finder(const Config& config) : config_(config), findings_(config.find.devices) {}

  int Run() {
    const NatsResult started = nats_.Start(config_.nats, "zelgate find " + config_.site);
    if (!started) {
      Say(Priority::kError, started.why);
      return kFailed;
    }
    while (!WaitForStop(kFindStep)) {
      if (nats_.IsClosed()) return kFailed;
      if (!Turn()) return kFailed;
    }
    if (lease_) (void)lease_->Release();  // others wait for its end if it cannot be given back
    return kDone;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // False when the process is of no use any more.
  bool Turn() {
    if (!nats_.IsUp() && !lease_) return true;
    if (!lease_ && !Prepare()) return true;
    StepLease();
    if (lease_->IsLost()) {
      Say(Priority::kWarning,
          "somebody else may look for the devices of " + config_.site +
              " now, because the lease could not be renewed in time; this process ends, and waits when it is "
              "started again");
      return false;
    }
    if (!lease_->IsValid()) return StandBy();
    if (!isActive_ && !Begin()) return true;
    Look();
    return true;
  }

  bool Prepare() {
    NatsResult result = MakeSiteStreams(nats_, config_);
    if (result) result = leases_.Open(nats_, kLeaseBucket);
    if (result) result = devices_.Open(nats_, kDeviceBucket);
    if (!result) {
      voice_.Say(result.why);
      return false;
    }
    lease_ = std::make_unique<Lease>(leases_, term_, kLeaseKey, MakeHolderName(), AfterLoss::kGiveUp);
    return true;
  }

  void StepLease() {
    stepped_ = Clock::now();
    const NatsResult result = lease_->Step();
    if (!result) voice_.Say(result.why);
  }

  bool StandBy() {
    if (lease_->OtherHolder().empty() || lease_->OtherHolder() == other_) return true;
    other_ = lease_->OtherHolder();
    Say(Priority::kNotice, other_ + " looks for the devices of " + config_.site + "; this process stands by");
    return true;
  }

  // What is known already, so that nothing is written twice.
  bool Begin() {
    KeyWatcher watcher;
    NatsResult result = devices_.Watch("found.>", watcher);
    DeviceTable table;
    for (bool isComplete = false; result && !isComplete;) {
      std::optional<KeyEntry> entry;
      result = watcher.Next(kFindStep, entry, isComplete);
      if (entry && !entry->isDeleted) (void)table.Apply(entry->key, entry->value);  // others' keys are theirs
      if (Clock::now() - stepped_ > kFindStep) StepLease();
      if (!lease_->IsValid()) return false;
    }
    if (!result) {
      voice_.Say(result.why);
      return false;
    }
    for (const auto& [device, row] : table.Rows()) {
      if (row.finding) findings_.Restore(*row.finding);
    }
    Say(Priority::kNotice, "this process looks for the devices of " + config_.site + "; " +
                               std::to_string(findings_.Count()) + " are known");
    isActive_ = true;
    Write();
    return true;
  }

  void Look() {
    if (config_.find.seconds == 0) return Write();
    if (scanner_ == nullptr) scanner_ = std::make_unique<Scanner>();
    if (Clock::now() < next_) return;
    if (!isRound_) {
      const std::string why = scanner_->BeginRound();
      if (!why.empty()) {
        voice_.Say("cannot look for devices: " + why + "; zel doctor looks for the cause; it is tried again");
      }
      next_ = Clock::now() + kFindRound;
    } else {
      for (const DeviceFinding& answer : scanner_->EndRound()) NoteAnswer(answer);
      findings_.EndRound();
      Write();
      next_ = Clock::now() + std::chrono::seconds(config_.find.seconds);
    }
    isRound_ = !isRound_;
  }

  void NoteAnswer(const DeviceFinding& answer) {
    if (findings_.Note(answer)) return;
    voice_.Say("more than " + std::to_string(Findings::kMostDevices) + " devices answer; " +
               AboutFinding(answer) + " and others are left out; a host on the network may make them up");
  }

  void Write() {
    size_t lines = 0;
    const auto unwritten = findings_.Unwritten();
    for (const DeviceFinding& finding : unwritten) {
      if (Clock::now() - stepped_ > kFindStep) StepLease();
      if (!lease_->IsValid()) return;
      const auto device = DeviceToken(finding.id);
      const NatsResult written = devices_.Put(FindingKey(*device), ToJson(finding));
      if (!written) return voice_.Say(written.why);
      findings_.Wrote(finding);
      if (!finding.twins.empty()) {
        SayTwins(finding);
      } else if (++lines <= kMostFindLines) {
        Say(Priority::kInfo, "found " + AboutFinding(finding));
      }
    }
    if (lines > kMostFindLines)
      Say(Priority::kInfo, "found " + std::to_string(lines - kMostFindLines) + " more");
  }

  const Config& config_;
  Nats nats_;
  KeyValue leases_;
  KeyValue devices_;
  LeaseTerm term_;
  std::unique_ptr<Lease> lease_;
  Findings findings_;
  FailureVoice voice_;
  std::unique_ptr<Scanner>
      scanner_;  // none before it is this process's turn: whoever stands by has no socket
  std::string other_;
  bool isActive_ = false;
  bool isRound_ = false;
  Clock::time_point next_;
  Clock::time_point stepped_;
};

int RunFind(const Config& config) {
  const auto finder = std::make_unique<Finder>(config);
  return finder->Run();
}

constexpr const char* kFindHelp = R"(Example:
  zelgate find --config /etc/zelgate/zelgate.toml

Looks for devices by discovery on this machine's networks, every find.seconds of the
configuration, and takes those of its list find.device. What it finds is in the bucket
zel_devices, and zelgate status shows it. Start it on two machines: one looks, the other
stands by. Several devices with one identifier are reported, and none of them is served.

Ends with SIGTERM or SIGINT.)";

}  // namespace

void AddFind(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("find", "Find the devices of a site");
  command->footer(kFindHelp);
  command->callback([&task] { task.run = RunFind; });
}

}  // namespace zelgate
