// Configurations for the servers of the lab, as a site's or the hub's user has them.
#pragma once

#include <string>

#include "Config.h"
#include "Nats.h"
#include "Servers.h"

namespace gatelab {

inline zelgate::Config ConfigOf(const std::string& site, const std::string& server, const std::string& user) {
  zelgate::Config config;
  config.site = site;
  config.nats.urls = {Servers::Url(server)};
  config.nats.user = user;
  config.nats.password = user + "-pass";
  config.nats.tlsCa = Servers::Authority();
  config.stream.maxBytes = int64_t{64} << 20;
  return config;
}

}  // namespace gatelab
