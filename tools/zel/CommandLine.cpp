#include "CommandLine.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Failure.h"
#include "Help.h"
#include "Text.h"

namespace zeltool {
namespace {

constexpr const char* kHelp =
    R"(DEVICE is a device's identifier, six numbers as in 192.168.1.20.0.1, its address, a host name, or the
device's own name or serial number as zel scan shows them. An identifier is asked for at the address that
its first four numbers make; when that is not the device, it is looked for on the networks.

What the commands find goes to standard output: for people, or with --json one object a line for programs,
failures included. Remarks go to standard error, but not with --quiet. The library's own log goes to the
file of --log, or with --verbose to standard error, else nowhere. No colours are used.

Exit status:
)";

constexpr const char* kTry = R"(
Try: zel scan, then zel COMMAND --help, which has examples.)";

std::string StatusRows() {
  std::string rows;
  for (const auto& [status, meaning] : kExitStatuses) {
    rows += "  " + std::to_string(status) + "  " + meaning + "\n";
  }
  return rows;
}

void AddCommon(CLI::App& app, CommonOptions& common) {
  app.add_flag("-j,--json", common.json, "Write one JSON object a line");
  app.add_flag("-q,--quiet", common.quiet, "Tell failures only, and show no progress");
  app.add_option("-L,--log", common.log, "Append the library's log to this file")->type_name("FILE");
  app.add_flag("-v,--verbose", common.verbose, "Write the library's log to standard error");
  app.set_version_flag("-V,--version", std::string("zel ") + ZEL_TOOL_VERSION, "Show the program's version");
  app.add_option("--generate", common.generate, "man, bash, zsh, fish or page:COMMAND")->group("");
}

void AddCommands(CLI::App& app, Task& task) {
  AddScan(app, task);
  AddId(app, task);
  AddRequest(app, task);
  AddPub(app, task);
  AddSub(app, task);
  AddListen(app, task);
  AddRecord(app, task);
  AddReplay(app, task);
  AddSend(app, task);
  AddWatch(app, task);
  AddDoctor(app, task);
  AddErrors(app, task);
  AddVersion(app, task);
}

// Common options may come behind a command, too.
void LetCommonOptionsFollow(CLI::App& app) {
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    command->fallthrough();
    LetCommonOptionsFollow(*command);
  }
}

// How many letters must be changed, added or taken away.
size_t Distance(const std::string& left, const std::string& right) {
  std::vector<size_t> row(right.size() + 1);
  for (size_t i = 0; i < row.size(); ++i) row[i] = i;
  for (size_t i = 1; i <= left.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i);
    for (size_t j = 1; j < row.size(); ++j) {
      const size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, replaced}));
    }
  }
  return row.back();
}

// "; did you mean X?" for the nearest word, if one is near.
std::string Suggestion(const std::string& word, const std::vector<std::string>& words) {
  size_t best = word.size() / 3 + 2;
  std::string nearest;
  for (const std::string& known : words) {
    const size_t distance = Distance(word, known);
    if (distance >= best) continue;
    best = distance;
    nearest = known;
  }
  return nearest.empty() ? "" : "; did you mean " + nearest + "?";
}

std::vector<std::string> CommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : VisibleCommands(app)) names.push_back(command->get_name());
  return names;
}

// The command, or part of one, that the line names; the program itself when it names none.
const CLI::App& NamedCommand(const CLI::App& app) {
  const auto named = app.get_subcommands();
  return named.empty() ? app : NamedCommand(*named.back());
}

std::string Missing(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : VisibleOptions(command)) {
    if (option->get_required() && option->count() == 0)
      names.push_back(option->get_name(option->get_positional()));
  }
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  }
  return names.size() == 1 ? text + " is missing" : text + " are missing";
}

std::vector<std::string> OptionNames(const CLI::App& app, const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* place : {&app, &command}) {
    for (const CLI::Option* option : VisibleOptions(*place)) {
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
  }
  return names;
}

std::string ExplainExtras(const CLI::App& app, const CLI::App& command) {
  std::string text;
  for (const std::string& word : app.remaining(true)) {
    const bool isOption = word.size() > 1 && word[0] == '-';
    const auto known = isOption ? OptionNames(app, command) : CommandNames(command);
    if (!text.empty()) text += "; ";
    text += "'" + word + "' is " + (isOption ? "no option here" : "too much") +
            Suggestion(word.substr(0, word.find('=')), known);
  }
  return text;
}

}  // namespace

std::unique_ptr<CLI::App> MakeCommandLine(CommonOptions& common, Task& task) {
  auto app = std::make_unique<CLI::App>(
      "Find Zel devices, ask them, and exchange messages and files with them", "zel");
  app->formatter(MakeFormatter());
  app->set_help_flag("-h,--help", "Show this help");
  app->allow_windows_style_options(false);  // "/data/recipe" is a path on a device
  AddCommon(*app, common);
  AddCommands(*app, task);
  LetCommonOptionsFollow(*app);
  app->footer(kHelp + StatusRows() + kTry);
  return app;
}

void CheckCommandName(const CLI::App& app, const std::vector<std::string>& arguments) {
  const auto names = CommandNames(app);
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "-L" || word == "--log" || word == "--generate") ++i;  // its value follows
    if (word.starts_with('-')) continue;
    if (std::find(names.begin(), names.end(), word) != names.end()) return;
    throw UsageFailure("there is no command '" + Printable(word) + "'" + Suggestion(word, names));
  }
}

std::string ExplainParse(const CLI::App& app, const CLI::ParseError& problem) {
  const CLI::App& command = NamedCommand(app);
  if (dynamic_cast<const CLI::RequiredError*>(&problem) != nullptr) {
    const auto parts = CommandNames(command);
    return parts.empty() ? Missing(command) : problem.what();
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&problem) != nullptr) return ExplainExtras(app, command);
  return problem.what();
}

int ReportUsage(const CLI::App& app, const std::vector<std::string>& arguments, const std::string& what) {
  const std::string path = PathOf(NamedCommand(app));
  WriteOutputAsBytes();
  // What a wrong line wants is not read by the one that reads right ones.
  const auto wantsJson = [](const std::string& word) { return word == "-j" || word == "--json"; };
  Output output(stdout, std::any_of(arguments.begin(), arguments.end(), wantsJson), Remarks::kShown);
  output.Fail(Failure(kUsage, what, "see " + path + " --help"));
  return kUsage;
}

}  // namespace zeltool
