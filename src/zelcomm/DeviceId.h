// The device identifier's order and its dotted text form.
#pragma once

#include <compare>
#include <string>
#include <string_view>

#include "libzel/libzel.h"

namespace libzel {

// "192.168.1.20.0.1".
std::string DeviceIdText(const ZelDeviceId& id);

// Reads the dotted text of six components. Each is a signed decimal (leading blanks and a sign accepted, reading stops
// at the first non-digit, no digits give 0) of which the low 8 bits are kept. Another number of components gives the
// all-zero identifier; one trailing "." is accepted. There is no error.
ZelDeviceId ParseDeviceId(std::string_view text);

// Reads the dotted text of an IPv4 address and adds the suffix 1.1, as the identifier of this machine is made from its
// adapter. A text that has not exactly four components gives 0.0.0.0.1.1.
ZelDeviceId DeviceIdFromAdapterIp(std::string_view ip);

// Byte by byte, the first differing byte deciding.
struct DeviceIdLess {
  bool operator()(const ZelDeviceId& left, const ZelDeviceId& right) const;
};

}  // namespace libzel
