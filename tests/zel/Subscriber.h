// Subscribers that are known to have their topics.
#pragma once

#include "ZelProcess.h"

// True once a subscriber at kDevice whose last topic is "ready" has all its topics: the server takes them in
// their order, and nothing else shows that a subscription is there.
bool IsReady(ZelProcess& subscriber);
