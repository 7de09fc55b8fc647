// zelgate ask
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Commands.h"
#include "ConnectOnce.h"
#include "DeviceTable.h"
#include "Journal.h"
#include "Nats.h"
#include "Streams.h"
#include "Subjects.h"
#include "Verdict.h"

namespace zelgate {
namespace {

// Exit statuses of its own.
constexpr int kNotSent = 3;
constexpr int kMayBeSent = 4;

constexpr std::chrono::milliseconds kAskStep{250};
// What a request may take longer than its own time: the way there and back.
constexpr std::chrono::seconds kWay{2};

struct AskOptions {
  std::string device;
  std::string data;
  uint16_t port = 0;
  uint32_t group = 0;
  uint32_t offset = 0;
  uint32_t timeoutMs = 5000;
  bool hex = false;
};

std::optional<std::string> BytesOfHex(const std::string& text) {
  std::string bytes;
  if (text.size() % 2 != 0) return {};
  for (size_t i = 0; i < text.size(); i += 2) {
    const std::string pair = text.substr(i, 2);
    if (pair.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return {};
    bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
  }
  return bytes;
}

std::string HexOf(std::string_view bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<uint8_t>(byte) >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// One request to one device, through whoever serves it.
class Asking {
 public:
  Asking(const Config& config, const AskOptions& options)
      : config_(config), options_(options), subjects_(config.site) {}

  int Run() {
    std::optional<std::string> data = options_.data;
    if (options_.hex) data = BytesOfHex(options_.data);
    if (!data) return Fail(kUsage, "'" + options_.data + "' is no row of hexadecimal bytes; write 0aff, say");
    const NatsResult connected = ConnectOnce(nats_, config_, "ask");
    if (!connected) return Fail(kFailed, connected.why);
    std::string why;
    const auto token = TokenOf(options_.device, why);
    if (!token) return Fail(kUsage, why);
    return Ask(*token, *data);
  }

 private:
  static int Fail(int status, const std::string& what) {
    Say(Priority::kError, what);
    return status;
  }

  // An identifier, or a name or serial number that exactly one device has.
  std::optional<std::string> TokenOf(const std::string& text, std::string& why) {
    if (auto token = DeviceToken(text)) return token;
    if (DeviceOfToken(text)) return text;
    DeviceTable table;
    const NatsResult read = ReadTable(table);
    if (!read) {
      why = read.why;
      return {};
    }
    std::vector<std::string> found;
    for (const auto& [token, row] : table.Rows()) {
      if (row.finding && (row.finding->name == text || row.finding->serial == text)) found.push_back(token);
    }
    if (found.size() == 1) return found.front();
    why = (found.empty() ? "no device" : std::to_string(found.size()) + " devices") + " of " + config_.site +
          (found.empty() ? " has" : " have") + " the identifier, name or serial number '" + text +
          "'; zelgate status shows them all";
    return {};
  }

  NatsResult ReadTable(DeviceTable& table) {
    KeyValue bucket;
    KeyWatcher watcher;
    NatsResult result = bucket.Open(nats_, kDeviceBucket);
    if (result) result = bucket.Watch("found.*", watcher);
    for (bool isComplete = false; result && !isComplete;) {
      std::optional<KeyEntry> entry;
      result = watcher.Next(kAskStep, entry, isComplete);
      if (entry && !entry->isDeleted) (void)table.Apply(entry->key, entry->value);  // others' keys are theirs
    }
    return result;
  }

  int Ask(const std::string& token, const std::string& data) {
    NatsMessage request(subjects_.Ask(token, options_.port, options_.group, options_.offset), "", data);
    request.SetHeader(kTimeoutHeader, std::to_string(options_.timeoutMs));
    NatsMessage reply;
    const NatsResult asked =
        nats_.Request(request, std::chrono::milliseconds(options_.timeoutMs) + kWay, reply);
    const std::string device = DeviceOfToken(token).value_or(token);
    if (asked.code == NATS_NO_RESPONDERS) {
      return Fail(kNotSent, "nobody serves " + device + ", so nothing was sent; zelgate status tells more");
    }
    if (!asked) {
      return Fail(kMayBeSent, "no word of what became of the request to " + device +
                                  ": it may have been sent (" + asked.why + ")");
    }
    return Show(device, reply);
  }

  int Show(const std::string& device, const NatsMessage& reply) const {
    const std::string verdict = reply.Header(kVerdictHeader);
    const std::string reason = Printable(reply.Header(kReasonHeader));
    if (verdict == verdict::kNotSent) {
      return Fail(kNotSent, "not sent to " + device + ": " + reason + "; it is safe to ask again");
    }
    if (verdict == verdict::kMayBeSent) {
      return Fail(kMayBeSent, device + " may have got the request, but there is no answer: " + reason +
                                  "; look at the device before you ask again");
    }
    if (verdict == verdict::kDeviceError) {
      return Fail(kFailed, device + " answers with its error word " + reply.Header(kErrorHeader) +
                               "; its maker knows what that means");
    }
    if (verdict != verdict::kAnswered)
      return Fail(kFailed, "the answer says nothing of what became of the request");
    const std::string text = options_.hex ? HexOf(reply.Data()) : std::string(reply.Data());
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
                           std::fputc('\n', stdout) != EOF && std::fflush(stdout) == 0;
    if (!isWritten) return Fail(kFailed, "the answer of " + device + " cannot be written to standard output");
    if (!reason.empty()) Say(Priority::kWarning, device + ": " + reason);
    return kDone;
  }

  const Config& config_;
  const AskOptions& options_;
  Subjects subjects_;
  Nats nats_;
};

constexpr const char* kAskHelp = R"(Examples:
  zelgate ask 10.20.0.7.0.1 --port 600 --group 1 --offset 2 "hello"
  zelgate ask "press 7" --port 600 --hex 0aff

DEVICE is an identifier, or a name or serial number that one device has. The answer's
data go to standard output, with a line end behind them; with --hex in hexadecimal.

Exit status: 0 answered; 1 the device answered with an error word, or zelgate failed; 2
the command line is wrong, or no such device; 3 not sent, so that asking again is safe;
4 it may have been sent, but there is no answer. Nothing is ever sent twice by itself.)";

}  // namespace

void AddAsk(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("ask", "Ask a device, wherever it is served");
  auto options = std::make_shared<AskOptions>();
  command->add_option("device", options->device, "The device")->required()->type_name("DEVICE");
  command->add_option("data", options->data, "The request's data; none if left out")->type_name("DATA");
  command->add_option("-p,--port", options->port, "The port")->required()->type_name("N");
  command->add_option("-g,--group", options->group, "The first addressing word, 0 if not given")
      ->type_name("N");
  command->add_option("-o,--offset", options->offset, "The second addressing word, 0 if not given")
      ->type_name("N");
  command->add_option("-t,--timeout", options->timeoutMs, "How long the answer may take; 5000")
      ->check(CLI::Range(1, 600000).description(""))
      ->type_name("MS");
  command->add_flag("-x,--hex", options->hex, "Data and answer are hexadecimal");
  command->footer(kAskHelp);
  command->callback([options, &task] {
    task.run = [options](const Config& config) { return std::make_unique<Asking>(config, *options)->Run(); };
  });
}

}  // namespace zelgate
