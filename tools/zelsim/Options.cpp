#include "Options.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <ostream>

#include "Text.h"

namespace zelsim {
namespace {

constexpr const char* kAbout =
    "zelsim simulates Zel devices: it answers clients over TCP, discovery and direct requests over UDP,\n"
    "and misbehaves when it is told to.\n"
    "It prints \"ready\" on a line of its own once everything is open, and ends on SIGTERM or SIGINT.";

constexpr const char* kExamples =
    "Examples:\n"
    "  zelsim --listen 127.0.0.1:9999                        echo on every port, topics on port 103\n"
    "  zelsim --listen 127.0.0.1:9999 --answer 600=error:5   port 600 answers error 5\n"
    "  zelsim --listen 127.0.0.1:9999 --listen 127.0.0.2:9999 --fault 127.0.0.2:9999=split:1\n"
    "  zelsim --listen 127.0.0.1:9999 --tick 700=250 --trace -\n"
    "  zelsim --listen 127.0.0.1:9999 --burst load=1000000:64\n"
    "  zelsim --device 10.77.0.2.0.1 --interface 10.77.0.2 --host-name press-4 --frame "
    "self=02:00:00:00:00:01\n"
    "  zelsim --listen 127.0.0.1:9999 --files /tmp/in --transfer-fault error:8201@2\n"
    "  zelsim --devices 1000 --base 10.77.1.1 --answer-spread 100\n"
    "  zelsim --device 1.2.3.4.5.6@127.0.0.2 --no-discovery --udp-fault error:5\n"
    "  zelsim --relay 10.78.0.2:9999=10.77.0.3:9999,delay:5ms:2ms,cut:1\n";

// Options that may be repeated, each with one text that a reader accepts or refuses.
class TextOptions {
 public:
  explicit TextOptions(CLI::App& app) : app_(app) {}

  void Add(const std::string& name, const std::string& form, const std::string& help,
           const std::function<bool(const std::string&)>& read) {
    app_.add_option_function<std::vector<std::string>>(
            name,
            [name, form, read](const std::vector<std::string>& texts) {
              for (const std::string& text : texts) {
                if (!read(text))
                  throw CLI::ValidationError(name, "\"" + text + "\" is not of the form " + form);
              }
            },
            help)
        ->type_name(form)
        ->allow_extra_args(false);
  }

