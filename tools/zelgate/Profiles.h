// The profiles that a bucket's content says, one a key.
#pragma once

#include <map>
#include <string>

#include "BucketWatch.h"
#include "Profile.h"

namespace zelgate {

// Changes the profiles to what the content says. A value that is no profile is said; an earlier one of its
// name stays.
void FollowProfiles(const BucketContent& content, std::map<std::string, Profile>& profiles);

}  // namespace zelgate
