#include "Profiles.h"

#include <utility>

#include "Journal.h"

namespace zelgate {

void FollowProfiles(const BucketContent& content, std::map<std::string, Profile>& profiles) {
  std::map<std::string, Profile> fresh;
  for (const auto& [name, value] : content) {
    Profile profile;
    std::string why;
    if (ParseProfile(value, profile, why)) {
      fresh[name] = std::move(profile);
      continue;
    }
    const auto before = profiles.find(name);
    if (before != profiles.end()) fresh.insert(*before);
    Say(Priority::kError, "the profile " + name + " is not taken" +
                              (before != profiles.end() ? ", the earlier one stays: " : ": ") + why);
  }
  profiles = std::move(fresh);
}

}  // namespace zelgate
