// What only POSIX systems have.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Platform.h"
#include "support/Listener.h"

namespace libzel::platform {
namespace {

using test::LocalPort;
using test::Owned;

TEST(PosixPlatformTest, WaitsTakeDescriptorsAbove1023) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 4096));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  const Owned low(OpenDatagramSocket());
  ASSERT_TRUE(Bind(low, "127.0.0.1", 0));
  const Owned high(fcntl(static_cast<int>(static_cast<SocketHandle>(low)), F_DUPFD_CLOEXEC, 1500));
  ASSERT_GE(static_cast<SocketHandle>(high), 1500);
  EXPECT_EQ(WaitReadable(high, 0), 0);
  EXPECT_EQ(WaitWritable(high, 0), 1);
  const uint8_t byte = 1;
  ASSERT_EQ(SendDatagram(high, "127.0.0.1", LocalPort(low), {&byte, 1}), 1);
  EXPECT_EQ(WaitReadable(high, 5000), 1);
}

TEST(PosixPlatformTest, NothingIsInherited) {
  const Owned stream(OpenStreamSocket());
  const Owned datagram(OpenDatagramSocket());
  const Owned local(OpenLocalStreamSocket());
  Waker waker;
  ASSERT_TRUE(waker.Open());
  for (const SocketHandle handle :
       {SocketHandle{stream}, SocketHandle{datagram}, SocketHandle{local}, waker.handle()}) {
    EXPECT_EQ(fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
}

// Leaves the standard streams closed while it lives; a test says nothing meanwhile.
class ClosedStreams {
 public:
  ClosedStreams() {
    (void)fflush(stdout);
    for (int i = 0; i < 3; ++i) saved_[i] = fcntl(i, F_DUPFD_CLOEXEC, 100);
    for (int i = 0; i < 3; ++i) close(i);
  }
  ~ClosedStreams() {
    for (int i = 0; i < 3; ++i) {
      dup2(saved_[i], i);
      close(saved_[i]);
    }
  }
  ClosedStreams(const ClosedStreams&) = delete;
  ClosedStreams& operator=(const ClosedStreams&) = delete;

 private:
  int saved_[3];
};

bool AreStandardDescriptorsFree() {
  for (int i = 0; i < 3; ++i) {
    if (fcntl(i, F_GETFD) >= 0) return false;
  }
  return true;
}

TEST(PosixPlatformTest, NothingTakesTheDescriptorsOfClosedStreams) {
  std::vector<int> taken;
  bool areFree = false;
  {
    const ClosedStreams closed;
    const Owned stream(OpenStreamSocket());
    const Owned datagram(OpenDatagramSocket());
    const Owned local(OpenLocalStreamSocket());
    Waker waker;
    (void)waker.Open();
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        OpenForReading("/proc/self/status", FileKind::kBinary), std::fclose);
    (void)ListAdapters();
    areFree = AreStandardDescriptorsFree();
    for (const SocketHandle handle : {SocketHandle{stream}, SocketHandle{datagram}, SocketHandle{local},
                                      waker.handle(), SocketHandle{fileno(file.get())}}) {
      taken.push_back(static_cast<int>(handle));
    }
  }
  EXPECT_TRUE(areFree);
  for (const int descriptor : taken) EXPECT_GT(descriptor, 2);
}

TEST(PosixPlatformTest, AStreamThatIsOpenedIsNotInherited) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      OpenForReading("/proc/self/status", FileKind::kBinary), std::fclose);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(fcntl(fileno(file.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

std::atomic<int> g_signals{0};
void CountSignal(int) { ++g_signals; }

TEST(PosixPlatformTest, AnInterruptedWaitGoesOn) {
  struct sigaction action {};
  action.sa_handler = CountSignal;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const Owned socket(OpenDatagramSocket());
  const pthread_t waiting = pthread_self();
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!done) {
      pthread_kill(waiting, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  const auto start = std::chrono::steady_clock::now();
  const int result = WaitReadable(socket, 150);
  const auto lasted = std::chrono::steady_clock::now() - start;
  done = true;
  other.join();
  EXPECT_EQ(result, 0);
  EXPECT_GE(lasted, std::chrono::milliseconds(140));
  EXPECT_LT(lasted, std::chrono::seconds(5));
  EXPECT_GT(g_signals, 2);
}

TEST(PosixPlatformTest, ALocalSocketConnectsAtOnce) {
  constexpr const char* kPath = "/var/tmp/zel/platform-test";
  const Owned server(OpenLocalStreamSocket());
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, kPath);
  const int native = static_cast<int>(static_cast<SocketHandle>(server));
  ASSERT_EQ(bind(native, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(native, 1), 0);
  const Owned client(OpenLocalStreamSocket());
  EXPECT_EQ(StartLocalConnect(client, kPath), ConnectResult::kConnected);
  (void)unlink(kPath);
}

TEST(PosixPlatformTest, ALocalPathThatIsTooLongFails) {
  const Owned socket(OpenLocalStreamSocket());
  EXPECT_EQ(StartLocalConnect(socket, std::string(108, 'x').c_str()), ConnectResult::kFailed);
  EXPECT_EQ(RuntimeError(), ENAMETOOLONG);
}

TEST(PosixPlatformTest, ABrokenPipeRaisesNoSignal) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const Owned mine(ends[0]);
  close(ends[1]);
  const uint8_t byte = 1;
  const ConstBytes piece(&byte, 1);
  EXPECT_EQ(Send(mine, {&piece, 1}), -1);
  EXPECT_EQ(RuntimeError(), kRuntimeBrokenPipe);
  const ConstBytes pieces[] = {piece, piece};
  EXPECT_EQ(Send(mine, pieces), -1);
  EXPECT_EQ(SocketError(), kSocketShutDown);
}

// Wine has not got these.
// An address with a label belongs to the adapter of the name before the colon.
TEST(PosixPlatformTest, ALabelledAddressMakesNoAdapterOfItsOwn) {
  const std::vector<Adapter> before = ListAdapters();
  ASSERT_FALSE(before.empty());
  const std::string name = before[0].name;
  const std::string address = " 10.99.0.1/32 dev " + name;
  ASSERT_EQ(std::system(("ip address add" + address + " label " + name + ":1").c_str()), 0);
  const std::vector<Adapter> after = ListAdapters();
  ASSERT_EQ(std::system(("ip address del" + address).c_str()), 0);
  ASSERT_EQ(after.size(), before.size());
  for (size_t i = 0; i < after.size(); ++i) EXPECT_EQ(after[i].name, before[i].name);
}

TEST(PosixPlatformTest, KeepAliveTimesAreTaken) {
  const Owned socket(OpenStreamSocket());
  EXPECT_TRUE(SetKeepAliveIdle(socket, 5));
  EXPECT_TRUE(SetKeepAliveInterval(socket, 5));
  EXPECT_TRUE(SetKeepAliveCount(socket, 3));
}

TEST(PosixPlatformTest, AResetIsToldOnce) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const Owned mine(ends[0]);
  const uint8_t byte = 1;
  ASSERT_EQ(write(ends[0], &byte, 1), 1);
  close(ends[1]);  // with a byte unread
  uint8_t buffer = 0;
  EXPECT_EQ(Receive(mine, &buffer, 1), -1);
  EXPECT_EQ(SocketError(), kSocketReset);
  EXPECT_EQ(Receive(mine, &buffer, 1), 0);
}

}  // namespace
}  // namespace libzel::platform
