// zelgate status
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "Commands.h"
#include "ConnectOnce.h"
#include "DeviceTable.h"
#include "Journal.h"
#include "Nats.h"
#include "Signals.h"
#include "StatusView.h"
#include "Streams.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kStatusStep{250};
constexpr std::string_view kHolderPrefix = "run.";

struct StatusOptions {
  bool watch = false;
  bool json = false;
};

// Shows the devices of a site, and what happens to them.
class StatusShow {
 public:
  StatusShow(const Config& config, const StatusOptions& options) : config_(config), options_(options) {}

  int Run() {
    NatsResult result = Open();
    bool isComplete[2] = {false, false};
    while (result && !(isComplete[0] && isComplete[1]) && !WaitForStop(std::chrono::milliseconds(0))) {
      result = Read(isComplete);
    }
    if (result) ShowAll();
    while (result && options_.watch && std::ferror(stdout) == 0 &&
           !WaitForStop(std::chrono::milliseconds(0))) {
      result = Read(isComplete);
      if (result) ShowChanges();
    }
    if (result) return kDone;
    Say(Priority::kError, result.why);
    return kFailed;
  }

 private:
  NatsResult Open() {
    NatsResult result = ConnectOnce(nats_, config_, "status");
    if (result) result = devices_.Open(nats_, kDeviceBucket);
    if (result) result = leases_.Open(nats_, kLeaseBucket);
    if (result) result = devices_.Watch(">", deviceWatcher_);
    if (result) result = leases_.Watch(std::string(kHolderPrefix) + "*", leaseWatcher_);
    return result;
  }

  // All that is there at once, then what comes within a step.
  NatsResult Read(bool (&isComplete)[2]) {
    NatsResult result = ReadLeases(isComplete[0]);
    std::optional<KeyEntry> entry;
    do {
      if (result)
        result =
            deviceWatcher_.Next(entry ? std::chrono::milliseconds(1) : kStatusStep, entry, isComplete[1]);
      if (entry) (void)table_.Apply(entry->key, ValueOf(*entry));  // others' keys are theirs
    } while (result && entry);
    return result;
  }

  NatsResult ReadLeases(bool& isComplete) {
    NatsResult result;
    std::optional<KeyEntry> entry;
    do {
      const auto time = isComplete ? std::chrono::milliseconds(1) : kStatusStep;
      result = leaseWatcher_.Next(time, entry, isComplete);
      if (!entry) continue;
      const std::string holder = entry->key.substr(kHolderPrefix.size());
      if (entry->isDeleted) {
        holders_.erase(holder);
      } else {
        holders_.insert(holder);
      }
    } while (result && entry);
    return result;
  }

  static std::optional<std::string_view> ValueOf(const KeyEntry& entry) {
    return entry.isDeleted ? std::nullopt : std::optional<std::string_view>(entry.value);
  }

  void ShowAll() {
    const auto lines = StatusOf(table_, holders_);
    if (options_.json) {
      for (const StatusLine& line : lines) Put(JsonOf(line));
    } else {
      Put(SummaryOf(config_.site, lines, holders_.size()));
      if (!lines.empty()) (void)std::fputs(TableOf(lines).c_str(), stdout);  // Run looks for failures
    }
    (void)std::fflush(stdout);
    for (const StatusLine& line : lines) shown_[line.id] = line;
  }

  void ShowChanges() {
    for (const StatusLine& line : StatusOf(table_, holders_)) {
      const auto known = shown_.find(line.id);
      if (known != shown_.end() && known->second == line) continue;
      shown_[line.id] = line;
      Put(options_.json ? JsonOf(line) : SentenceOf(line));
    }
    (void)std::fflush(stdout);
  }

  static void Put(const std::string& line) { (void)std::fputs((line + "\n").c_str(), stdout); }

  const Config& config_;
  StatusOptions options_;
  Nats nats_;
  KeyValue devices_;
  KeyValue leases_;
  KeyWatcher deviceWatcher_;
  KeyWatcher leaseWatcher_;
  DeviceTable table_;
  std::set<std::string> holders_;
  std::map<std::string, StatusLine> shown_;
};

constexpr const char* kStatusHelp = R"(Examples:
  zelgate status                  all devices of the site
  zelgate status --watch          and then what happens to them, until Ctrl-C
  zelgate status --json           one object a line, for programs

LINK is up; connecting: not connected, WHY says why; twins: several devices have the
identifier, none is served; refused: more devices than limits.devices; unserved: no
process serves it.)";

}  // namespace

void AddStatus(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("status", "Show the devices of a site");
  auto options = std::make_shared<StatusOptions>();
  command->add_flag("-w,--watch", options->watch, "Go on, and tell what changes");
  command->add_flag("-j,--json", options->json, "Write one JSON object a line");
  command->footer(kStatusHelp);
  command->callback([options, &task] {
    task.run = [options](const Config& config) {
      return std::make_unique<StatusShow>(config, *options)->Run();
    };
  });
}

}  // namespace zelgate
