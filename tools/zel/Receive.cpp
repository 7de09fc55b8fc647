// zel sub, zel listen
#include <libzel/libzel.hpp>

#include <algorithm>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Failure.h"
#include "Format.h"
#include "Opening.h"
#include "TimeStamp.h"

namespace zeltool {
namespace {

struct ReceiveOptions {
  std::string device;
  std::vector<std::string> topics;
  std::vector<uint16_t> ports;
  uint32_t count = 0;
  double waitSec = 0;
  std::string format;
  bool isRecord = false;
  Patience patience;
};

// A message, or news of the connection.
struct Arrival {
  std::optional<zel::Event> event;
  Message message;
};

class Receiver {
 public:
  Receiver(const ReceiveOptions& options, Context& context)
      : options_(options), context_(context), arrivals_(context.stopper) {}

  int Run() {
    const Budget budget(options_.patience);
    const auto onEvent = [this](const zel::DeviceId&, zel::Event event) { arrivals_.Put({event, {}}); };
    {
      Opened opened = OpenDevice(options_.device, options_.patience, budget, context_, onEvent);
      Subscribe(opened.connection);
      const zel::Result started = opened.connection.StartLoop();
      if (!started) throw LibraryFailure("cannot receive", started.Code());
      if (context_.output.IsLive()) context_.output.Note("waiting for messages; Ctrl-C ends");
      Receive();
      // The receive thread may be waiting to put; then it could not be joined.
      arrivals_.Close();
    }
    return Finish();
  }

 private:
  void OnTopic(const zel::TopicMessage& message) {
    arrivals_.Put({{},
                   {false, 0, std::string(message.topic), message.idGroup, message.idOffset,
                    message.data.Copy(), std::chrono::system_clock::now()}});
  }

  void OnPort(uint16_t port, zel::Bytes data) {
    arrivals_.Put({{}, {true, port, {}, 0, 0, data.Copy(), std::chrono::system_clock::now()}});
  }

  void Subscribe(zel::Connection& connection) {
    // One that cannot be sent just now is kept, and is sent when the connection is restored.
    for (const std::string& topic : options_.topics) {
      connection.Subscribe(topic, [this](const zel::TopicMessage& message) { OnTopic(message); }).Ignore();
    }
    for (const uint16_t port : options_.ports) {
      const zel::Result routed =
          connection.Route(port, [this](uint16_t from, zel::Bytes data) { OnPort(from, data); });
      if (!routed) throw LibraryFailure("cannot listen on port " + std::to_string(port), routed.Code());
    }
  }

  bool IsOver() const {
    return (options_.count > 0 && received_ >= options_.count) || context_.stopper.IsRequested() ||
           !context_.output.IsGood();
  }

  void Receive() {
    const Deadline deadline = options_.waitSec > 0 ? After(options_.waitSec) : Deadline();
    while (!IsOver()) {
      const auto arrival = arrivals_.Take(deadline);
      if (!arrival) break;
      if (arrival->event) {
        Report(*arrival->event);
      } else {
        ++received_;
        Show(arrival->message);
      }
    }
  }

  // The first connect is no news.
  void Report(zel::Event event) {
    if (event == zel::Event::kDisconnected) context_.output.Note("the connection is lost");
    if (event == zel::Event::kConnected && connected_) context_.output.Note("connected again");
    if (event == zel::Event::kConnected) connected_ = true;
  }

  void Show(const Message& message) {
    if (context_.output.IsJson() || options_.isRecord) return ShowObject(message);
    if (!options_.format.empty()) {
      return context_.output.Raw(FormatMessage(options_.format, message, TimeOfDay));
    }
    context_.output.Line(DefaultLine(message));
  }

  // One that is no UTF-8 could not be published again as it was.
  void AddTopic(Record& record, const std::string& topic) const {
    if (options_.isRecord && !IsUtf8(topic)) {
      record.Text("topicBase64", Base64(ToBytes(topic)));
    } else {
      record.Text("topic", topic);
    }
  }

  void ShowObject(const Message& message) {
    Record record;
    record.Text("time", TimeStamp(message.time));
    if (message.routed) {
      record.Number("port", message.port);
    } else {
      AddTopic(record, message.topic);
      record.Number("group", message.group).Number("offset", message.offset);
    }
    context_.output.Object(options_.isRecord ? record.CompactPayload(message.data)
                                             : record.Payload(message.data));
  }

