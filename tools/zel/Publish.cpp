// zel pub
#include <libzel/libzel.hpp>

#include <cstdio>
#include <memory>
#include <optional>

#include "Arguments.h"
#include "Commands.h"
#include "Failure.h"
#include "Opening.h"
#include "RecordFile.h"
#include "platform/Console.h"

namespace zeltool {
namespace {

// A record is its data, the topic and few bytes more.
constexpr size_t kLongestPublication = 10U * 1024 * 1024 - 128;
constexpr double kConfirmSec = 1;
constexpr uint32_t kLeaveMs = 30000;

struct PublishOptions {
  std::string device;
  std::string topic;
  PayloadSource payload;
  bool lines = false;
  uint32_t group = 0;
  uint32_t offset = 0;
  uint32_t count = 1;
  uint32_t intervalMs = 0;
  Patience patience;
  // To publish a record again.
  std::string record;
  double speed = 1;
};

// Reads one line of standard input, without its end. False at the end of the input.
bool ReadLine(std::string& line) {
  line.clear();
  int character = 0;
  while ((character = std::fgetc(stdin)) != EOF && character != '\n') line += static_cast<char>(character);
  if (line.ends_with('\r')) line.pop_back();
  return character != EOF || !line.empty();
}

class Publisher {
 public:
  Publisher(const PublishOptions& options, Context& context) : options_(options), context_(context) {}

  int Run() {
    const bool isReplay = !options_.record.empty();
    if (isReplay) record_.emplace(options_.record);
    const Bytes payload = isReplay || options_.lines
                              ? Bytes()
                              : ReadPayload(options_.payload, kLongestPublication - options_.topic.size());
    const Budget budget(options_.patience);
    Opened opened = OpenDevice(options_.device, options_.patience, budget, context_);
    try {
      if (isReplay) {
        Replay(opened.connection);
      } else if (options_.lines) {
        PublishLines(opened.connection);
      } else {
        PublishCounted(opened.connection, payload);
      }
      if (!context_.stopper.IsRequested()) AwaitEnd(opened.connection);
    } catch (const Failure&) {
      Report();
      throw;
    }
    Report();
    return kDone;
  }

 private:
  void PublishCounted(const zel::Connection& connection, const Bytes& payload) {
    for (uint32_t i = 0; i < options_.count && !context_.stopper.IsRequested(); ++i) {
      if (i > 0 && context_.stopper.Sleep(options_.intervalMs / 1000.0)) return;
      Publish(connection, payload);
    }
  }

  void PublishLines(const zel::Connection& connection) {
    ReadInputAsBytes();
    std::string line;
    while (!context_.stopper.IsRequested() && ReadLine(line)) {
      const Bytes payload = ToBytes(line);
      PublishCounted(connection, payload);
      if (context_.stopper.Sleep(options_.intervalMs / 1000.0)) return;
    }
    if (std::ferror(stdin) != 0) throw UsageFailure("cannot read standard input");
  }

  uint32_t LeaveMs() const {
    return options_.patience.timeoutMs > 0 ? options_.patience.timeoutMs : kLeaveMs;
  }

  // In the order and with the pauses of the record.
  void Replay(const zel::Connection& connection) {
    const auto start = Clock::now();
    std::optional<std::chrono::system_clock::time_point> first;
    while (!context_.stopper.IsRequested()) {
      const auto message = record_->Next();
      if (!message) return;
      if (!first) first = message->time;
      if (options_.speed > 0) {
        using RealSeconds = std::chrono::duration<double>;
        const RealSeconds at = RealSeconds(message->time - *first) / options_.speed;
        const RealSeconds now = Clock::now() - start;
        if (context_.stopper.Sleep(at.count() - now.count())) return;
      }
      Publish(connection, message->topic, message->group, message->offset, message->data);
    }
  }

  void Publish(const zel::Connection& connection, const Bytes& payload) {
    Publish(connection, options_.topic, options_.group, options_.offset, payload);
  }

  void Publish(const zel::Connection& connection, const std::string& topic, uint32_t group, uint32_t offset,
               const Bytes& payload) {
    if (payload.size() + topic.size() > kLongestPublication) {
      throw UsageFailure("more than fits into one publication (10 MiB)");
    }
    const int32_t result = libzelx_publish(connection.Handle(), group, offset, topic.c_str(), payload.data(),
                                           static_cast<uint32_t>(payload.size()), LeaveMs());
    if (result != ZEL_OK) FailUnsent("cannot publish on " + Printable(topic), connection, result);
    ++published_;
    bytes_ += payload.size();
  }

  [[noreturn]] void FailUnsent(const std::string& what, const zel::Connection& connection, int32_t code) {
    const std::string reason = IsUp(connection) ? "" : connection.LastFailure();
    throw LibraryFailure(
        what + (reason.empty() ? "" : ": " + reason), code,
        "What was published before may be lost, too: " + Counted(published_, "publication") + ".");
  }

