// zel scan
#include <libzel/libzel.hpp>

#include <algorithm>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "DeviceList.h"
#include "Failure.h"
#include "Lookup.h"
#include "Table.h"
#include "Text.h"
#include "TimeStamp.h"

namespace zeltool {
namespace {

constexpr std::chrono::seconds kSilencePatience{10};
constexpr double kTickSec = 0.5;
// The library asks for the first time when its thread has waited for a second.
constexpr double kFirstQuestionSec = 1.1;

struct ScanOptions {
  double seconds = 5;
  bool hasSeconds = false;
  bool watch = false;
};

FoundDevice ToFound(const zel::Device& device) {
  return {device.idText,          device.address,         device.hostName,
          device.hardwareAddress, device.protocolVersion, device.runtimeVersion,
          device.systemVersion,   device.serialNumber,    device.secondSerialNumber};
}

Record& AddTo(Record& record, const FoundDevice& device) {
  return record.Text("identifier", device.identifier)
      .Text("address", device.address)
      .Text("hostName", device.hostName)
      .Text("hardwareAddress", device.hardwareAddress)
      .Text("zelVersion", device.zelVersion)
      .Text("rteVersion", device.rteVersion)
      .Text("vorlinVersion", device.vorlinVersion)
      .Text("serialNo", device.serialNo)
      .Text("sn", device.sn);
}

std::vector<std::string> ToRow(const FoundDevice& device) {
  return {Printable(device.identifier),      Printable(device.address),    Printable(device.hostName),
          Printable(device.hardwareAddress), Printable(device.zelVersion), Printable(device.rteVersion),
          Printable(device.vorlinVersion),   Printable(device.serialNo),   Printable(device.sn)};
}

const char* Name(DeviceChange change) {
  switch (change) {
    case DeviceChange::kFound: return "found";
    case DeviceChange::kChanged: return "changed";
    case DeviceChange::kBack: return "back";
    case DeviceChange::kSilent: return "silent";
    case DeviceChange::kNone: break;
  }
  return "";
}

// Shows devices: as a table that grows, as lines with times (--watch), or as objects.
class ScanView {
 public:
  ScanView(const ScanOptions& options, Output& output)
      : options_(options),
        output_(output),
        table_(Columns(options.watch), options.watch ? 6 : 4, Width(output)) {}

  void Show(DeviceChange change, const FoundDevice& device) {
    if (change == DeviceChange::kNone || (!options_.watch && change != DeviceChange::kFound)) return;
    if (output_.IsJson()) return ShowObject(change, device);
    std::vector<std::string> row = ToRow(device);
    if (options_.watch) row.insert(row.begin(), {TimeOfDay(std::chrono::system_clock::now()), Name(change)});
    AddRow(std::move(row));
  }

 private:
  static size_t Width(Output& output) {
    constexpr size_t kUnlimited = 100000;
    return output.IsLive() ? output.Size().columns : kUnlimited;
  }

  static std::vector<TableColumn> Columns(bool watch) {
    std::vector<TableColumn> columns = {
        {"IDENTIFIER", 17}, {"ADDRESS", 13}, {"HOST NAME", 12}, {"HARDWARE ADDRESS", 17},
        {"ZEL", 6},         {"RTE", 6},      {"VORLIN", 8},     {"SERIAL NO", 10},
        {"SN", 10}};
    if (watch) columns.insert(columns.begin(), {{"TIME", 12}, {"WHAT", 7}});
    return columns;
  }

  void ShowObject(DeviceChange change, const FoundDevice& device) {
    Record record;
    if (options_.watch)
      record.Text("time", TimeStamp(std::chrono::system_clock::now())).Text("event", Name(change));
    output_.Object(AddTo(record, device));
  }

  void AddRow(std::vector<std::string> row) {
    const size_t before = table_.RowCount() == 0 ? 0 : table_.LineCount();
    const bool changed = table_.Add(std::move(row));
    // What has left the screen cannot be drawn again.
    const bool again = changed && output_.IsLive() && before + 3 < output_.Size().rows;
    if (before == 0 || again) {
      output_.Unwrite(before);
      output_.Line(table_.Header());
      for (size_t i = 0; i < table_.RowCount(); ++i) output_.Line(table_.Row(i));
    } else {
      output_.Line(table_.Row(table_.RowCount() - 1));
    }
  }

