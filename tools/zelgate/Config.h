// What the configuration file says: one TOML file for every process of a site.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace zelgate {

// How the NATS server is reached.
struct NatsConfig {
  std::vector<std::string> urls;  // "nats://host:4222", or "tls://..."; at least one
  std::string credentials;        // file; or
  std::string user;               // with its password, which stands in a file
  std::string password;
  std::string tlsCa;  // files; the last two are both given or neither
  std::string tlsCert;
  std::string tlsKey;
};

struct StreamConfig {
  int64_t maxBytes = int64_t{10} << 30;
  int replicas = 1;
};

struct LimitsConfig {
  int devices = 2000;  // that one process serves
  int window = 4096;   // events that one process has published and that are not acknowledged yet
  int shards = 1024;   // of the site; every process of a site must have the same
};

// A device that need not be found.
struct FixedDevice {
  std::string id;       // six decimals joined by "."
  std::string address;  // dotted IPv4; empty: the identifier's first four numbers
  std::string name;
};

struct FindConfig {
  int seconds = 10;  // between two scans; 0: none
  std::vector<FixedDevice> devices;
};

struct HttpConfig {
  std::string listen;  // "127.0.0.1:9470"; empty: none
};

struct Config {
  std::string site;
  NatsConfig nats;
  StreamConfig stream;
  LimitsConfig limits;
  FindConfig find;
  HttpConfig http;
};

// Its text names the file, the line, the key, what is wrong and what to write.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws ConfigError.
Config ReadConfig(const std::string& path);
Config ParseConfig(const std::string& text, const std::string& name);

}  // namespace zelgate
