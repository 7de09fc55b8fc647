#include <sstream>

#include "Failure.h"
#include "Generate.h"
#include "Help.h"
#include "HelpText.h"

namespace zeltool {
namespace {

std::string Italic(const std::string& text) { return "\\fI" + EscapeForMan(text) + "\\fR"; }
std::string Bold(const std::string& text) { return "\\fB" + EscapeForMan(text) + "\\fR"; }

std::string OptionTitle(const CLI::Option& option) {
  if (option.get_positional()) return Italic(option.get_name(true));
  std::string title;
  for (const std::string& name : option.get_snames()) title += (title.empty() ? "" : ", ") + Bold("-" + name);
  for (const std::string& name : option.get_lnames())
    title += (title.empty() ? "" : ", ") + Bold("--" + name);
  if (option.get_items_expected_max() > 0) title += " " + Italic(option.get_type_name());
  return title;
}

void WriteOptions(std::ostream& out, const CLI::App& app) {
  for (const CLI::Option* option : VisibleOptions(app)) {
    out << ".TP\n" << OptionTitle(*option) << "\n" << EscapeForMan(option->get_description()) << ".\n";
  }
}

// "DEVICE [TEXT]" with the names in italics.
std::string Synopsis(const CLI::App& app, const std::string& path) {
  std::string line = Bold(path) + " [" + Italic("options") + "]";
  for (const CLI::Option* option : VisibleOptions(app)) {
    if (!option->get_positional()) continue;
    const std::string name =
        Italic(option->get_name(true)) + (option->get_items_expected_max() > 1 ? "..." : "");
    line += option->get_required() ? " " + name : " [" + name + "]";
  }
  return line;
}

void WriteCommand(std::ostream& out, const CLI::App& command, const std::string& path) {
  out << ".SS " << Synopsis(command, path) << "\n" << EscapeForMan(command.get_description()) << ".\n";
  WriteOptions(out, command);
  for (const CLI::App* part : VisibleCommands(command))
    WriteCommand(out, *part, path + " " + part->get_name());
  // Parts have that of the whole.
  if (command.get_footer() != command.get_parent()->get_footer()) out << ShowHelpForMan(command.get_footer());
}

}  // namespace

std::string MakeManual(const CLI::App& app) {
  std::ostringstream out;
  out << ".TH ZEL 1 \"\" \"zel " << ZEL_TOOL_VERSION << "\" \"User Commands\"\n"
      << ".SH NAME\nzel \\- " << EscapeForMan(app.get_description()) << "\n"
      << ".SH SYNOPSIS\n.B zel\n[" << Italic("options") << "] " << Italic("command") << " ["
      << Italic("arguments") << "]\n.SH OPTIONS\nThese come before or behind a command.\n";
  WriteOptions(out, app);
  out << ".SH COMMANDS\n";
  for (const CLI::App* command : VisibleCommands(app))
    WriteCommand(out, *command, "zel " + command->get_name());
  out << ".SH NOTES\n";
  out << ShowHelpForMan(app.get_footer());
  return out.str();
}

std::string Generate(const CLI::App& app, const std::string& kind) {
  if (kind == "man") return MakeManual(app);
  if (kind == "bash") return MakeBashCompletion(app);
  if (kind == "zsh") return MakeZshCompletion(app);
  if (kind == "fish") return MakeFishCompletion(app);
  for (const CLI::App* command : VisibleCommands(app)) {
    if (kind == "page:" + command->get_name()) return MakePage(*command);
  }
  throw UsageFailure("--generate knows man, bash, zsh, fish, and page:COMMAND");
}

}  // namespace zeltool
