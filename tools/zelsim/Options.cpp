#include "Options.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <ostream>

namespace zelsim {
namespace {

constexpr const char* kAbout =
    "zelsim simulates a Zel device: it answers clients over TCP, and misbehaves when it is told to.\n"
    "It prints \"ready\" on a line of its own once everything is open, and ends on SIGTERM or SIGINT.";

constexpr const char* kExamples =
    "Examples:\n"
    "  zelsim --listen 127.0.0.1:9999                        echo on every port, topics on port 103\n"
    "  zelsim --listen 127.0.0.1:9999 --answer 600=error:5   port 600 answers error 5\n"
    "  zelsim --listen 127.0.0.1:9999 --listen 127.0.0.2:9999 --fault 127.0.0.2:9999=split:1\n"
    "  zelsim --listen 127.0.0.1:9999 --tick 700=250 --trace -\n"
    "  zelsim --listen 127.0.0.1:9999 --burst load=1000000:64\n";

// Options that may be repeated, each with one text that a reader accepts or refuses.
class TextOptions {
 public:
  explicit TextOptions(CLI::App& app) : app_(app) {}

  void Add(const std::string& name, const std::string& form, const std::string& help,
           std::function<bool(const std::string&)> read) {
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
  texts.Add(
      "--fault", "[A.B.C.D:PORT=]KIND[@FRAMES][#CONNECTION]",
      "Misbehave, on one listener or on all. KIND: split:N[:US] short:N body:N length:N|zero|oversize "
      "invoke:N\n"
      "version:N close:N reset:N stall:N garbage:N[:SEED] raw:HEX|@FILE greet:HEX|@FILE cut:N pause:N:MS",
      Into(server.faults, ParseFault));
  app.add_option("--spin", spinUs,
                 "Poll this long for a client's next request before sleeping (for benchmarks)")
      ->type_name("US")
      ->check(CLI::Range(0, 1'000'000));
}

}  // namespace

std::optional<Options> ParseOptions(int argc, const char* const* argv, std::ostream& out,
                                    std::ostream& errors, int& exitCode) {
  Options options;
  int64_t spinUs = 0;
  CLI::App app(kAbout, "zelsim");
  app.footer(kExamples);
  TextOptions texts(app);
  AddServerOptions(texts, app, options.server, spinUs);
  app.add_option("--trace", options.trace, "Write one line per frame and event; - for standard output")
      ->type_name("FILE");
  try {
    app.parse(argc, argv);
    if (options.server.listens.empty()) throw CLI::RequiredError("--listen");
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error, out, errors);
    return std::nullopt;
  }
  options.server.spin = std::chrono::microseconds(spinUs);
  return options;
}

}  // namespace zelsim