  int Finish() {
    if (context_.stopper.IsRequested() || !context_.output.IsGood()) return kDone;
    if (received_ > 0 && received_ >= options_.count) return kDone;
    if (received_ == 0) throw NothingArrived("nothing arrived in " + Fixed(options_.waitSec, 1) + " s");
    throw NothingArrived(Counted(received_, "message") + " of " + std::to_string(options_.count) +
                         " arrived in " + Fixed(options_.waitSec, 1) + " s");
  }

  const ReceiveOptions& options_;
  Context& context_;
  Mailbox<Arrival> arrivals_;
  uint64_t received_ = 0;
  bool connected_ = false;
};

void AddBounds(CLI::App& command, ReceiveOptions& options) {
  AddNumber(command, "-c,--count", options.count, 1000000000, "End after so many messages");
  AddReal(command, "-w,--wait", options.waitSec, 0.001, 1e9, "End after so many seconds, whatever arrived")
      ->type_name("S");
  AddPatience(command, options.patience, "Time to find the device and to connect");
}

void AddLimits(CLI::App& command, ReceiveOptions& options) {
  AddBounds(command, options);
  command.add_option("-F,--format", options.format, "Show messages like this; see below")
      ->check(CheckFormat)
      ->type_name("TEXT");
}

void SetTask(CLI::App& command, Task& task, const std::shared_ptr<ReceiveOptions>& options) {
  command.callback([options, &task] {
    task.run = [options](Context& context) { return Receiver(*options, context).Run(); };
  });
}

constexpr const char* kSubHelp = R"(Examples:
  zel sub 192.168.1.20.0.1 press/4/temperature
  zel sub 192.168.1.20 alarms door/1 --json
  zel sub 192.168.1.20 alarms --count 1 --wait 10 || echo quiet
  zel sub 192.168.1.20 alarms --format "%T %t: %s\n"

Formats:
  %t  topic
  %d  data as it is
  %s  data with control characters made visible
  %x  data in hexadecimal
  %l  its length
  %g  index group
  %o  index offset
  %T  time
  %%  percent sign
  %n  line feed; \n, too, beside \t tab, \0 zero byte and \\ backslash

No line feed is added.

A lost connection is restored, and the topics are subscribed again. The status is 27
when --wait ends with nothing, or with less than --count, received.)";

constexpr const char* kRecordHelp = R"(Examples:
  zel record 192.168.1.20 press/4/temperature alarms >record.jsonl
  zel record 192.168.1.20 alarms --wait 60 >minute.jsonl
  zel replay 192.168.1.21 minute.jsonl

Writes one object a line: time, topic, group, offset and the data, as text, or in base64
when it is none. zel replay publishes them again.)";

constexpr const char* kListenHelp = R"(Examples:
  zel listen 192.168.1.20.0.1 700
  zel listen 192.168.1.20 700 701 --json
  zel listen 192.168.1.20 700 --count 10 --wait 5 --format "%p %x\n"

Formats:
  %p  port
  %d  data as it is
  %s  data with control characters made visible
  %x  data in hexadecimal
  %l  its length
  %T  time
  %%  percent sign
  %n  line feed; \n, too, beside \t tab, \0 zero byte and \\ backslash

No line feed is added.

Ports up to 500 belong to the system. The status is 27 when --wait ends with
nothing, or with less than --count, received.)";

}  // namespace

void AddSub(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("sub", "Subscribe topics and show what is published");
  auto options = std::make_shared<ReceiveOptions>();
  AddDevice(*command, options->device);
  command->add_option("TOPIC", options->topics, "Topics to subscribe")->required()->type_name("");
  AddLimits(*command, *options);
  command->footer(kSubHelp);
  SetTask(*command, task, options);
}

void AddRecord(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("record", "Record what is published on topics");
  auto options = std::make_shared<ReceiveOptions>();
  options->isRecord = true;
  AddDevice(*command, options->device);
  command->add_option("TOPIC", options->topics, "Topics to record")->required()->type_name("");
  AddBounds(*command, *options);
  command->footer(kRecordHelp);
  SetTask(*command, task, options);
}

void AddListen(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("listen", "Show the messages that arrive on router ports");
  auto options = std::make_shared<ReceiveOptions>();
  AddDevice(*command, options->device);
  command->add_option("PORT", options->ports, "Router ports to listen on, 501 to 65535")
      ->required()
      ->check(CLI::Range(501, 65535).description(""))
      ->type_name("");
  AddLimits(*command, *options);
  command->footer(kListenHelp);
  SetTask(*command, task, options);
}

}  // namespace zeltool
