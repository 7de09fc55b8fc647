// zel errors, zel version
#include <libzel/libzelx.h>

#include <array>
#include <memory>
#include <utility>

#include "Commands.h"
#include "Failure.h"
#include "Text.h"

namespace zeltool {
namespace {

constexpr int32_t kLastCode = 0x4FFF;

constexpr std::array<std::pair<int32_t, const char*>, 25> kNames = {{
    {ZEL_OK, "ZEL_OK"},
    {ZEL_EVENT_CONNECTED, "ZEL_EVENT_CONNECTED"},
    {ZEL_EVENT_PENDING, "ZEL_EVENT_PENDING"},
    {ZEL_E_DISCONNECTED, "ZEL_E_DISCONNECTED"},
    {ZEL_EVENT_FAILED, "ZEL_EVENT_FAILED"},
    {ZEL_E_DEVICE_ID, "ZEL_E_DEVICE_ID"},
    {ZEL_E_NO_ROUTER, "ZEL_E_NO_ROUTER"},
    {ZEL_E_ROUTER, "ZEL_E_ROUTER"},
    {ZEL_E_TIMEOUT, "ZEL_E_TIMEOUT"},
    {ZEL_E_TOPIC, "ZEL_E_TOPIC"},
    {ZEL_E_PROTOCOL, "ZEL_E_PROTOCOL"},
    {ZEL_E_TOO_SHORT, "ZEL_E_TOO_SHORT"},
    {ZEL_E_LENGTH, "ZEL_E_LENGTH"},
    {ZEL_E_SEND, "ZEL_E_SEND"},
    {ZEL_E_RESERVED_PORT, "ZEL_E_RESERVED_PORT"},
    {ZEL_E_INVOKE_ID, "ZEL_E_INVOKE_ID"},
    {ZEL_E_HANDLE, "ZEL_E_HANDLE"},
    {ZEL_E_ADAPTER, "ZEL_E_ADAPTER"},
    {ZEL_E_RESOURCE, "ZEL_E_RESOURCE"},
    {ZEL_E_PARAM, "ZEL_E_PARAM"},
    {ZEL_E_MEMORY, "ZEL_E_MEMORY"},
    {ZEL_E_FILE_OPEN, "ZEL_E_FILE_OPEN"},
    {ZEL_E_FILE_READ, "ZEL_E_FILE_READ"},
    {ZEL_E_FILE_HANDLE, "ZEL_E_FILE_HANDLE"},
    {ZEL_E_FILE_TRANSFER, "ZEL_E_FILE_TRANSFER"},
}};

std::string NameOf(int32_t code) {
  for (const auto& [value, name] : kNames) {
    if (value == code) return name;
  }
  return {};
}

std::string Hexadecimal(int32_t code) {
  const auto bits = static_cast<uint32_t>(code);
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "0x%04lX", static_cast<unsigned long>(bits));
  return text.data();
}

void ShowCode(Output& output, int32_t code) {
  const std::string name = NameOf(code);
  if (output.IsJson()) {
    Record record;
    record.Number("code", code).Text("text", libzelx_strerror(code));
    if (!name.empty()) record.Text("name", name);
    output.Object(record);
    return;
  }
  output.Line(PadLeft(std::to_string(code), 5) + "  " + Hexadecimal(code) + "  " + PadRight(name, 21) +
              libzelx_strerror(code));
}

int ShowAll(Output& output) {
  const std::string unknown = libzelx_strerror(-1);
  for (int32_t code = 0; code <= kLastCode; ++code) {
    if (libzelx_strerror(code) != unknown) ShowCode(output, code);
  }
  return kDone;
}

std::string CheckCode(const std::string& text) {
  const bool negative = text.starts_with('-');
  const auto number = ParseNumber(std::string_view(text).substr(negative ? 1 : 0), 0xFFFFFFFFU);
  return number ? std::string() : "'" + text + "' is no error number, as in 4104 or 0x1008";
}

int ShowOne(Output& output, const std::string& text) {
  const bool negative = text.starts_with('-');
  const auto number =
      static_cast<uint32_t>(*ParseNumber(std::string_view(text).substr(negative ? 1 : 0), 0xFFFFFFFFU));
  ShowCode(output, static_cast<int32_t>(negative ? 0U - number : number));
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
  zel errors 4104       one of them
  zel errors 0x1008     the same one

Servers and devices may answer with codes that the library has no text for.)";

}  // namespace

void AddErrors(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("errors", "Explain error numbers");
  auto code = std::make_shared<std::string>();
  command->add_option("CODE", *code, "The number to explain; all if not given")
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
