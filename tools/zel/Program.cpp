#include "Program.h"

#include <libzel/libzel.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <system_error>
#include <thread>

#include "Commands.h"
#include "Device.h"
#include "Failure.h"
#include "Generate.h"

namespace zeltool {
namespace {

// A command that is in a call of the library sees the wish to end when the call returns.
constexpr double kGraceSec = 2.5;

struct CommonOptions {
  bool json = false;
  bool verbose = false;
  std::string log;
  std::string generate;
};

constexpr const char* kHelp =
    R"(DEVICE is a device's identifier, six numbers as in 192.168.1.20.0.1, or its address:
then the device is asked for its identifier first. An identifier that no scan has
found is reached at the address that its first four numbers make.

What the commands find goes to standard output: for people, or with --json one object
a line for programs. The library's own log goes to the file of --log, else to standard
error, but to a terminal only with --verbose.

Exit status: 0 done, 1 the library or the device reported an error (its number and text
are shown, zel errors lists them), 2 the command line is wrong, 27 nothing arrived in
time, 130 interrupted.

Try: zel scan, then zel COMMAND --help, which has examples.)";

void AddCommon(CLI::App& app, CommonOptions& common) {
  app.add_flag("-j,--json", common.json, "Write one JSON object a line");
  app.add_option("-L,--log", common.log, "Append the library's log to this file")->type_name("FILE");
  app.add_flag("-v,--verbose", common.verbose, "Show the library's log on a terminal, too");
  app.set_version_flag("-V,--version", std::string("zel ") + ZEL_TOOL_VERSION, "Show the program's version");
  app.add_option("--generate", common.generate, "man or completion")
      ->check(CLI::IsMember({"man", "completion"}))
      ->group("");
}

void AddCommands(CLI::App& app, Task& task) {
  AddScan(app, task);
  AddId(app, task);
  AddRequest(app, task);
  AddPub(app, task);
  AddSub(app, task);
  AddListen(app, task);
  AddSend(app, task);
  AddWatch(app, task);
  AddErrors(app, task);
  AddVersion(app, task);
}

// Says of an option what it takes, and no more: what must be given and what excludes what is better read in
// the examples.
class PlainFormatter : public CLI::Formatter {
 public:
  PlainFormatter() {
    column_width(28);
    label("Positionals", "Arguments");
    label("Subcommands", "Commands");
    label("SUBCOMMAND", "COMMAND");
    label("OPTIONS", "options");
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    if (option->get_type_size() == 0 || option->get_positional()) return {};
    return " " + option->get_type_name();
  }
};

// Common options may come behind a command, too.
void LetCommonOptionsFollow(CLI::App& app) {
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    command->fallthrough();
    LetCommonOptionsFollow(*command);
  }
}

LogTarget ChooseLog(const CommonOptions& common) {
  if (!common.log.empty()) return LogTarget::kFile;
  return common.verbose || !IsErrorTerminal() ? LogTarget::kStandardError : LogTarget::kNowhere;
}

// Ends the process if the main thread does not see the wish.
void WatchInterrupts(Stopper& stopper) {
  static std::atomic<bool> again = false;
  OnInterrupt([&stopper] {
    if (again.exchange(true)) std::_Exit(kInterrupted);
    stopper.Request();
    std::thread([] {
      std::this_thread::sleep_for(std::chrono::duration<double>(kGraceSec));
      std::_Exit(kInterrupted);
    }).detach();
  });
}

void ReportFailure(Output& output, const std::string& what, int32_t code) {
  if (output.IsJson()) {
    output.Object(Record().Number("error", code).Text("errorText", libzel_strerror(code)).Text("what", what));
  }
  output.Note(what + ": " + ErrorText(code));
}

int RunTask(const Task& task, Context& context) try {
  if (!task.usesLibrary) return task.run(context);
  const int32_t started = libzel_init();
  if (started != 0) throw LibraryFailure("the system's network does not start", started);
  return task.run(context);
} catch (const LibraryFailure& failure) {
  ReportFailure(context.output, failure.what(), failure.Code());
  return failure.Code() == ZEL_E_TIMEOUT ? kNothingArrived : kLibraryFailed;
} catch (const NothingArrived& failure) {
  context.output.Note(failure.what());
  return kNothingArrived;
} catch (const UsageFailure& failure) {
  context.output.Note(failure.what());
  return kUsage;
} catch (const std::exception& failure) {
  context.output.Note(failure.what());
  return kLibraryFailed;
}

int Start(const Task& task, const CommonOptions& common) {
  // The library's threads go on to the end of the process, so that what they use is never destroyed.
  static Stopper* const stopper = new Stopper();
  WatchInterrupts(*stopper);
  std::FILE* stream = SeparateOutputFromLog(ChooseLog(common), common.log);
  if (stream == nullptr) {
    (void)std::fprintf(stderr, "zel: cannot open %s: %s\n", common.log.c_str(),
                       std::generic_category().message(errno).c_str());
    return kUsage;
  }
  static Output* const output = new Output(stream, common.json);
  static Context* const context = new Context{*output, *stopper};
  const int status = RunTask(task, *context);
  output->ClearStatus();
  if (task.usesLibrary) (void)libzel_destory();
  if (std::fclose(stream) != 0 && status == kDone) return kLibraryFailed;
  return status;
}

}  // namespace

int RunProgram(int argc, char** argv) {
  CLI::App app("Find Zel devices, ask them, and exchange messages and files with them", "zel");
  CommonOptions common;
  Task task;
  app.formatter(std::make_shared<PlainFormatter>());
  app.allow_windows_style_options(false);  // "/data/recipe" is a path on a device
  AddCommon(app, common);
  AddCommands(app, task);
  LetCommonOptionsFollow(app);
  app.footer(kHelp);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? kDone : kUsage;
  }
  if (!common.generate.empty()) {
    std::cout << (common.generate == "man" ? MakeManual(app) : MakeCompletion(app)) << std::flush;
    return kDone;
  }
  if (!task.run) {
    std::cerr << app.help();
    return kUsage;
  }
  return Start(task, common);
}

}  // namespace zeltool
