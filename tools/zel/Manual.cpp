#include <sstream>

#include "Generate.h"

namespace zeltool {
namespace {

// Text that troff shows as it is.
std::string Escape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    const bool lineStart = i == 0 || text[i - 1] == '\n';
    if (lineStart && (character == '.' || character == '\'')) out += "\\&";
    if (character == '\\') {
      out += "\\e";
    } else if (character == '-') {
      out += "\\-";
    } else {
      out += character;
    }
  }
  return out;
}

std::string Italic(const std::string& text) { return "\\fI" + Escape(text) + "\\fR"; }
std::string Bold(const std::string& text) { return "\\fB" + Escape(text) + "\\fR"; }

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
    out << ".TP\n" << OptionTitle(*option) << "\n" << Escape(option->get_description()) << ".\n";
  }
}

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

// A footer is a block of examples, then paragraphs.
void WriteFooter(std::ostream& out, const std::string& footer) {
  std::istringstream lines(footer);
  std::string line;
  bool verbatim = false;
  while (std::getline(lines, line)) {
    const bool indented = line.starts_with("  ");
    if (indented != verbatim) out << (indented ? ".PP\n.nf\n" : ".fi\n");
    verbatim = indented;
    out << (line.empty() ? ".PP" : Escape(line)) << "\n";
  }
  if (verbatim) out << ".fi\n";
}

void WriteCommand(std::ostream& out, const CLI::App& command, const std::string& path) {
  out << ".SS " << Synopsis(command, path) << "\n" << Escape(command.get_description()) << ".\n";
  WriteOptions(out, command);
  for (const CLI::App* part : VisibleCommands(command))
    WriteCommand(out, *part, path + " " + part->get_name());
  if (!command.get_footer().empty()) {
    out << ".PP\n";
    WriteFooter(out, command.get_footer());
  }
}

}  // namespace

std::string MakeManual(const CLI::App& app) {
  std::ostringstream out;
  out << ".TH ZEL 1 \"\" \"zel " << ZEL_TOOL_VERSION << "\" \"User Commands\"\n"
      << ".SH NAME\nzel \\- " << Escape(app.get_description()) << "\n"
      << ".SH SYNOPSIS\n.B zel\n[" << Italic("options") << "] " << Italic("command") << " ["
      << Italic("arguments") << "]\n.SH OPTIONS\nThese come before or behind a command.\n";
  WriteOptions(out, app);
  out << ".SH COMMANDS\n";
  for (const CLI::App* command : VisibleCommands(app))
    WriteCommand(out, *command, "zel " + command->get_name());
  out << ".SH NOTES\n";
  WriteFooter(out, app.get_footer());
  return out.str();
}

std::string Generate(const CLI::App& app, const std::string& kind) {
  return kind == "man" ? MakeManual(app) : MakeCompletion(app);
}

}  // namespace zeltool
