// Plain blocking stream sockets for the servers that tests play, the same on both systems. A socket is owned
// by one object. Time-outs are in ms. Not for use by several threads at once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zeltest {

using Bytes = std::vector<uint8_t>;

class TestSocket {
 public:
  TestSocket() = default;
  ~TestSocket() { Close(); }
  TestSocket(TestSocket&& other) noexcept : handle_(other.handle_) { other.handle_ = kNone; }
  TestSocket& operator=(TestSocket&& other) noexcept;

  // Throw std::runtime_error when the system refuses.
  static TestSocket Listen(const std::string& host, uint16_t port, int backlog);
  static TestSocket Connect(const std::string& host, uint16_t port, int timeoutMs);

  bool IsOpen() const { return handle_ != kNone; }
  bool WaitReadable(int timeoutMs) const;
  // An object that is not open when nobody came in time.
  TestSocket Accept(int timeoutMs) const;
  // Bytes received, 0 at the end, -1 when the connection was reset.
  int Receive(uint8_t* buffer, int size) const;
  // False when the connection broke.
  bool Send(const uint8_t* data, size_t size) const;
  void SetNoDelay() const;
  void SetReceiveBuffer(int bytes) const;
  void EndSending() const;
  void Close();
  // Closes so that the peer sees a reset.
  void Reset();

 private:
  static constexpr intptr_t kNone = -1;
  explicit TestSocket(intptr_t handle) : handle_(handle) {}

  intptr_t handle_ = kNone;
};

}  // namespace zeltest
