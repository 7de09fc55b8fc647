// A server in a process of its own that does as little as it can: frames on port 103 are read and dropped,
// all others are answered with their payload. Blocking, one thread per client.
#pragma once

#include <sys/types.h>

namespace bench {

class PlainServer {
 public:
  // Listens on host:9999 when this returns. Make it before the program has other threads.
  explicit PlainServer(const char* host);
  ~PlainServer();
  PlainServer(const PlainServer&) = delete;
  PlainServer& operator=(const PlainServer&) = delete;

 private:
  pid_t pid_ = -1;
};

}  // namespace bench
