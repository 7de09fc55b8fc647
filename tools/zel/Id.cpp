// zel id
#include <libzel/libzel.h>

#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Device.h"
#include "Failure.h"

namespace zeltool {
namespace {

struct IdOptions {
  std::string host;
  std::string identifier;
  int32_t timeoutMs = kAskTimeoutMs;
};

void Show(Output& output, const std::string& host, const std::string& identifier) {
  if (!output.IsJson()) return output.Line(identifier);
  Record record;
  if (!host.empty()) record.Text("host", host);
  output.Object(record.Text("identifier", identifier));
}

int ShowLocal(Context& context) {
  ZelDeviceId id{};
  const int32_t code = libzel_getLocalZelDeviceId(&id);
  if (code != ZEL_OK) throw LibraryFailure("this machine has no identifier", code);
  Show(context.output, "", ToText(id));
  return kDone;
}

int Get(const IdOptions& options, Context& context) {
  Show(context.output, options.host, ToText(FindDevice(options.host, options.timeoutMs)));
  return kDone;
}

int Set(const IdOptions& options, Context& context) {
  const int32_t code =
      libzel_setRemoteZelDeviceId(options.host.c_str(), options.identifier.c_str(), options.timeoutMs);
  if (code != ZEL_OK) throw LibraryFailure(options.host + " does not take the identifier", code);
  if (context.output.IsJson()) {
    Show(context.output, options.host, options.identifier);
  } else {
    context.output.Line(options.host + " is now " + options.identifier);
  }
  return kDone;
}

void AddHost(CLI::App& command, IdOptions& options) {
  command.add_option("HOST", options.host, "Address of the device")
      ->required()
      ->check(CheckAddress)
      ->type_name("");
}

void AddTimeout(CLI::App& command, IdOptions& options) {
  command.add_option("-t,--timeout", options.timeoutMs, "How long to wait for the device; 1000 if not given")
      ->check(CLI::Range(1, 3600000).description(""))
      ->type_name("MS");
}

constexpr const char* kIdHelp = R"(Examples:
  zel id local                             this machine's identifier
  zel id get 192.168.1.20                  ask a device for its own
  zel id set 192.168.1.20 10.0.0.7.0.1     give it another one

An identifier is six numbers from 0 to 255 joined by points. The device is asked
directly, by one datagram to its UDP port 38898.)";

}  // namespace

void AddId(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("id", "Show or change identifiers");
  command->require_subcommand(1)->footer(kIdHelp);
  auto options = std::make_shared<IdOptions>();

  CLI::App* local = command->add_subcommand("local", "Show this machine's identifier");
  local->callback([&task] { task.run = ShowLocal; });

  CLI::App* get = command->add_subcommand("get", "Ask a device for its identifier");
  AddHost(*get, *options);
  AddTimeout(*get, *options);
  get->callback(
      [&task, options] { task.run = [options](Context& context) { return Get(*options, context); }; });

  CLI::App* set = command->add_subcommand("set", "Give a device an identifier");
  AddHost(*set, *options);
  set->add_option("ID", options->identifier, "The new identifier, as in 10.0.0.7.0.1")
      ->required()
      ->check(CheckDeviceId)
      ->type_name("");
  AddTimeout(*set, *options);
  set->callback(
      [&task, options] { task.run = [options](Context& context) { return Set(*options, context); }; });
}

}  // namespace zeltool
