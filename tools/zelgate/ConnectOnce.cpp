#include "ConnectOnce.h"

#include <chrono>

namespace zelgate {
namespace {

constexpr std::chrono::seconds kConnectPatience{5};

// libnats does not tell which of the two it was once it tries for ever.
NatsResult Refused(const Nats& nats) {
  return {
      NATS_CONNECTION_CLOSED,
      {},
      "NATS at " + nats.Where() +
          " refuses the connection; check credentials, or user and password_file, of the configuration, and "
          "its "
          "[nats.tls]: ca must have signed the server's certificate, which must name the host of the URL"};
}

}  // namespace

NatsResult ConnectOnce(Nats& nats, const Config& config, const std::string& name) {
  NatsResult started = nats.Start(config.nats, "zelgate " + name + " " + config.site);
  if (!started || nats.WaitUntilUp(kConnectPatience)) return started;
  if (nats.IsClosed()) return Refused(nats);
  return {NATS_NO_SERVER,
          {},
          "no connection to NATS at " + nats.Where() +
              " within 5 s; start the server, or check [nats] of the configuration"};
}

}  // namespace zelgate
