#include "Program.h"

#include <libzel/libzel.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <system_error>
#include <thread>

#include "CommandLine.h"
#include "Commands.h"
#include "Failure.h"
#include "Generate.h"
#include "Log.h"

namespace zeltool {
namespace {

// After an interrupt first the command ends by itself, then the calls that it is in are ended, then the
// process.
constexpr std::chrono::milliseconds kOwnEnd{80};
constexpr std::chrono::milliseconds kCallsEnd{120};

// The log's stream: null when nobody wants it.
std::FILE* OpenLog(const CommonOptions& common) {
  if (common.log.empty()) return common.verbose ? stderr : nullptr;
  std::FILE* file = OpenFile(common.log, "a");
  if (file == nullptr) {
    throw UsageFailure("cannot open " + common.log + ": " + std::generic_category().message(errno));
  }
  return file;
}

// Ends the process if the main thread does not see the wish.
void WatchInterrupts(Stopper& stopper) {
  static std::atomic<bool> again = false;
  OnInterrupt([&stopper] {
    if (again.exchange(true)) std::_Exit(kInterrupted);
    stopper.Request();
    std::thread([] {
      std::this_thread::sleep_for(kOwnEnd);
      std::thread([] { (void)libzel_destory(); }).detach();
      std::this_thread::sleep_for(kCallsEnd);
      std::_Exit(kInterrupted);
    }).detach();
  });
}

// No peer ends the program or holds it up for ever, which is the library's default in C++. The pauses between
// reconnects are the user's business.
zel::Options LibraryOptions(std::FILE* log) {
  zel::Options options;
  options.Set(zel::Option::kJitterPercent, 0).Set(zel::TimeOption::kReconnectMax, zel::Milliseconds(0));
  return options.Log(MakeLogSink(log), log != nullptr ? zel::LogLevel::kDebug : zel::LogLevel::kWarning);
}

// What ends a command, as the failure that it is.
Failure CurrentFailure() {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure;
  } catch (const std::exception& failure) {
    return {kFailed, failure.what()};
  }
}

int RunTask(const Task& task, Context& context) {
  int status = kDone;
  try {
    if (task.usesLibrary && !context.library->Start()) {
      throw LibraryFailure("the system's network does not start", context.library->Start().Code());
    }
    status = task.run(context);
  } catch (...) {
    const Failure failure = CurrentFailure();
    if (!context.stopper.IsRequested()) context.output.Fail(failure);
    status = failure.Status();
  }
  context.output.ClearStatus();
  for (const std::string& warning : TakeAnswerWarnings()) context.output.Note(warning);
  if (!context.stopper.IsRequested()) return status;
  if (context.output.IsJson()) context.output.Fail(Failure(kInterrupted, "interrupted"));
  return kInterrupted;
}

// What could not be written is lost, however well the rest went.
int CheckOutput(Output& output, int status) {
  if (output.IsGood()) return status;
  (void)std::fprintf(stderr, "zel: cannot write the results: %s\n",
                     std::generic_category().message(output.Error()).c_str());
  return status == kDone ? kFailed : status;
}

int Start(const Task& task, const CommonOptions& common) {
  // The library's threads go on to the end of the process, so that what they use is never destroyed.
  static Stopper* const stopper = new Stopper();
  WatchInterrupts(*stopper);
  WriteOutputAsBytes();
  const Remarks remarks = common.quiet ? Remarks::kHidden : Remarks::kShown;
  static Output* const output = new Output(stdout, common.json, remarks);
  std::FILE* log = nullptr;
  try {
    log = OpenLog(common);
  } catch (const UsageFailure& failure) {
    output->Fail(failure);
    return kUsage;
  }
  if (!task.usesLibrary) {
    Context context{*output, *stopper, nullptr};
    return CheckOutput(*output, RunTask(task, context));
  }
  static zel::Library* const library = new zel::Library(LibraryOptions(log));
  Context context{*output, *stopper, library};
  const int status = CheckOutput(*output, RunTask(task, context));
  (void)libzel_destory();
  return status;
}

// Help, the manual and the like, which must not be lost in silence either.
int Write(const std::string& text) {
  WriteOutputAsBytes();
  Output output(stdout, false, Remarks::kShown);
  output.Raw(text);
  return CheckOutput(output, kDone);
}

}  // namespace

int RunProgram(int argc, char** argv) {
  CommonOptions common;
  Task task;
  const std::vector<std::string> arguments = ProgramArguments(argc, argv);
  const auto app = MakeCommandLine(common, task);
  try {
    CheckCommandName(*app, arguments);
    std::vector<std::string> lastFirst(arguments.rbegin(), arguments.rend());
    app->parse(lastFirst);
    if (!common.generate.empty()) return Write(Generate(*app, common.generate));
    if (!task.run) throw UsageFailure("no command is given");
  } catch (const CLI::Success& wish) {
    std::ostringstream text;
    (void)app->exit(wish, text, text);
    return Write(text.str());
  } catch (const CLI::ParseError& problem) {
    return ReportUsage(*app, arguments, ExplainParse(*app, problem));
  } catch (const UsageFailure& failure) {
    return ReportUsage(*app, arguments, failure.what());
  }
  return Start(task, common);
}

}  // namespace zeltool
