// Who may change the host of an identifier: discovery, within what the options allow, and the application. Any thread may
// use it.
#pragma once

#include <string>

#include "libzel/libzel.h"

namespace libzel {

// What a scan answer tells: `deviceId` is a text that a device may have written as it likes.
void LearnRoute(const std::string& deviceId, const std::string& host);
// What the application tells. False when there are too many.
bool PinRoute(const ZelDeviceId& device, const std::string& host);
void ForgetRoute(const ZelDeviceId& device);

}  // namespace libzel
