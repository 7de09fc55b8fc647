// zel id
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Failure.h"
#include "Lookup.h"
#include "Opening.h"
#include "Reasons.h"

namespace zeltool {
namespace {

struct IdOptions {
  std::string host;
  std::string identifier;
  Patience patience;
};

constexpr uint32_t kOwnAnswerMs = 1000;

// For the device's answer, once its address is known.
zel::Milliseconds TimeToAnswer(const IdOptions& options, const Budget& budget, const std::string& host) {
  const uint32_t given = options.patience.timeoutMs;
  return budget.Take(zel::Milliseconds(given > 0 ? given : kOwnAnswerMs), "ask " + host);
}

void Show(Output& output, const std::string& host, const std::string& identifier) {
  if (!output.IsJson()) return output.Line(identifier);
  Record record;
  if (!host.empty()) record.Text("host", host);
  output.Object(record.Text("identifier", identifier));
}

int ShowLocal(Context& context) {
  const auto id = zel::DeviceId::Local();
  if (!id) throw LibraryFailure("this machine has no identifier", id.Code());
  Show(context.output, "", id->ToString());
  return kDone;
}

[[noreturn]] void FailAsked(Context& context, const std::string& host, const std::string& what,
                            int32_t code) {
  if (code == ZEL_E_SEND) {
    const Reason reason = ExplainConnect(host, ": no route");
    throw LibraryFailure(what + ": " + reason.sentence, code, reason.advice);
  }
  if (code != ZEL_E_TIMEOUT) throw LibraryFailure(what, code);
  const Reason reason = ExplainSilence(host, IsServerThere(host, *context.library));
  throw LibraryFailure(what + ": " + reason.sentence, code, reason.advice);
}

int Get(const IdOptions& options, Context& context) {
  const Budget budget(options.patience);
  const std::string host = FindHost(options.host, options.patience, budget, context);
  const auto id = AskIdentifier(host, TimeToAnswer(options, budget, host));
  if (!id) FailAsked(context, host, options.host + " does not tell its identifier", id.Code());
  Show(context.output, options.host, id->ToString());
  return kDone;
}

int Set(const IdOptions& options, Context& context) {
  const Budget budget(options.patience);
  const std::string host = FindHost(options.host, options.patience, budget, context);
  const zel::Milliseconds time = TimeToAnswer(options, budget, host);
  const auto id = *zel::DeviceId::Parse(options.identifier);
  zel::Result result = id.AssignTo(host, time / 2);
  // Twice the same does no harm.
  if (result.Code() == ZEL_E_TIMEOUT) result = id.AssignTo(host, time / 2);
  if (!result) FailAsked(context, host, options.host + " does not take the identifier", result.Code());
  if (context.output.IsJson()) {
    Show(context.output, options.host, options.identifier);
  } else {
    context.output.Line(options.host + " is now " + options.identifier);
  }
  return kDone;
}

void AddHost(CLI::App& command, IdOptions& options) {
  command.add_option("HOST", options.host, "Address of the device, or its name")
      ->required()
      ->check(CheckDevice)
      ->type_name("");
}

void AddTimeout(CLI::App& command, IdOptions& options) {
  command
      .add_option("-t,--timeout", options.patience.timeoutMs, "Time to find the device, and for its answer")
      ->check(CLI::Range(1, 3600000).description(""))
      ->type_name("MS");
}

constexpr const char* kIdHelp = R"(Examples:
  zel id                                   this machine's identifier; so does zel id local
  zel id get 192.168.1.20                  ask a device for its own
  zel id set 192.168.1.20 10.0.0.7.0.1     give it another one

An identifier is six numbers from 0 to 255 joined by points. The device is asked
directly, by one datagram to its UDP port 38898, and asked once more when no answer
comes. Without --timeout an answer may take 1000 ms.)";

}  // namespace

void AddId(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("id", "Show or change identifiers");
  command->require_subcommand(0, 1)->footer(kIdHelp);
  // Runs before the one of a part, which then says what is to be done.
  command->preparse_callback([&task](size_t) { task.run = ShowLocal; });
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
