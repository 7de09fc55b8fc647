// zelgate hub
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "ConnectOnce.h"
#include "Journal.h"
#include "Nats.h"
#include "Streams.h"
#include "Subjects.h"

namespace zelgate {
namespace {

int MakeHub(const Config& config, const std::vector<std::string>& sites) {
  for (const std::string& site : sites) {
    if (IsSiteName(site)) continue;
    Say(Priority::kError, "'" + site + "' is no name of a site; write letters, digits, - and _, at most 64");
    return kUsage;
  }
  Nats nats;
  NatsResult result = ConnectOnce(nats, config, "hub");
  if (result) result = MakeHubStream(nats, sites, config.stream);
  if (!result) {
    Say(Priority::kError, result.why);
    return kFailed;
  }
  std::string list;
  for (const std::string& site : sites) list += (list.empty() ? "" : ", ") + site;
  (void)std::printf("The stream %s at %s takes the events of: %s\n", kHubStream, nats.Where().c_str(),
                    list.c_str());
  return kDone;
}

constexpr const char* kHubHelp = R"(Example:
  zelgate hub --config /etc/zelgate/hub.toml north south

Makes the hub's stream ZEL_ALL, which takes the events of these sites, or changes it: a
site that is not named any more is taken out, and what came from it stays. The
configuration names the hub's servers, and the stream's size and replicas. The accounts
of the sites must be in the configuration of the servers.)";

}  // namespace

void AddHub(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("hub", "Make the hub's stream of several sites");
  auto sites = std::make_shared<std::vector<std::string>>();
  command->add_option("site", *sites, "The sites")->required()->type_name("SITE...");
  command->footer(kHubHelp);
  command->callback(
      [sites, &task] { task.run = [sites](const Config& config) { return MakeHub(config, *sites); }; });
}

}  // namespace zelgate
