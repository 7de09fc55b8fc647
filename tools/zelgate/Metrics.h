// What a process tells about itself and its devices: Prometheus' text format, and one line about its health.
// Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Asker.h"
#include "DeviceTable.h"
#include "EventWriter.h"
#include "Profile.h"
#include "Streams.h"

namespace zelgate {

// All figures of one process, at one moment.
struct GateFigures {
  std::string site;
  bool isNatsUp = false;
  bool isServing = false;  // it has what it needs of NATS, and its lease holds
  size_t shards = 0;
  size_t devices = 0;
  size_t devicesUp = 0;
  size_t devicesLeftOut = 0;  // of its shards, because of limits.devices
  uint64_t dropped = 0;       // by the devices that are served now
  EventWriter::Figures events;
  Asker::Figures requests;
  StreamUse stream;  // all zero when it is not known
};

// Some thirty series, however many devices there are.
std::string MetricsText(const GateFigures& figures);

// Of one device, by the same names whichever it is.
std::string ProbeText(const DeviceFacts& facts, const DeviceLink& link);

struct Health {
  bool isGood = false;
  std::string text;  // one line
};
Health HealthOf(const GateFigures& figures);

}  // namespace zelgate
