// zel doctor
#include <libzel/libzel.hpp>

#include <algorithm>
#include <memory>
#include <optional>

#include "Arguments.h"
#include "Commands.h"
#include "DeviceList.h"
#include "Failure.h"
#include "Log.h"
#include "Lookup.h"
#include "Opening.h"
#include "Reasons.h"
#include "platform/Console.h"

namespace zeltool {
namespace {

// The first question of a scan leaves after a second, and a second is enough for the answers.
constexpr zel::Milliseconds kScanTime{2200};
constexpr zel::Milliseconds kAnswerTime{1000};
// Where a device hears questions to all, where the answers come to, where a device hears questions to itself.
constexpr uint16_t kBroadcastPort = 38896;
constexpr uint16_t kDiscoveryPort = 38897;
constexpr uint16_t kDirectPort = 38898;

// Answers to broadcasts come to that port, those to multicast to the socket that asked.
constexpr const char* kFirewall =
    "Does the firewall here let UDP in, to port 38897 as well as to zel's own ports?";

struct DoctorOptions {
  std::string device;
  Patience patience;
};

class Doctor {
 public:
  Doctor(const DoctorOptions& options, Context& context) : options_(options), context_(context) {}

  int Run() {
    CheckMachine();
    CheckPorts();
    if (CheckDiscovery()) CheckNetworks();
    if (!options_.device.empty() && !context_.stopper.IsRequested()) CheckDevice();
    if (faults_ == 0) return kDone;
    if (!context_.output.IsJson()) context_.output.Line(Counted(faults_, "fault"));
    return kFailed;
  }

 private:
  static std::string Sentence(std::string words) {
    if (words[0] >= 'a' && words[0] <= 'z') words[0] = static_cast<char>(words[0] - 'a' + 'A');
    return words + ".";
  }

  void Good(const char* check, const std::string& sentence) { Show(check, sentence, {}, true); }
  void Fault(const char* check, const std::string& sentence, const std::string& advice) {
    ++faults_;
    Show(check, sentence, advice, false);
  }

  void Show(const char* check, const std::string& sentence, const std::string& advice, bool isGood) {
    if (context_.output.IsJson()) {
      Record record;
      record.Text("check", check).Flag("good", isGood).Text("sentence", sentence);
      if (!advice.empty()) record.Text("advice", advice);
      return context_.output.Object(record);
    }
    constexpr size_t kIndent = 7;
    const size_t width = context_.output.Size().columns - 1;
    context_.output.Line((isGood ? "ok     " : "FAULT  ") + Wrapped(Printable(sentence), width, kIndent));
    if (!advice.empty()) {
      context_.output.Line(std::string(kIndent, ' ') + Wrapped(Printable(advice), width, kIndent));
    }
  }

  void CheckMachine() {
    if (const auto id = zel::DeviceId::Local()) {
      return Good("identifier", "This machine's identifier is " + id->ToString() + ".");
    }
    Fault("identifier", "This machine has no identifier.",
          "Is an adapter up? Else look at /opt/zel/zeldevice.xml, if there is one.");
  }

  // Before this program opens one itself.
  void CheckPorts() {
    answerHolders_ = HoldersOfUdpPort(kDiscoveryPort);
    bool areFree = answerHolders_.empty();
    for (const uint16_t port : {kBroadcastPort, kDirectPort}) {
      const std::string holders = HoldersOfUdpPort(port);
      if (holders.empty()) continue;
      areFree = false;
      Good("ports", PortName(port) + ", where a device hears questions, is held by " + holders + ".");
    }
    if (areFree) Good("ports", "UDP ports 38896 to 38898 are free.");
  }

  static std::string PortName(uint16_t port) { return "UDP port " + std::to_string(port); }

  // False when nothing can be looked for.
  bool CheckDiscovery() {
    context_.library->StartDiscovery().Ignore();
    const zel::DiscoveryState state = context_.library->Discovery();
    if (state.isRunning && state.adapters > 0) {
      Good("discovery", "Devices are asked for on " + state.adapterNames + ".");
      if (!answerHolders_.empty()) {
        Fault("ports",
              PortName(kDiscoveryPort) + ", which answers come to, is shared with " + answerHolders_ +
                  ": each answer reaches one program only.",
              "End that program while devices are looked for. A device's address works all the same.");
      }
      return true;
    }
    if (state.isRunning) {
      Fault("discovery", "There is no network adapter to ask on.", "Is one up, and has it an IPv4 address?");
      return false;
    }
    if (!answerHolders_.empty() && state.reason.find("bind") != std::string::npos) {
      Fault("ports",
            PortName(kDiscoveryPort) + ", which answers come to, is taken by " + answerHolders_ + ".",
            "End that program. A device's address works all the same.");
    } else {
      Fault("discovery", "Discovery does not run: " + state.reason + ".",
            "Is an adapter up, and has it an IPv4 address? A device's address works all the same.");
    }
    return false;
  }

