// zel watch
#include <libzel/libzel.h>

#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Connection.h"
#include "Device.h"
#include "Failure.h"

namespace zeltool {
namespace {

struct WatchOptions {
  std::string device;
  double seconds = 0;
  uint32_t intervalSec = 2;
};

struct TimedEvent {
  int32_t event = 0;
  std::string time;
};

std::string Name(int32_t event) {
  switch (event) {
    case ZEL_EVENT_CONNECTED: return "connected";
    case ZEL_EVENT_PENDING: return "connecting";
    case ZEL_EVENT_DISCONNECTED: return "lost";
    case ZEL_EVENT_FAILED: return "failed";
    default: return "event " + std::to_string(event);
  }
}

void Show(Output& output, const ZelDeviceId& device, const TimedEvent& event) {
  if (output.IsJson()) {
    return output.Object(Record()
                             .Text("time", event.time)
                             .Text("identifier", ToText(device))
                             .Number("code", event.event)
                             .Text("event", Name(event.event)));
  }
  output.Line(event.time + "  " + PadRight(Name(event.event), 10) + "  " + ToText(device));
}

int Watch(const WatchOptions& options, Context& context) {
  const ZelDeviceId device = FindDevice(options.device, kAskTimeoutMs);
  Mailbox<TimedEvent> events(context.stopper);
  const Connection connection(device, [&events](int32_t event) { events.Put({event, TimeOfDay()}); });
  Connection::Require(libzel_reconnect_delay_set(connection.Handle(), options.intervalSec),
                      "cannot set the interval");
  connection.StartReceiving();
  const Deadline deadline = options.seconds > 0 ? After(options.seconds) : Deadline();
  while (context.output.IsGood()) {
    const auto event = events.Take(deadline);
    if (!event) break;
    Show(context.output, device, *event);
  }
  events.Close();
  return kDone;
}

constexpr const char* kWatchHelp = R"(Examples:
  zel watch 192.168.1.20.0.1
  zel watch 192.168.1.20 --seconds 60 --json

Events: "connecting" before every attempt, then "connected" or "failed", and "lost" when
the connection breaks. A lost connection is restored, so this goes on until Ctrl-C.)";

}  // namespace

void AddWatch(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("watch", "Hold a connection and report what happens to it");
  auto options = std::make_shared<WatchOptions>();
  AddDevice(*command, options->device);
  command->add_option("-s,--seconds", options->seconds, "End after so many seconds")
      ->check(CLI::Range(0.1, 1e9).description(""))
      ->type_name("N");
  AddNumber(*command, "-i,--interval", options->intervalSec, 3600,
            "Time between two attempts; 2 if not given")
      ->type_name("S");
  command->footer(kWatchHelp);
  command->callback(
      [options, &task] { task.run = [options](Context& context) { return Watch(*options, context); }; });
}

}  // namespace zeltool
