// zel errors, zel version
#include <libzel/libzelx.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include "Commands.h"
#include "ErrorPage.h"
#include "Failure.h"
#include "Text.h"

namespace zeltool {
namespace {

// No code of the library is above; its texts are asked for one by one.
constexpr int32_t kLastCode = 0xFFFF;

const ErrorEntry* Find(int32_t code) {
  const auto& all = AllErrors();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const ErrorEntry& one) { return one.code == code; });
  return found == all.end() ? nullptr : &*found;
}

std::string NameOf(int32_t code) {
  const ErrorEntry* entry = Find(code);
  return entry == nullptr || entry->names.empty() ? "" : entry->names.front();
}

// The number that a text is, or names.
std::optional<int32_t> ReadCode(const std::string& text) {
  for (const ErrorEntry& entry : AllErrors()) {
    if (std::find(entry.names.begin(), entry.names.end(), text) != entry.names.end()) return entry.code;
  }
  const bool negative = text.starts_with('-');
  const auto number = ParseNumber(std::string_view(text).substr(negative ? 1 : 0), 0xFFFFFFFFU);
  if (!number) return std::nullopt;
  const auto bits = static_cast<uint32_t>(*number);
  return static_cast<int32_t>(negative ? 0U - bits : bits);
}

std::string Hexadecimal(int32_t code) {
  const auto bits = static_cast<uint32_t>(code);
  std::array<char, 24> text{};
  (void)std::snprintf(text.data(), text.size(), "0x%04lX", static_cast<unsigned long>(bits));
  return text.data();
}

std::string Title(int32_t code) {
  return PadLeft(std::to_string(code), 5) + "  " + Hexadecimal(code) + "  " + PadRight(NameOf(code), 21) +
         libzelx_strerror(code);
}

// On two lines.
std::string ShortTitle(int32_t code) {
  return PadLeft(std::to_string(code), 5) + "  " + Hexadecimal(code) + "  " + NameOf(code) + "\n  " +
         libzelx_strerror(code);
}

Record MakeRecord(int32_t code) {
  Record record;
  record.Number("code", code).Text("text", libzelx_strerror(code));
  if (const std::string name = NameOf(code); !name.empty()) record.Text("name", name);
  return record;
}

int ShowAll(Output& output) {
  const std::string unknown = libzelx_strerror(-1);
  for (int32_t code = 0; code <= kLastCode; ++code) {
    if (libzelx_strerror(code) == unknown) continue;
    if (output.IsJson()) {
      output.Object(MakeRecord(code));
    } else {
      output.Line(Title(code));
    }
  }
  return kDone;
}

std::string CheckCode(const std::string& text) {
  return ReadCode(text)
             ? std::string()
             : "'" + text + "' is no error number and no error's name, as in 4104, 0x1008 or ZEL_E_TIMEOUT";
}

int ShowOne(Output& output, const std::string& text) {
  const int32_t code = *ReadCode(text);
  const ErrorEntry* entry = Find(code);
  if (output.IsJson()) {
    Record record = MakeRecord(code);
    if (entry != nullptr) record.Text("cause", entry->cause).Text("cure", entry->cure);
    output.Object(record);
    return kDone;
  }
  const size_t width = output.Size().columns - 1;
  output.Line(Title(code).size() <= width ? Title(code) : ShortTitle(code));
  if (entry == nullptr) return kDone;
  constexpr size_t kIndent = 9;
  output.Line("  Cause: " + Wrapped(entry->cause, width, kIndent));
  output.Line("  Cure:  " + Wrapped(entry->cure, width, kIndent));
  return kDone;
}

int ShowVersion(Context& context) {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t patch = 0;
  (void)libzel_version(&major, &minor, &patch);
  const std::string library =
      std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
  if (context.output.IsJson()) {
    context.output.Object(Record().Text("zel", ZEL_TOOL_VERSION).Text("libzel", library));
  } else {
    context.output.Line(std::string("zel ") + ZEL_TOOL_VERSION + ", libzel " + library);
  }
  return kDone;
}

constexpr const char* kErrorsHelp = R"(Examples:
  zel errors            every code: decimal, hexadecimal, its name in C, its text
  zel errors 4104       one of them, with its cause and its cure
  zel errors 0x1008     the same one; so is zel errors ZEL_E_TIMEOUT

Servers and devices may answer with codes that the library has no text for.)";

}  // namespace

void AddErrors(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("errors", "Explain error numbers");
  auto code = std::make_shared<std::string>();
  command->add_option("CODE", *code, "The number to explain, or its name; all if not given")
      ->check(CheckCode)
      ->type_name("");
  command->footer(kErrorsHelp);
  command->callback([code, &task] {
    task.usesLibrary = false;
    task.run = [code](Context& context) {
      return code->empty() ? ShowAll(context.output) : ShowOne(context.output, *code);
    };
  });
}

void AddVersion(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("version", "Show the versions of program and library");
  command->callback([&task] {
    task.usesLibrary = false;
    task.run = ShowVersion;
  });
}

}  // namespace zeltool
