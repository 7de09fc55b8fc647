#include "CommandLine.h"

namespace zelgate {
namespace {

constexpr const char* kDefaultConfig = "/etc/zelgate/zelgate.toml";

constexpr const char* kHelp =
    R"(Every process of a site reads the same configuration file. Remarks and failures go to
standard error, one line each, with the priority that journald takes from it.

Exit status: 0 done, or ended by a signal; 1 it failed, and has said why; 2 the command
line or the configuration is wrong.)";

}  // namespace

std::unique_ptr<CLI::App> MakeCommandLine(std::string& config, Task& task) {
  auto app = std::make_unique<CLI::App>("Serve fleets of Zel devices on NATS JetStream", "zelgate");
  config = kDefaultConfig;
  app->add_option("-c,--config", config, "The configuration file, " + config + " if not given")
      ->type_name("FILE");
  app->set_version_flag("-V,--version", std::string("zelgate ") + ZEL_GATE_VERSION, "Show the version");
  AddRun(*app, task);
  AddFind(*app, task);
  AddStatus(*app, task);
  AddAsk(*app, task);
  AddCheck(*app, task);
  AddHub(*app, task);
  for (CLI::App* command : app->get_subcommands([](CLI::App*) { return true; })) command->fallthrough();
  app->require_subcommand(1);
  app->footer(kHelp);
  return app;
}

}  // namespace zelgate