  // All must have left this machine, and the server should have read it: a released connection is reset, and
  // what it has not read by then may be lost.
  void AwaitEnd(zel::Connection& connection) {
    const int32_t flushed = libzelx_flush(connection.Handle(), LeaveMs());
    const bool isKnown = flushed != ZEL_E_PROTOCOL;
    if (isKnown && flushed != ZEL_OK) FailUnsent("not all has left", connection, flushed);
    Confirm(connection, isKnown ? kConfirmSec : LeaveMs() / 1000.0);
    if (confirmed_ || context_.stopper.IsRequested()) return;
    if (!isKnown || !IsUp(connection)) {
      FailUnsent("the server did not confirm that it read everything", connection, ZEL_E_TIMEOUT);
    }
    context_.output.Note("the server did not confirm that it read everything");
  }

  // Publications are not answered, but they are read in their order: a last one, on a topic of our own, comes
  // back when all are read.
  void Confirm(zel::Connection& connection, double seconds) {
    const std::string topic = "zel/pub/" + std::to_string(ProcessNumber()) + "/" +
                              std::to_string(Clock::now().time_since_epoch().count());
    const auto confirm = [this](const zel::TopicMessage&) {
      context_.stopper.Update([this] { confirmed_ = true; });
    };
    const bool asked =
        connection.Subscribe(topic, confirm).IsOk() && connection.StartLoop().IsOk() &&
        libzelx_publish(connection.Handle(), 0, 0, topic.c_str(), nullptr, 0, LeaveMs()) == ZEL_OK;
    if (asked) (void)context_.stopper.Wait(After(seconds), [this] { return confirmed_; });
    connection.Unsubscribe(topic).Ignore();
    connection.StopLoop().Ignore();
  }

  void Report() {
    if (context_.output.IsJson()) {
      Record record;
      if (!options_.topic.empty()) record.Text("topic", options_.topic);
      context_.output.Object(record.Number("published", static_cast<int64_t>(published_))
                                 .Number("bytes", static_cast<int64_t>(bytes_))
                                 .Flag("confirmed", confirmed_));
    } else if (context_.output.IsLive()) {
      const std::string where = options_.topic.empty() ? "" : " on " + Printable(options_.topic);
      context_.output.Line(Counted(published_, "publication") + where + ", " +
                           ReadableSize(static_cast<double>(bytes_)));
    }
  }

  const PublishOptions& options_;
  Context& context_;
  std::optional<RecordFile> record_;
  uint64_t published_ = 0;
  uint64_t bytes_ = 0;
  bool confirmed_ = false;
};

constexpr const char* kPubHelp = R"(Examples:
  zel pub 192.168.1.20.0.1 press/4/target 21.5
  zel pub 192.168.1.20 press/4/recipe --file recipe.bin
  sensor | zel pub 192.168.1.20 sensor/1 --lines
  zel pub 192.168.1.20 heartbeat alive --count 60 --interval 1000

Without TEXT an empty publication is sent. Publications are not answered; the program
ends when the server has read the last one. The status is not 0 when not all of them
have left this machine: 27 when there was no time, 1 when the connection broke.

--timeout bounds finding and connecting together, then each publication, then the time
until the last has left. Without it a publication may take 30000 ms.)";

constexpr const char* kReplayHelp = R"(Examples:
  zel replay 192.168.1.20 record.jsonl
  zel replay 192.168.1.20 record.jsonl --speed 10
  zel sub 192.168.1.20 alarms --json | zel replay 192.168.1.21

Publishes what zel record, or zel sub with --json, has written, in its order and with its
pauses; ten times as fast with --speed 10, without pauses with --speed 0.
--timeout is as in zel pub.)";

}  // namespace

void AddReplay(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("replay", "Publish a record again");
  auto options = std::make_shared<PublishOptions>();
  options->record = "-";
  AddDevice(*command, options->device);
  command->add_option("FILE", options->record, "The record; standard input if not given")->type_name("");
  AddReal(*command, "--speed", options->speed, 0, 1e6, "How many times as fast; 0 for no pauses")
      ->type_name("N");
  AddPatience(*command, options->patience, "Time to connect, and for each to leave; see below");
  command->footer(kReplayHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) { return Publisher(*options, context).Run(); };
  });
}

void AddPub(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("pub", "Publish on a topic");
  auto options = std::make_shared<PublishOptions>();
  AddDevice(*command, options->device);
  command->add_option("TOPIC", options->topic, "Topic to publish on")->required()->type_name("");
  AddPayload(*command, options->payload);
  auto* lines = command->add_flag("-l,--lines", options->lines, "Publish each line of standard input");
  for (const char* other : {"TEXT", "--hex", "--file"}) lines->excludes(command->get_option(other));
  AddNumber(*command, "-g,--group", options->group, 0xFFFFFFFFU, "Index group; 0 if not given");
  AddNumber(*command, "-o,--offset", options->offset, 0xFFFFFFFFU, "Index offset; 0 if not given");
  AddNumber(*command, "-c,--count", options->count, 1000000000, "Publish so often; once if not given");
  AddNumber(*command, "-i,--interval", options->intervalMs, 3600000,
            "Time between publications; 0 if not given")
      ->type_name("MS");
  AddPatience(*command, options->patience, "Time to connect, and for each to leave; see below");
  command->footer(kPubHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) { return Publisher(*options, context).Run(); };
  });
}

}  // namespace zeltool
