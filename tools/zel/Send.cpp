// zel send
#include <libzel/libzel.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <optional>

#include "Arguments.h"
#include "Commands.h"
#include "Failure.h"
#include "Opening.h"
#include "Path.h"
#include "Progress.h"

namespace zeltool {
namespace {

constexpr double kShowEverySec = 0.1;
constexpr size_t kLongestPath = 255;
constexpr uint64_t kLongestFile = 0x7FFFFFFF;

struct SendOptions {
  std::string device;
  uint16_t port = 0;
  std::string file;
  std::string remote;
  Patience patience;
};

// Outlives its command: the transfer thread may still be in a step when the command ends.
class Sender {
 public:
  Sender(const SendOptions& options, Context& context)
      : options_(options), context_(context), steps_(context.stopper) {}

  int Run() {
    const std::string remote = CheckPaths();
    progress_.name = NameOf(options_.file);
    const Budget budget(options_.patience);
    // Kept beside the transfer's own: it tells a silent device from a lost one.
    Opened opened = OpenDevice(options_.device, options_.patience, budget, context_);
    opened.connection.StartLoop().Ignore();
    start_ = Clock::now();
    auto transfer =
        zel::SendFile(opened.id, options_.port, options_.file, remote, [this](const zel::FileProgress& step) {
          steps_.Put(step);
          return !stopped_;
        });
    const auto end = Follow();
    stopped_ = true;
    steps_.Close();
    if (end) return Finish(*end, opened);
    transfer.Cancel();
    context_.output.Note("stopped; the device has a part of the file at most");
    return kInterrupted;
  }

 private:
  static std::string NameOf(const std::string& path) { return Utf8Of(PathFrom(path).filename()); }

  std::string RemoteName() const { return options_.remote.empty() ? NameOf(options_.file) : options_.remote; }

  // Gives the name on the device.
  std::string CheckPaths() {
    progress_.bytes = static_cast<double>(CheckFile(options_.file, kLongestFile, "can be sent"));
    std::string remote = RemoteName();
    if (options_.file.size() > kLongestPath || remote.size() > kLongestPath) {
      throw UsageFailure("a path is longer than 255 bytes");
    }
    return remote;
  }

  // The last step; nothing when it is to stop.
  std::optional<zel::FileProgress> Follow() {
    while (const auto step = steps_.Take(std::nullopt)) {
      progress_.fraction = std::min(1.0F, step->progress);
      progress_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
      if (step->state == zel::FileState::kFailed) return step;
      Show(step->state == zel::FileState::kFinished);
      if (step->state == zel::FileState::kFinished) return step;
    }
    return std::nullopt;
  }

  int Finish(const zel::FileProgress& end, const Opened& opened) {
    if (end.state == zel::FileState::kFinished) return Finish();
    const int32_t code = end.result.Code();
    if (code == ZEL_E_FILE_TRANSFER && IsUp(opened.connection)) {
      throw LibraryFailure(opened.host + " does not answer on port " + std::to_string(options_.port),
                           ZEL_E_TIMEOUT, "Is this the port that takes files on the device?");
    }
    throw LibraryFailure(
        code == ZEL_E_FILE_OPEN ? "cannot send " + options_.file : "sending " + options_.file + " failed",
        code);
  }

  void Show(bool last) {
    const auto now = Clock::now();
    if (!last && now - shown_ < std::chrono::duration<double>(kShowEverySec)) return;
    shown_ = now;
    context_.output.Status(ProgressLine(progress_, context_.output.Size().columns));
    if (context_.output.IsJson()) ShowObject("progress");
  }

  void ShowObject(const char* event) {
    Record record;
    record.Text("event", event).Text("file", options_.file).Text("remote", RemoteName());
    record.Number("bytes", std::llround(progress_.bytes * progress_.fraction))
        .Real("progress", progress_.fraction)
        .Real("seconds", progress_.seconds)
        .Real("bytesPerSecond", Rate(progress_));
    context_.output.Object(record);
  }

  int Finish() {
    progress_.fraction = 1;
    if (context_.output.IsJson()) {
      ShowObject("done");
    } else {
      context_.output.Words(Printable(options_.file) + ": " + ReadableSize(progress_.bytes) + " in " +
                            Fixed(progress_.seconds, 1) + " s, " + ReadableSize(Rate(progress_)) + "/s");
    }
    return kDone;
  }

  const SendOptions& options_;
  Context& context_;
  Mailbox<zel::FileProgress> steps_;
  std::atomic<bool> stopped_ = false;
  Clock::time_point start_;
  Clock::time_point shown_;
  ProgressState progress_;
};

constexpr const char* kSendHelp = R"(Examples:
  zel send 192.168.1.20.0.1 700 recipe.bin /data/recipe.bin
  zel send 192.168.1.20 700 firmware.img firmware.img --json

PORT is the router port of the one who takes files on the device, REMOTE the name that
the file gets there. The status is 1 when the device refuses the file or the connection
is lost, 2 when the file cannot be read or has 2 GiB or more, 27 when the device stays
silent.)";

}  // namespace

void AddSend(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("send", "Send a file to a device");
  auto options = std::make_shared<SendOptions>();
  AddDevice(*command, options->device);
  command->add_option("PORT", options->port, "Router port that takes files, 1 to 65535")
      ->required()
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("");
  command->add_option("FILE", options->file, "File to send")->required()->type_name("");
  command->add_option("REMOTE", options->remote, "Its name on the device; its own name if not given")
      ->type_name("");
  AddPatience(*command, options->patience, "Time to find the device and to connect");
  command->footer(kSendHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) {
      static Sender* const sender = new Sender(*options, context);
      return sender->Run();
    };
  });
}

}  // namespace zeltool
