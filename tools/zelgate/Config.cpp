#include "Config.h"

#include <libzel/libzel.hpp>

#include <toml.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <sstream>
#include <utility>

#include "Subjects.h"

namespace zelgate {
namespace {

// A table of the file, whose keys are taken one after the other; what is left in the end is no key.
class ConfigTable {
 public:
  ConfigTable(const toml::value& value, std::string file, std::string path)
      : value_(value), file_(std::move(file)), path_(std::move(path)) {}

  [[noreturn]] void Refuse(const toml::value& at, const std::string& key, const std::string& what,
                           const std::string& cure) const {
    throw ConfigError(file_ + ", line " + std::to_string(at.location().line()) + ": " + Name(key) + " " +
                      what + "; " + cure);
  }
  [[noreturn]] void Miss(const std::string& key, const std::string& cure) const {
    Refuse(value_, key, "is missing", cure);
  }

  const toml::value* Find(const std::string& key) {
    known_.push_back(key);
    const auto& table = value_.as_table();
    const auto found = table.find(key);
    return found == table.end() ? nullptr : &found->second;
  }

  void Text(const std::string& key, std::string& text, const std::string& example) {
    const toml::value* const value = Find(key);
    if (value == nullptr) return;
    if (!value->is_string()) Refuse(*value, key, "is no text", "write " + key + " = \"" + example + "\"");
    text = value->as_string().str;
  }

  template <typename Number>
  void Range(const std::string& key, Number& number, int64_t least, int64_t most) {
    const toml::value* const value = Find(key);
    if (value == nullptr) return;
    const bool isGood = value->is_integer() && value->as_integer() >= least && value->as_integer() <= most;
    if (!isGood) {
      Refuse(*value, key, "is no number from " + std::to_string(least) + " to " + std::to_string(most),
             "write " + key + " = " + std::to_string(number) + ", say");
    }
    number = static_cast<Number>(value->as_integer());
  }

  // A table in this one; none when it isn't there.
  std::optional<ConfigTable> Table(const std::string& key) {
    const toml::value* const value = Find(key);
    if (value == nullptr) return {};
    if (!value->is_table()) Refuse(*value, key, "is no table", "write [" + Name(key) + "] above its keys");
    return ConfigTable(*value, file_, Name(key));
  }
  std::vector<ConfigTable> Tables(const std::string& key) {
    std::vector<ConfigTable> tables;
    const toml::value* const value = Find(key);
    if (value == nullptr) return tables;
    if (!value->is_array()) Refuse(*value, key, "is no list", "write [[" + Name(key) + "]] above each");
    for (const toml::value& item : value->as_array()) {
      if (!item.is_table())
        Refuse(item, key, "is no list of tables", "write [[" + Name(key) + "]] above each");
      tables.emplace_back(item, file_, Name(key));
    }
    return tables;
  }

  // To be called when all keys have been asked for.
  void RefuseOthers() const {
    for (const auto& [key, value] : value_.as_table()) {
      if (std::find(known_.begin(), known_.end(), key) != known_.end()) continue;
      std::string names;
      for (const std::string& name : known_) names += (names.empty() ? "" : ", ") + name;
      Refuse(value, key, "is no key", "these are: " + names);
    }
  }

 private:
  std::string Name(const std::string& key) const { return path_.empty() ? key : path_ + "." + key; }

  const toml::value& value_;
  std::string file_;
  std::string path_;
  std::vector<std::string> known_;
};

void ReadUrls(ConfigTable& table, std::vector<std::string>& urls) {
  const std::string cure = "write urls = [\"nats://127.0.0.1:4222\"], say";
  const toml::value* const value = table.Find("urls");
  if (value == nullptr) table.Miss("urls", cure);
  if (!value->is_array() || value->as_array().empty())
    table.Refuse(*value, "urls", "is no list of URLs", cure);
  for (const toml::value& item : value->as_array()) {
    const std::string url = item.is_string() ? item.as_string().str : "";
    if (!url.starts_with("nats://") && !url.starts_with("tls://")) {
      table.Refuse(item, "urls", "has an item that is no URL", cure);
    }
    urls.push_back(url);
  }
}

// A password stands in a file of its own, so that the configuration may be shown to anybody.
std::string FirstLine(const ConfigTable& table, const toml::value& at, const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line) || line.empty()) {
    table.Refuse(at, "password_file", "names " + path + ", which cannot be read or is empty",
                 "write the password into its first line, readable for the user of this program");
  }
  return line;
}

void ReadPassword(ConfigTable& table, NatsConfig& nats) {
  std::string path;
  table.Text("password_file", path, "/etc/zelgate/password");
  if (nats.user.empty() && path.empty()) return;
  if (nats.user.empty())
    table.Miss("user", "write the user whose password this is, or leave password_file out");
  if (path.empty()) table.Miss("password_file", "write the file whose first line is the user's password");
  nats.password = FirstLine(table, *table.Find("password_file"), path);
}