  const ScanOptions& options_;
  Output& output_;
  Table table_;
};

class Scan {
 public:
  Scan(const ScanOptions& options, Context& context)
      : options_(options), context_(context), found_(context.stopper), view_(options, context.output) {}

  int Run() {
    StartDiscovery(*context_.library);
    const auto start = Clock::now();
    end_ = IsEndless() ? Deadline() : Deadline(After(kFirstQuestionSec + options_.seconds));
    context_.library->OnDevice([this](const zel::Device& device) { found_.Put(ToFound(device)); }).Ignore();
    context_.library->StartScan().Ignore();
    while (!IsOver()) Turn();
    context_.library->StopScan().Ignore();
    found_.Close();
    context_.library->OnDevice(nullptr).Ignore();
    context_.output.ClearStatus();
    return Finish(std::chrono::duration<double>(Clock::now() - start).count());
  }

 private:
  bool IsEndless() const { return options_.watch && !options_.hasSeconds; }

  bool IsOver() const {
    return context_.stopper.IsRequested() || !context_.output.IsGood() || (end_ && Clock::now() >= *end_);
  }

  void Turn() {
    context_.output.Status(StatusText());
    const Clock::time_point nextTick = After(kTickSec);
    const Deadline tick = end_ ? std::min(*end_, nextTick) : nextTick;
    while (const auto device = found_.Take(tick)) {
      view_.Show(devices_.Note(*device, Clock::now()), *device);
      if (IsOver()) return;
    }
    for (const auto& device : devices_.TakeSilent(Clock::now(), kSilencePatience)) {
      view_.Show(DeviceChange::kSilent, device);
    }
  }

  std::string StatusText() const {
    const std::string count = Counted(devices_.Count(), "device");
    if (!end_) return "scanning, " + count + " so far, Ctrl-C ends";
    const double left = std::chrono::duration<double>(*end_ - Clock::now()).count();
    return "scanning, " + count + " so far, " + ReadableDuration(left) + " left";
  }

  int Finish(double seconds) {
    const std::string time = Fixed(seconds, 1) + " s";
    if (context_.stopper.IsRequested()) return kDone;
    for (const std::string& twin : devices_.Twins()) context_.output.Note(twin);
    if (devices_.Count() == 0) {
      RequireDiscovery(*context_.library);
      throw NothingArrived(
          "no device answered in " + time,
          "Are the devices on, and in a network of this machine? Does a firewall let UDP in?");
    }
    if (context_.output.IsLive()) context_.output.Line(Counted(devices_.Count(), "device") + " in " + time);
    return kDone;
  }

  const ScanOptions& options_;
  Context& context_;
  Mailbox<FoundDevice> found_;
  ScanView view_;
  DeviceList devices_;
  Deadline end_;
};

constexpr const char* kScanHelp = R"(Examples:
  zel scan                        who is there? ask for five seconds
  zel scan --seconds 2 --json     the same for a program, one object a device
  zel scan --watch                keep looking; say who comes, changes, falls silent

Devices are asked by multicast and by broadcast on every network adapter, so they are
found on the networks that this machine is joined to, not behind routers. The first
question leaves after a second; the time counts from there. With --watch a device that
has not answered for ten seconds is called silent.)";

}  // namespace

void AddScan(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("scan", "Find the devices on the local networks");
  auto options = std::make_shared<ScanOptions>();
  auto* seconds = AddReal(*command, "-s,--seconds", options->seconds, 0.1, 1e6,
                          "How long to look; 5, or no end with --watch")
                      ->type_name("N");
  command->add_flag("-w,--watch", options->watch, "Keep looking, and report changes with their times");
  command->footer(kScanHelp);
  command->callback([options, seconds, &task] {
    options->hasSeconds = seconds->count() > 0;
    // The scan thread goes on to the end of the process and may be inside the callback just then: what it
    // uses stays.
    task.run = [options](Context& context) {
      static Scan* const scan = new Scan(*options, context);
      return scan->Run();
    };
  });
}

}  // namespace zeltool
