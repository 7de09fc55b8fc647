#include "Profile.h"

#include <nlohmann/json.hpp>

#include <array>
#include <optional>
#include <stdexcept>

namespace zelgate {
namespace {

using ProfileJson = nlohmann::json;

constexpr int kFirstPort = 501;
constexpr int kLastPort = 65535;

// What is wrong with a profile, as a sentence.
class ProfileFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

Policy ParsePolicy(const ProfileJson& value) {
  for (const Policy policy : {Policy::kBlock, Policy::kDropOldest, Policy::kLatestOnly}) {
    if (value == NameOf(policy)) return policy;
  }
  throw ProfileFault("policy is none; write \"block\", \"drop-oldest\" or \"latest-only\"");
}

void RefuseOtherKeys(const ProfileJson& object, const std::vector<std::string>& known) {
  for (const auto& [key, value] : object.items()) {
    std::string names;
    for (const std::string& name : known) {
      if (name == key) names = "-";
      if (names != "-") names += (names.empty() ? "" : ", ") + name;
    }
    if (names != "-") throw ProfileFault("\"" + key + "\" is no key; these are: " + names);
  }
}

Route ParseTopic(const ProfileJson& value) {
  Route route;
  if (!value.is_string()) throw ProfileFault("a topic is no text; write \"topics\": [\"state\"]");
  route.topic = value.get<std::string>();
  if (route.topic.find('\0') != std::string::npos)
    throw ProfileFault("a topic has a NUL; no device can have it");
  return route;
}

Route ParsePort(const ProfileJson& value) {
  const bool isGood = value.is_number_integer() && value >= kFirstPort && value <= kLastPort;
  if (!isGood) throw ProfileFault("a port is no number from 501 to 65535; write \"ports\": [700]");
  Route route;
  route.isTopic = false;
  route.port = value.get<uint16_t>();
  return route;
}

void ParseRoutes(const ProfileJson& root, const std::string& list, const std::string& single,
                 Route (*parse)(const ProfileJson&), Routes& routes) {
  if (!root.contains(list)) return;
  if (!root[list].is_array()) throw ProfileFault("\"" + list + "\" is no list");
  for (const ProfileJson& item : root[list]) {
    Policy policy = Policy::kBlock;
    if (item.is_object()) {
      RefuseOtherKeys(item, {single, "policy"});
      if (!item.contains(single))
        throw ProfileFault("an object of \"" + list + "\" has no \"" + single + "\"");
      if (item.contains("policy")) policy = ParsePolicy(item["policy"]);
    }
    const Route route = parse(item.is_object() ? item[single] : item);
    if (!routes.emplace(route, policy).second) throw ProfileFault(route.Name() + " is there twice");
  }
}

std::string ParsePattern(const ProfileJson& devices, const std::string& key) {
  if (!devices.contains(key)) return {};
  if (!devices[key].is_string() || devices[key].get<std::string>().empty()) {
    throw ProfileFault("devices." + key + " is no pattern; write \"" + key + "\": \"*\"");
  }
  return devices[key].get<std::string>();
}

Profile ReadProfile(const ProfileJson& root) {
  if (!root.is_object()) throw ProfileFault("it is no object; write {\"devices\": {...}, \"topics\": [...]}");
  RefuseOtherKeys(root, {"devices", "topics", "ports"});
  Profile profile;
  if (root.contains("devices")) {
    const ProfileJson& devices = root["devices"];
    if (!devices.is_object()) throw ProfileFault("\"devices\" is no object; write {\"name\": \"press-*\"}");
    RefuseOtherKeys(devices, {"name", "serial", "id"});
    profile.name = ParsePattern(devices, "name");
    profile.serial = ParsePattern(devices, "serial");
    profile.id = ParsePattern(devices, "id");
  }
  ParseRoutes(root, "topics", "topic", ParseTopic, profile.routes);
  ParseRoutes(root, "ports", "port", ParsePort, profile.routes);
  return profile;
}

bool MatchesIfGiven(const std::string& pattern, const std::string& text) {
  return pattern.empty() || MatchesPattern(pattern, text);
}

}  // namespace

std::string NameOf(Policy policy) {
  constexpr std::array kNames = {"block", "drop-oldest", "latest-only"};
  return kNames.at(static_cast<size_t>(policy));
}

// Goes back to the last star alone, so that no pattern takes longer than its length times the text's.
bool MatchesPattern(std::string_view pattern, std::string_view text) {
  size_t at = 0;
  size_t star = std::string_view::npos;
  size_t starText = 0;
  for (size_t i = 0; i < text.size();) {
    if (at < pattern.size() && pattern[at] == '*') {
      star = at++;
      starText = i;
    } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == text[i])) {
      ++at;
      ++i;
    } else if (star != std::string_view::npos) {
      at = star + 1;
      i = ++starText;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

bool Matches(const Profile& profile, const DeviceFacts& device) {
  return MatchesIfGiven(profile.name, device.name) && MatchesIfGiven(profile.serial, device.serial) &&
         MatchesIfGiven(profile.id, device.id);
}

bool ParseProfile(const std::string& json, Profile& profile, std::string& why) {
  try {
    profile = ReadProfile(ProfileJson::parse(json));
    return true;
  } catch (const ProfileFault& fault) {
    why = fault.what();
  } catch (const ProfileJson::exception& problem) {
    why = std::string("it is no JSON (") + problem.what() + ")";
  }
  return false;
}

Routes RoutesOf(const std::map<std::string, Profile>& profiles, const DeviceFacts& device) {
  Routes routes;
  for (const auto& [name, profile] : profiles) {
    if (Matches(profile, device)) routes.insert(profile.routes.begin(), profile.routes.end());
  }
  return routes;
}

}  // namespace zelgate
