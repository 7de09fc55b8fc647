// To whom discovery listens, and on which adapters it asks; without limits to all and on all. Any thread may use it.
#pragma once

#include <string>
#include <vector>

#include "utils/Mutex.h"
#include "zelcomm/Ipv4.h"
#include "zelcomm/ZelDeviceIdGenerator.h"

namespace libzel {

class ScanLimits {
 public:
  static ScanLimits& Instance();

  // Lists with commas between: networks ("10.0.0.0/8,192.168.1.20"), and names or addresses of adapters. Null: no limit.
  // False, and nothing is changed, when one cannot be read.
  bool Set(const char* peers, const char* adapters);

  bool MayAnswer(const std::string& host);
  bool LimitsAdapters();
  bool MayAsk(const AdapterRecord& adapter);

 private:
  Mutex mutex_;
  bool limitsPeers_ ZEL_GUARDED_BY(mutex_) = false;
  std::vector<Ipv4Network> peers_ ZEL_GUARDED_BY(mutex_);
  std::vector<std::string> adapters_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
