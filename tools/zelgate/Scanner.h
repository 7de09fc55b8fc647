// Discovery on this machine's networks, in rounds. From the first round on, the library's discovery has its
// sockets until the process ends.
#pragma once

#include <libzel/libzel.hpp>

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "DeviceTable.h"

namespace zelgate {

// One thread uses it.
class Scanner {
 public:
  Scanner();
  ~Scanner();
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  // Why it cannot look for devices, one sentence, or nothing. It is tried again with every round.
  std::string BeginRound();
  // What has answered since the round began. Ends the round.
  std::vector<DeviceFinding> EndRound();

 private:
  void Note(const zel::Device& device);

  zel::Library library_;
  std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, DeviceFinding> answers_;  // guarded by the mutex
};

}  // namespace zelgate
