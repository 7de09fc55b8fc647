// zelgate run
#include <unistd.h>

#include <chrono>

#include "Commands.h"
#include "Journal.h"
#include "Nats.h"
#include "Signals.h"

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kLook{500};

int RunGate(const Config& config) {
  Nats nats;
  const NatsResult started = nats.Start(config.nats, "zelgate run " + config.site);
  if (!started) {
    Say(Priority::kError, started.why);
    return kFailed;
  }
  while (!WaitForStop(kLook)) {
    if (nats.IsClosed()) return kFailed;
  }
  return kDone;
}

constexpr const char* kRunHelp = R"(Example:
  zelgate run --config /etc/zelgate/plant1.toml

Ends with SIGTERM or SIGINT.)";

}  // namespace

void AddRun(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("run", "Serve the devices of a site");
  command->footer(kRunHelp);
  command->callback([&task] { task.run = RunGate; });
}

}  // namespace zelgate