  void CheckNetworks() {
    isLookedFor_ = true;
    (void)LookFor(
        context_,
        [this](const zel::Device& device) {
          Note(device);
          return false;
        },
        kScanTime);
    if (list_.Count() > 0) {
      Good("devices", Counted(list_.Count(), "device") + (list_.Count() == 1 ? " answers." : " answer."));
    } else {
      Fault("devices", "No device answers.",
            "Are the devices on, and in a network of this machine? " + std::string(kFirewall));
    }
    for (const std::string& twin : list_.Twins())
      Fault("twins", Sentence(twin), "Give one of them another one: zel id set.");
    for (const std::string& warning : TakeAnswerWarnings()) {
      Fault("answers", Sentence(warning), "The device that sends it, or its firmware, is at fault.");
    }
  }

  void Note(const zel::Device& device) {
    FoundDevice found;
    found.identifier = device.idText;
    found.address = device.address;
    if (list_.Note(found, Clock::now()) == DeviceChange::kFound) devices_.push_back(device);
  }

  // Where the device is, by what answered, else by its name.
  std::optional<std::string> Address() const {
    const auto id = zel::DeviceId::Parse(options_.device);
    for (const zel::Device& device : devices_) {
      if (id ? device.id == id : IsCalled(device, options_.device)) return device.address;
    }
    if (id) return context_.library->RouteOf(*id);
    return IsAddress(options_.device) ? options_.device : LookUpHost(options_.device);
  }

  void CheckDevice() {
    const auto address = Address();
    if (!address) {
      return Fault("address",
                   options_.device + " is no host name, and no device that answers calls itself so.",
                   "zel scan shows who is there.");
    }
    Good("address", options_.device + " is at " + *address + ".");
    const auto told = AskIdentifier(*address, kAnswerTime);
    if (told && isLookedFor_ && list_.Count() == 0) {
      Fault("answers", *address + " answers when it alone is asked, but not when all are.",
            "Is it in a network of this machine? " + std::string(kFirewall));
    }
    CheckServer(*address, told.IsOk());
    if (told) CheckIdentifier(*address, *told);
  }

  void CheckServer(const std::string& address, bool isHeard) {
    const auto id = PlaceholderId(address);
    context_.library->PinRoute(id, address).Ignore();
    const auto start = Clock::now();
    const auto made = zel::Connection::Create(id, {zel::Milliseconds(options_.patience.connectMs), {}});
    const double milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    const bool isUp = made && IsUp(*made);
    if (isUp && !isHeard) {
      const Reason reason = ExplainSilence(address, isUp);
      Fault("udp", reason.sentence + ".", reason.advice);
    }
    if (isUp) return Good("tcp", address + " takes connections, in " + Fixed(milliseconds, 1) + " ms.");
    const Reason reason = ExplainConnect(address, made->LastFailure());
    const char* more = isHeard ? "" : ", and no answer comes from UDP port 38898";
    Fault("tcp", reason.sentence + more + ".", reason.advice);
  }

  void CheckIdentifier(const std::string& address, const zel::DeviceId& told) {
    const auto wanted = zel::DeviceId::Parse(options_.device);
    if (!wanted || *wanted == told) return Good("udp", address + " says that it is " + told.ToString() + ".");
    Fault("udp", address + " says that it is " + told.ToString() + ", not " + wanted->ToString() + ".",
          "Is the identifier right? zel scan shows who is there.");
  }

  const DoctorOptions& options_;
  Context& context_;
  DeviceList list_;
  std::vector<zel::Device> devices_;
  std::string answerHolders_;
  bool isLookedFor_ = false;
  size_t faults_ = 0;
};

constexpr const char* kDoctorHelp = R"(Examples:
  zel doctor                      can this machine find devices?
  zel doctor 192.168.1.20         and what is on the way to this one?
  zel doctor press-4 --json       one object a finding

Looks at this machine's identifier, at UDP ports 38896 to 38898 and who holds them, at
discovery and its adapters, at who answers, at identifiers that two devices have, and at
the way to DEVICE: its address, its UDP port 38898, its TCP port 9999. Each fault comes
with what to try. The status is 1 when there is one.)";

}  // namespace

void AddDoctor(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("doctor", "Find out why devices are not found or reached");
  auto options = std::make_shared<DoctorOptions>();
  AddDevice(*command, options->device)->required(false);
  command->add_option("--connect-timeout", options->patience.connectMs, "Time to connect; 1500 if not given")
      ->check(CLI::Range(1, 3600000).description(""))
      ->type_name("MS");
  command->footer(kDoctorHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) { return Doctor(*options, context).Run(); };
  });
}

}  // namespace zeltool
