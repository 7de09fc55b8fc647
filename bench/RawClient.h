// The yardstick: a blocking TCP socket without anything around it, with the buffer sizes
// that the library sets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

class RawClient {
 public:
  explicit RawClient(const char* host);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  // One write per frame, more only when the system takes less than all.
  void Write(const std::vector<uint8_t>& frame) const;
  // Exactly `size` bytes.
  void Read(uint8_t* buffer, size_t size) const;
  // What is there, at most `size` bytes.
  size_t ReadSome(uint8_t* buffer, size_t size) const;

 private:
  int fd_;
};

}  // namespace bench