 private:
  CLI::App& app_;
};

template <typename T>
std::function<bool(const std::string&)> Into(std::vector<T>& list,
                                             std::optional<T> (*parse)(std::string_view)) {
  return [&list, parse](const std::string& text) {
    auto parsed = parse(text);
    if (parsed) list.push_back(std::move(*parsed));
    return parsed.has_value();
  };
}

void AddServerOptions(TextOptions& texts, CLI::App& app, ServerOptions& server, int64_t& spinUs) {
  app.add_option("--listen", server.listens, "Accept clients here; repeatable, port 0 takes a free one")
      ->type_name("A.B.C.D:PORT")
      ->allow_extra_args(false);
  texts.Add("--answer", "PORT=echo|size:N|error:CODE[:N]|silent|delay:MS",
            "What requests on a port are answered; * for every other port (default *=echo)",
            [&server](const std::string& text) { return server.answers.Add(text); });
  texts.Add("--tick", "PORT=MS[:VERSION]",
            "Send every client a counter text on this port every MS milliseconds",
            Into(server.ticks, ParseTickRule));
  texts.Add("--burst", "TOPIC=N:SIZE",
            "Send N messages of SIZE bytes, as fast as they go, to whoever subscribes to TOPIC; 0 never ends",
            Into(server.bursts, ParseBurstRule));
  app.add_option("--spin", spinUs,
                 "Poll this long for a client's next request before sleeping (for benchmarks)")
      ->type_name("US")
      ->check(CLI::Range(0, 1'000'000));
}

std::vector<Fault>& ListFor(Options& options, FaultFamily family) {
  if (family == FaultFamily::kTcp) return options.server.faults;
  return family == FaultFamily::kTransfer ? options.files.faults : options.devices.faults;
}

// Sorts a fault to those who play it.
bool AddFault(Options& options, std::string_view text, std::string_view prefix) {
  std::string_view rest = text;
  const std::string where = TakeWhere(rest);
  const std::string whole = (where.empty() ? "" : where + "=") + std::string(prefix) + std::string(rest);
  auto fault = ParseFault(whole);
  if (!fault) return false;
  ListFor(options, FamilyOf(fault->kind)).push_back(std::move(*fault));
  return true;
}

void AddFaultOptions(TextOptions& texts, Options& options) {
  texts.Add(
      "--fault", "[WHERE=]KIND[@FRAMES][#CONNECTION]",
      "Misbehave: on one listener (WHERE is as given to --listen) or on all. KIND: split:N[:US] short:N\n"
      "body:N length:N|zero|oversize invoke:N version:N close:N reset:N stall:N garbage:N[:SEED]\n"
      "raw:HEX|@FILE greet:HEX|@FILE cut:N pause:N:MS. Kinds that begin with scan-, udp- or transfer-\n"
      "are those of the options below",
      [&options](const std::string& text) { return AddFault(options, text, ""); });
  texts.Add(
      "--scan-fault", "[ADDRESS=]KIND[@REQUESTS]",
      "Bend discovery answers, of the device at an address or of all. KIND: silent short[:N] header\n"
      "type[:N] reserved[:N] not-json not-object member:NAME no-mac oversize[:N] text:TEXT raw:HEX|@FILE",
      [&options](const std::string& text) { return AddFault(options, text, "scan-"); });
  texts.Add("--udp-fault", "[ADDRESS=]KIND[@REQUESTS]",
            "Bend answers to direct requests. KIND: silent error:CODE invoke[:N] length:N|be|zero short[:N]\n"
            "oversize[:N] size:N delay:MS raw:HEX|@FILE",
            [&options](const std::string& text) { return AddFault(options, text, "udp-"); });
  texts.Add(
      "--transfer-fault", "KIND[@MESSAGE]",
      "Bend the answer to message 0 (file information), 1, 2, ... (chunks), or to all. KIND: error:CODE\n"
      "late:MS short[:N] silent close",
      [&options](const std::string& text) { return AddFault(options, text, "transfer-"); });
}

void AddFileOptions(CLI::App& app, FileOptions& files) {
  app.add_option("--files", files.directory, "Receive files into this directory and nowhere else")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory);
  app.add_option("--transfer-port", files.port, "Router port of file messages (default 700)")
      ->type_name("PORT")
      ->check(CLI::Range(501, 65535));
}

struct FleetArguments {
  size_t count = 0;
  std::string base;
  std::string descriptionFile;
  int64_t answerSpreadMs = 0;
  bool noDiscovery = false;
};

void AddMemberOption(CLI::App& app, DescriptionOptions& description, const std::string& name,
                     const char* member) {
  app.add_option_function<std::string>(
         name,
         [&description, member](const std::string& text) { description.members.emplace_back(member, text); },
         std::string("Value of \"") + member + "\" in discovery answers; {n} is the device's number")
      ->type_name("TEXT");
}

void AddDescriptionOptions(CLI::App& app, TextOptions& texts, DescriptionOptions& description) {
  AddMemberOption(app, description, "--zel-version", "zelVersion");
  AddMemberOption(app, description, "--rte-version", "rteVersion");
  AddMemberOption(app, description, "--serial-no", "serialNo");
  AddMemberOption(app, description, "--vorlin-version", "vorlinVersion");
  AddMemberOption(app, description, "--host-name", "hostName");
  AddMemberOption(app, description, "--sn", "sn");
  texts.Add("--frame", "ADDRESS=MAC",
            "One element of \"frames\"; \"self\" on either side is the device's own",
            Into(description.frames, ParseFrameOption));
}

void AddDeviceOptions(CLI::App& app, TextOptions& texts, DeviceOptions& devices, FleetArguments& fleet) {
  texts.Add("--device", "ID[@ADDRESS]",
            "Be a device with this identifier, at an address or at all of this host",
            [&devices](const std::string& text) {
              const auto device = ParseDevice(text);
              if (device) devices.fleet.Add(*device);
              return device.has_value();
            });
  auto* count = app.add_option("--devices", fleet.count, "Be a fleet of N devices on consecutive addresses")
                    ->type_name("N")
                    ->check(CLI::Range(1, 65536));
  auto* base = app.add_option("--base", fleet.base, "First address of the fleet; identifiers are ADDRESS.0.1")
                   ->type_name("A.B.C.D");
  count->needs(base);
  base->needs(count);
  texts.Add("--interface", "A.B.C.D", "Take discovery requests on this interface (default: on all)",
            Into(devices.interfaces, ParseAddress));
  app.add_flag("--no-discovery", fleet.noDiscovery, "Answer direct requests only; join no group");
  app.add_option("--answer-spread", fleet.answerSpreadMs, "Spread a fleet's discovery answers evenly over MS")
      ->type_name("MS")
      ->check(CLI::Range(0, 60'000));
  app.add_option("--description", fleet.descriptionFile, "JSON document for discovery answers, sent as it is")
      ->type_name("FILE");
  AddDescriptionOptions(app, texts, devices.description);
}

// Takes over what needs a look at more than one option.
void Finish(const FleetArguments& fleet, Options& options) {
  DeviceOptions& devices = options.devices;
  if (fleet.count > 0) {
    const auto base = ParseAddress(fleet.base);
    if (!base) throw CLI::ValidationError("--base", "\"" + fleet.base + "\" is not an address");
    devices.fleet.AddRange(fleet.count, *base);
  }
  if (!fleet.descriptionFile.empty()) {
    devices.description.document = ReadDescriptionFile(fleet.descriptionFile);
    if (!devices.description.document) {
      throw CLI::ValidationError("--description", "\"" + fleet.descriptionFile + "\" cannot be read as JSON");
    }
  }
  devices.discovery = !fleet.noDiscovery;
  devices.answerSpread = std::chrono::milliseconds(fleet.answerSpreadMs);
  if (options.server.listens.empty() && devices.fleet.Empty() && options.relays.empty()) {
    throw CLI::RequiredError("--listen, --device, --devices or --relay");
  }
}

}  // namespace

std::optional<Options> ParseOptions(int argc, const char* const* argv, std::ostream& out,
                                    std::ostream& errors, int& exitCode) {
  Options options;
  int64_t spinUs = 0;
  CLI::App app(kAbout, "zelsim");
  app.footer(kExamples);
  app.set_version_flag("--version", "zelsim " ZELSIM_VERSION, "Show the program's version");
  TextOptions texts(app);
  FleetArguments fleet;
  AddServerOptions(texts, app, options.server, spinUs);
  AddDeviceOptions(app, texts, options.devices, fleet);
  AddFileOptions(app, options.files);
  AddFaultOptions(texts, options);
  texts.Add(
      "--relay", "LISTEN=TARGET[,CONDUCT...]",
      "Stand between clients and servers: accept at LISTEN and pass the streams on to TARGET, each of the\n"
      "form A.B.C.D[/BITS]:PORT. CONDUCT: delay:TIME[:JITTER] cut:BYTES[:GAP] silence:BYTES:TIME\n"
      "drop:BYTES; a time is a number and us, ms or s",
      Into(options.relays, ParseRelayRule));
  app.add_option("--trace", options.trace, "Write one line per frame and event; - for standard output")
      ->type_name("FILE");
  try {
    app.parse(argc, argv);
    Finish(fleet, options);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error, out, errors);
    return std::nullopt;
  }
  options.server.spin = std::chrono::microseconds(spinUs);
  return options;
}

}  // namespace zelsim
