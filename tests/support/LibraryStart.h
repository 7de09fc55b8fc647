// Starts the library, once per process however many suites ask for it, and keeps what it logged meanwhile.
#pragma once

#include <vector>

#include "libzel/libzel.h"
#include "support/CapturedLog.h"

namespace zeltest {

struct LibraryStart {
  int32_t result = -1;
  std::vector<LogLine> log;
};

inline const LibraryStart& StartLibrary() {
  static const LibraryStart start = [] {
    LibraryStart made;
    const CapturedLog log;
    made.result = libzel_init();
    made.log = log.Lines();
    return made;
  }();
  return start;
}

}  // namespace zeltest
