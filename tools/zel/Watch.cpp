// zel watch
#include <libzel/libzel.hpp>

#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Failure.h"
#include "Opening.h"
#include "TimeStamp.h"

namespace zeltool {
namespace {

struct WatchOptions {
  std::string device;
  double seconds = 0;
  uint32_t intervalSec = 2;
  Patience patience;
};

struct TimedEvent {
  zel::Event event = zel::Event::kPending;
  std::chrono::system_clock::time_point time;
};

std::string Name(zel::Event event) {
  switch (event) {
    case zel::Event::kConnected: return "connected";
    case zel::Event::kPending: return "connecting";
    case zel::Event::kDisconnected: return "lost";
    case zel::Event::kFailed: return "failed";
    default: return "event " + std::to_string(static_cast<int32_t>(event));
  }
}

// Where it goes, and why it went wrong.
void Show(Output& output, const Opened& opened, const TimedEvent& event) {
  const bool isBad = event.event == zel::Event::kDisconnected || event.event == zel::Event::kFailed;
  const std::string reason = isBad ? opened.connection.LastFailure() : std::string();
  if (output.IsJson()) {
    Record record;
    record.Text("time", TimeStamp(event.time)).Text("identifier", opened.id.ToString());
    record.Text("address", opened.host).Number("code", static_cast<int32_t>(event.event));
    record.Text("event", Name(event.event));
    if (!reason.empty()) record.Text("reason", reason);
    return output.Object(record);
  }
  output.Line(TimeOfDay(event.time) + "  " + PadRight(Name(event.event), 10) + "  " + opened.id.ToString() +
              (reason.empty() ? "" : "  " + reason));
}

int Watch(const WatchOptions& options, Context& context) {
  const Deadline deadline = options.seconds > 0 ? Deadline(After(options.seconds)) : Deadline();
  const Budget budget(options.seconds);
  Mailbox<TimedEvent> events(context.stopper);
  const auto onEvent = [&events](const zel::DeviceId&, zel::Event event) {
    events.Put({event, std::chrono::system_clock::now()});
  };
  Opened opened = OpenDevice(options.device, options.patience, budget, context, onEvent, WhenDown::kGoOn);
  opened.connection.SetReconnectInterval(std::chrono::seconds(options.intervalSec)).Ignore();
  const zel::Result started = opened.connection.StartLoop();
  if (!started) throw LibraryFailure("cannot receive", started.Code());
  while (context.output.IsGood()) {
    const auto event = events.Take(deadline);
    if (!event) break;
    Show(context.output, opened, *event);
  }
  events.Close();
  return kDone;
}

constexpr const char* kWatchHelp = R"(Examples:
  zel watch 192.168.1.20.0.1
  zel watch 192.168.1.20 --seconds 60 --json

Events: "connecting" before every attempt, then "connected" or "failed", and "lost" when
the connection breaks, the last two with their reason. A lost connection is restored, so
this goes on until Ctrl-C.)";

}  // namespace

void AddWatch(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("watch", "Hold a connection and report what happens to it");
  auto options = std::make_shared<WatchOptions>();
  AddDevice(*command, options->device);
  AddReal(*command, "-s,--seconds", options->seconds, 0.1, 1e9, "End after so many seconds")->type_name("N");
  AddNumber(*command, "-i,--interval", options->intervalSec, 3600,
            "Time between two attempts; 2 if not given")
      ->type_name("S");
  command->footer(kWatchHelp);
  command->callback(
      [options, &task] { task.run = [options](Context& context) { return Watch(*options, context); }; });
}

}  // namespace zeltool
