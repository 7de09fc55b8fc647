// A machine without a network whose name server takes its time. Linux only: the lab gives it a
// name server of its own.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>

#include "ZelProcess.h"

namespace {

// Says of every name, after a while, that it is that of 127.0.0.4.
class SlowNameServer {
 public:
  explicit SlowNameServer(std::chrono::milliseconds delay) : delay_(delay) {
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_port = htons(53);
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    isBound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0;
    thread_ = std::thread([this] { Serve(); });
  }
  ~SlowNameServer() {
    (void)shutdown(socket_, SHUT_RD);  // wakes the thread
    isOver_ = true;
    thread_.join();
    (void)close(socket_);
  }
  SlowNameServer(const SlowNameServer&) = delete;
  SlowNameServer& operator=(const SlowNameServer&) = delete;

  bool IsBound() const { return isBound_; }

 private:
  void Serve() {
    std::array<char, 512> question{};
    sockaddr_in from{};
    while (!isOver_) {
      socklen_t size = sizeof from;
      const ssize_t length =
          recvfrom(socket_, question.data(), question.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
      if (length < 12 || isOver_) continue;
      std::this_thread::sleep_for(delay_);
      const std::string answer = Answer({question.data(), static_cast<size_t>(length)});
      (void)sendto(socket_, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
    }
  }

  // The question with its one answer: the name at byte 12, an address, an hour.
  static std::string Answer(std::string question) {
    const size_t end = question.find('\0', 12) + 5;
    question.resize(end);
    const std::string header("\x81\x80\x00\x01\x00\x01\x00\x00\x00\x00", 10);
    question.replace(2, header.size(), header);
    return question + std::string("\xc0\x0c\x00\x01\x00\x01\x00\x00\x0e\x10\x00\x04\x7f\x00\x00\x04", 16);
  }

  const std::chrono::milliseconds delay_;
  const int socket_ = socket(AF_INET, SOCK_DGRAM, 0);
  bool isBound_ = false;
  std::atomic<bool> isOver_ = false;
  std::thread thread_;
};

}  // namespace

TEST(NameServerTest, IsWaitedForThoughNothingElseCanBeLookedFor) {
  const SlowNameServer server(std::chrono::milliseconds(700));
  ASSERT_TRUE(server.IsBound());
  const ZelResult result = RunZel({"request", "press.example", "-p", "600", "hello"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "hello\n");
}

TEST(NameServerTest, IsWaitedForAsLongAsTheUserSays) {
  const SlowNameServer server(std::chrono::milliseconds(3500));
  ASSERT_TRUE(server.IsBound());
  const ZelResult result = RunZel({"request", "press.example", "-p", "600", "hello", "-t", "15000"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "hello\n");
}

TEST(NameServerTest, IsNotWaitedForLongerThanTheUserSays) {
  const SlowNameServer server(std::chrono::milliseconds(2000));
  ASSERT_TRUE(server.IsBound());
  const ZelResult result = RunZel({"request", "press.example", "-p", "600", "hello", "-t", "300"});
  EXPECT_EQ(result.status, 27) << result.errors;
  EXPECT_TRUE(Contains(result.errors, "no name server tells in time where press.example is"))
      << result.errors;
}
