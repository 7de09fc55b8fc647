// What the application has chosen in place of the letter. Everything begins by the letter.
//
// Any thread may read and set a value; a read costs a plain load.
#pragma once

#include <atomic>
#include <cstdint>

namespace libzel {

class Setting {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): stands for its value
  constexpr Setting(int64_t value) : value_(value) {}
  Setting(const Setting& other) : value_(other) {}
  Setting& operator=(const Setting&) = delete;

  // NOLINTNEXTLINE(google-explicit-constructor): stands for its value
  operator int64_t() const { return value_.load(std::memory_order_relaxed); }
  void Set(int64_t value) { value_.store(value, std::memory_order_relaxed); }

 private:
  std::atomic<int64_t> value_;
};

// The process's own. 0 and 1 are no and yes; what the others mean at 0 stands beside them.
struct ProcessOptions {
  Setting discovery{1};         // whether the start of the library starts it
  Setting checkXml{0};          // whether a description file that would be read for ever is refused
  Setting dropBadAnswers{0};    // whether a malformed scan answer is dropped
  Setting checkSender{0};       // whether a direct request takes its answer from the asked host only
  Setting maxRoutes{0};         // 0: no limit
  Setting keepRoutes{0};        // whether pinned and connected identifiers keep theirs
  Setting allAdapters{0};       // also those that share a hardware address, or have none
  Setting discoveryRetryMs{0};  // 0: never
  Setting fileDropUnopened{0};  // whether a file that cannot be opened lets the later ones go on
  Setting fileTotalMs{0};       // 0: no limit
  Setting fileWorkers{1};       // 1 to 64

  // Set when the library starts: some options are read there once, and cannot be set any more.
  std::atomic<bool> hasStarted{false};
};

// Those of one connection. A connection begins with a copy of what new ones begin with.
struct InstanceOptions {
  Setting writeStallMs{0};     // without a byte moved; 0: a write waits for ever
  Setting closeWaitMs{0};      // to get unsent data out; 0: they are dropped
  Setting headerWaitMs{20};    // of silence inside a header
  Setting bodyWaitMs{0};       // of silence inside a body; 0: 1000 ms for all of it
  Setting jitterPercent{0};    // added at random to the pause between reconnects
  Setting reconnectMaxSec{0};  // up to which those pauses double; 0: they stay as they are
  Setting maxBody{0};          // 0: as each reader has it
  Setting deadPeerMs{0};       // 0: as the keep-alive probes find out
  Setting followRoute{0};      // whether the host is looked up before each reconnect
};

inline ProcessOptions& OptionsOfProcess() {
  static constinit ProcessOptions options;
  return options;
}

inline InstanceOptions& OptionsOfNewInstances() {
  static constinit InstanceOptions options;
  return options;
}

}  // namespace libzel