void ReadTls(ConfigTable& nats, NatsConfig& config) {
  auto table = nats.Table("tls");
  if (!table) return;
  table->Text("ca", config.tlsCa, "/etc/zelgate/ca.pem");
  table->Text("cert", config.tlsCert, "/etc/zelgate/site.pem");
  table->Text("key", config.tlsKey, "/etc/zelgate/site.key");
  if (config.tlsCa.empty()) table->Miss("ca", "write the file of the authority that signed the server");
  if (config.tlsCert.empty() != config.tlsKey.empty()) {
    table->Miss(config.tlsCert.empty() ? "cert" : "key", "a certificate and its key go together");
  }
  table->RefuseOthers();
}

void ReadNats(ConfigTable& root, NatsConfig& config) {
  auto table = root.Table("nats");
  if (!table) root.Miss("nats", "write [nats] and below it urls = [\"nats://127.0.0.1:4222\"], say");
  ReadUrls(*table, config.urls);
  table->Text("credentials", config.credentials, "/etc/zelgate/site.creds");
  table->Text("user", config.user, "plant1");
  ReadPassword(*table, config);
  if (!config.credentials.empty() && !config.user.empty()) {
    table->Refuse(*table->Find("credentials"), "credentials", "stands beside user", "leave one of them out");
  }
  ReadTls(*table, config);
  table->RefuseOthers();
}

bool IsAddress(const std::string& text) { return zel::DeviceId::Parse(text + ".0.0").has_value(); }

void ReadDevice(ConfigTable& table, FixedDevice& device) {
  table.Text("id", device.id, "10.20.0.7.0.1");
  table.Text("address", device.address, "10.20.0.7");
  table.Text("name", device.name, "press 7");
  if (device.id.empty()) table.Miss("id", "write id = \"10.20.0.7.0.1\", say");
  if (!zel::DeviceId::Parse(device.id)) {
    table.Refuse(*table.Find("id"), "id", "is no identifier",
                 "write six numbers from 0 to 255 joined by \".\"");
  }
  if (!device.address.empty() && !IsAddress(device.address)) {
    table.Refuse(*table.Find("address"), "address", "is no IPv4 address",
                 "write address = \"10.20.0.7\", say");
  }
  table.RefuseOthers();
}

void ReadFind(ConfigTable& root, FindConfig& config) {
  auto table = root.Table("find");
  if (!table) return;
  table->Range("seconds", config.seconds, 0, 86400);
  for (ConfigTable& item : table->Tables("device")) {
    config.devices.emplace_back();
    ReadDevice(item, config.devices.back());
    const auto isSame = [&](const FixedDevice& other) { return other.id == config.devices.back().id; };
    if (std::count_if(config.devices.begin(), config.devices.end(), isSame) > 1) {
      item.Refuse(*item.Find("id"), "id", "is there twice", "a device stands once in the list");
    }
  }
  table->RefuseOthers();
}

void ReadHttp(ConfigTable& root, HttpConfig& config) {
  auto table = root.Table("http");
  if (!table) return;
  table->Text("listen", config.listen, "127.0.0.1:9470");
  const size_t colon = config.listen.rfind(':');
  if (!config.listen.empty() && (colon == std::string::npos || colon + 1 == config.listen.size())) {
    table->Refuse(*table->Find("listen"), "listen", "has no port", "write listen = \"127.0.0.1:9470\", say");
  }
  table->RefuseOthers();
}

void ReadNumbers(ConfigTable& root, Config& config) {
  if (auto table = root.Table("stream")) {
    table->Range("max_bytes", config.stream.maxBytes, int64_t{1} << 20, int64_t{1} << 50);
    table->Range("replicas", config.stream.replicas, 1, 5);
    table->RefuseOthers();
  }
  if (auto table = root.Table("limits")) {
    table->Range("devices", config.limits.devices, 1, 100000);
    table->Range("window", config.limits.window, 1, 1000000);
    table->Range("shards", config.limits.shards, 1, 65536);
    table->RefuseOthers();
  }
}

Config ReadAll(const toml::value& value, const std::string& name) {
  Config config;
  ConfigTable root(value, name, "");
  root.Text("site", config.site, "plant1");
  if (config.site.empty()) root.Miss("site", "write site = \"plant1\", say");
  if (!IsSiteName(config.site)) {
    root.Refuse(*root.Find("site"), "site", "is no name of a site",
                "write letters, digits, - and _, at most 64");
  }
  ReadNats(root, config.nats);
  ReadNumbers(root, config);
  ReadFind(root, config.find);
  ReadHttp(root, config.http);
  root.RefuseOthers();
  return config;
}

// The first line of what the reader of TOML says is enough: the others draw the place.
std::string FirstLineOf(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  constexpr const char* kMark = "[error] ";
  return line.starts_with(kMark) ? line.substr(std::char_traits<char>::length(kMark)) : line;
}

}  // namespace

Config ParseConfig(const std::string& text, const std::string& name) {
  std::istringstream stream(text);
  try {
    return ReadAll(toml::parse(stream, name), name);
  } catch (const toml::exception& problem) {
    throw ConfigError(name + ", line " + std::to_string(problem.location().line()) + ": this is no TOML (" +
                      FirstLineOf(problem.what()) + "); write key = value, texts in \"\"");
  }
}

Config ReadConfig(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    throw ConfigError("cannot read " + path + "; name the configuration file with --config");
  }
  return ParseConfig(text.str(), path);
}

}  // namespace zelgate
