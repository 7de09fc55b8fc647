// What the bucket of devices says, for people and for programs. Pure.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "DeviceTable.h"

namespace zelgate {

struct StatusLine {
  std::string id;
  std::string name;
  std::string serial;
  std::string address;
  std::string link;  // "up", "connecting", ...; "unserved" when nobody serves it
  std::string since;
  std::string servedBy;
  std::string why;

  bool operator==(const StatusLine&) const = default;
};

// Of all devices, by identifier. What a process says that is none of the `holders` any more does not hold.
std::vector<StatusLine> StatusOf(const DeviceTable& table, const std::set<std::string>& holders);

// "site north: 3 devices, 2 up, 1 unserved; 2 processes serve them"
std::string SummaryOf(const std::string& site, const std::vector<StatusLine>& lines, size_t processes);
// Columns below their titles, one line a device. Names of devices can neither steer a terminal nor begin a
// line.
std::string TableOf(const std::vector<StatusLine>& lines);
// "10.20.0.7.0.1 (press 7) is up since ..., served by ...": one device, one line.
std::string SentenceOf(const StatusLine& line);
// One object, without a line end.
std::string JsonOf(const StatusLine& line);

}  // namespace zelgate
