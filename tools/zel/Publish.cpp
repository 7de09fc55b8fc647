// zel pub
#include <libzel/libzel.h>

#include <cstdio>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Connection.h"
#include "Device.h"
#include "Failure.h"
#include "platform/Console.h"

namespace zeltool {
namespace {

// A record is its data, the topic and few bytes more.
constexpr size_t kLongestPublication = 10U * 1024 * 1024 - 128;
constexpr double kConfirmSec = 1;

struct PublishOptions {
  std::string device;
  std::string topic;
  PayloadSource payload;
  bool lines = false;
  uint32_t group = 0;
  uint32_t offset = 0;
  uint32_t count = 1;
  uint32_t intervalMs = 0;
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
    const Bytes payload = options_.lines ? Bytes() : ReadPayload(options_.payload);
    const Connection connection(FindDevice(options_.device, kAskTimeoutMs));
    connection.RequireConnected();
    if (options_.lines) {
      PublishLines(connection);
    } else {
      PublishCounted(connection, payload);
    }
    Confirm(connection);
    Report();
    return kDone;
  }

 private:
  void PublishCounted(const Connection& connection, const Bytes& payload) {
    for (uint32_t i = 0; i < options_.count; ++i) {
      if (i > 0 && context_.stopper.Sleep(options_.intervalMs / 1000.0)) return;
      Publish(connection, payload);
    }
  }

  void PublishLines(const Connection& connection) {
    ReadInputAsBytes();
    std::string line;
    while (!context_.stopper.IsRequested() && ReadLine(line)) {
      const Bytes payload = ToBytes(line);
      PublishCounted(connection, payload);
      if (context_.stopper.Sleep(options_.intervalMs / 1000.0)) return;
    }
  }

  void Publish(const Connection& connection, const Bytes& payload) {
    if (payload.size() + options_.topic.size() > kLongestPublication) {
      throw UsageFailure("more than fits into one publication (10 MiB)");
    }
    const int32_t result =
        libzel_publish(connection.Handle(), options_.group, options_.offset, options_.topic.c_str(),
                       payload.data(), static_cast<uint32_t>(payload.size()));
    Connection::Require(result, ("cannot publish on " + Printable(options_.topic)).c_str());
    ++published_;
    bytes_ += payload.size();
  }

  static void OnConfirmation(uint32_t, uint32_t, const char*, const uint8_t*, uint32_t, void* user) {
    auto* self = static_cast<Publisher*>(user);
    self->context_.stopper.Update([self] { self->confirmed_ = true; });
  }

  // A released connection is reset, and what the server has not read by then may be lost. Publications are
  // not answered, but they are read in their order: a last one, on a topic of our own, comes back when all
  // are read.
  void Confirm(const Connection& connection) {
    const std::string topic = "zel/pub/" + std::to_string(ProcessNumber()) + "/" +
                              std::to_string(Clock::now().time_since_epoch().count());
    const bool asked = libzel_subscribe(connection.Handle(), topic.c_str(), OnConfirmation, this) == ZEL_OK &&
                       libzel_loop_start(connection.Handle()) == ZEL_OK &&
                       libzel_publish(connection.Handle(), 0, 0, topic.c_str(), nullptr, 0) == ZEL_OK;
    if (asked) (void)context_.stopper.Wait(After(kConfirmSec), [this] { return confirmed_; });
    (void)libzel_unsubscribe(connection.Handle(), topic.c_str());
    (void)libzel_loop_stop(connection.Handle());
    if (!confirmed_) context_.output.Note("the server did not confirm that it read everything");
  }

  void Report() {
    if (context_.output.IsJson()) {
      context_.output.Object(Record()
                                 .Text("topic", options_.topic)
                                 .Number("published", static_cast<int64_t>(published_))
                                 .Number("bytes", static_cast<int64_t>(bytes_))
                                 .Flag("confirmed", confirmed_));
    } else if (context_.output.IsLive()) {
      context_.output.Line(Counted(published_, "publication") + " on " + Printable(options_.topic) + ", " +
                           ReadableSize(static_cast<double>(bytes_)));
    }
  }

  const PublishOptions& options_;
  Context& context_;
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
ends when the server has read the last one.)";

}  // namespace

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
  command->footer(kPubHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) { return Publisher(*options, context).Run(); };
  });
}

}  // namespace zeltool
