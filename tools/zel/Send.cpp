// zel send
#include <libzel/libzel.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Device.h"
#include "Failure.h"
#include "Progress.h"

namespace zeltool {
namespace {

// An exchange may take a second to send, one to be answered, and the reconnect before it.
constexpr double kSilenceSec = 6;
constexpr double kShowEverySec = 0.1;
constexpr size_t kLongestPath = 255;

enum class TransferState : uint8_t { kRegistered = 0, kGoingOn = 1, kFinished = 2, kFailed = 3 };

struct SendOptions {
  std::string device;
  uint16_t port = 0;
  std::string file;
  std::string remote;
};

struct Step {
  double progress = 0;
  int32_t error = 0;
  TransferState state = TransferState::kRegistered;
};

// Outlives its command: the transfer thread may still be in a step when the command ends.
class Sender {
 public:
  Sender(const SendOptions& options, Context& context)
      : options_(options), context_(context), steps_(context.stopper) {}

  int Run() {
    CheckPaths();
    progress_.name = std::filesystem::path(options_.file).filename().string();
    const ZelDeviceAddr target{FindDevice(options_.device, kAskTimeoutMs), options_.port};
    start_ = Clock::now();
    (void)ZelFileTransfer(target, 0, 0, options_.file.c_str(), options_.remote.c_str(), OnStep, this);
    Follow();
    stop_ = true;
    steps_.Close();
    if (finished_) return Finish();
    if (context_.stopper.IsRequested()) {
      context_.output.Note("stopped; the device has a part of the file at most");
      return kInterrupted;
    }
    throw LibraryFailure("the device does not say that it has the file", ZEL_E_TIMEOUT);
  }

 private:
  // On the main thread when the transfer is registered, then on the library's transfer thread.
  static int32_t OnStep(const ZelDeviceId*, uint32_t, float progress, uint32_t error, uint8_t state,
                        void* user) {
    auto* self = static_cast<Sender*>(user);
    self->steps_.Put({progress, static_cast<int32_t>(error), static_cast<TransferState>(state)});
    return error != 0 || self->stop_ ? -1 : 0;
  }

  void CheckPaths() {
    std::error_code problem;
    const auto size = std::filesystem::file_size(options_.file, problem);
    if (problem)
      throw LibraryFailure("cannot read " + options_.file + " (" + problem.message() + ")", ZEL_E_FILE_OPEN);
    progress_.bytes = static_cast<double>(size);
    if (options_.file.size() > kLongestPath || options_.remote.size() > kLongestPath) {
      throw UsageFailure("a path is longer than 255 bytes");
    }
  }

  void Follow() {
    while (!context_.stopper.IsRequested()) {
      const auto step = steps_.Take(After(kSilenceSec));
      if (!step) return;
      if (step->error != ZEL_OK) {
        stop_ = true;
        throw LibraryFailure(step->error == ZEL_E_FILE_OPEN ? "cannot send " + options_.file
                                                            : "sending " + options_.file + " failed",
                             step->error);
      }
      progress_.fraction = std::min(1.0, step->progress);
      progress_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
      finished_ = step->state == TransferState::kFinished;
      Show(finished_);
      if (finished_) return;
    }
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
    record.Text("event", event).Text("file", options_.file).Text("remote", options_.remote);
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
      context_.output.Line(Printable(options_.file) + ": " + ReadableSize(progress_.bytes) + " in " +
                           Fixed(progress_.seconds, 1) + " s, " + ReadableSize(Rate(progress_)) + "/s");
    }
    return kDone;
  }

  const SendOptions& options_;
  Context& context_;
  Mailbox<Step> steps_;
  std::atomic<bool> stop_ = false;
  bool finished_ = false;
  Clock::time_point start_;
  Clock::time_point shown_;
  ProgressState progress_;
};

constexpr const char* kSendHelp = R"(Examples:
  zel send 192.168.1.20.0.1 700 recipe.bin /data/recipe.bin
  zel send 192.168.1.20 700 firmware.img firmware.img --json

PORT is the router port of the one who takes files on the device, REMOTE the name that
the file gets there. Files of 2 GiB and more are refused. The status is 1 when the
device refuses the file or the connection is lost, 27 when the device stays silent.)";

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
  command->add_option("REMOTE", options->remote, "Its name on the device")->required()->type_name("");
  command->footer(kSendHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) {
      static Sender* const sender = new Sender(*options, context);
      return sender->Run();
    };
  });
}

}  // namespace zeltool
