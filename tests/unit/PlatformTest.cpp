// One behaviour of the platform layer on every system.
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "support/Listener.h"

namespace libzel::platform {
namespace {

using test::Listener;
using test::LocalPort;
using test::Owned;
using Clock = std::chrono::steady_clock;

constexpr int64_t kLongMs = 5000;

int64_t MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

ConstBytes BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// A connection within this process; `client` does not block.
struct Pair {
  Pair() : client(OpenStreamSocket()), server(Connect()) {}

  SocketHandle Connect() {
    EXPECT_TRUE(SetNonBlocking(client));
    EXPECT_NE(StartConnect(client, "127.0.0.1", listener.port()), ConnectResult::kFailed);
    const SocketHandle accepted = listener.Accept();
    EXPECT_EQ(WaitWritable(client, kLongMs), 1);
    return accepted;
  }

  Listener listener;
  Owned client;
  Owned server;
};

// Receives until `size` bytes are there, the peer closes, or nothing comes.
std::string ReceiveText(SocketHandle socket, size_t size) {
  std::string text;
  std::array<uint8_t, 256> buffer{};
  while (text.size() < size && WaitReadable(socket, kLongMs) == 1) {
    const int64_t count = Receive(socket, buffer.data(), std::min(buffer.size(), size - text.size()));
    if (count <= 0) break;
    text.append(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(count));
  }
  return text;
}

class PlatformTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartSockets(), 0); }
  static void TearDownTestSuite() { StopSockets(); }
};

TEST_F(PlatformTest, WaitsOnNoSocketFail) {
  EXPECT_EQ(WaitReadable(kNoSocket, 10), -1);
  EXPECT_EQ(SocketError(), kSocketNotASocket);
  EXPECT_EQ(WaitWritable(kNoSocket, 10), -1);
  EXPECT_EQ(SocketError(), kSocketNotASocket);
}

TEST_F(PlatformTest, WaitsOnAClosedSocketFail) {
  const SocketHandle socket = OpenStreamSocket();
  ASSERT_NE(socket, kNoSocket);
  CloseSocket(socket);
  EXPECT_EQ(WaitReadable(socket, 10), -1);
  EXPECT_EQ(SocketError(), kSocketNotASocket);
  EXPECT_EQ(RuntimeError(), 9);
  EXPECT_EQ(WaitWritable(socket, 10), -1);
  EXPECT_EQ(SocketError(), kSocketNotASocket);
}

TEST_F(PlatformTest, OneInvalidHandleFailsTheWaitOnASet) {
  const Owned good(OpenDatagramSocket());
  const SocketHandle closed = OpenDatagramSocket();
  CloseSocket(closed);
  for (const SocketHandle bad : {kNoSocket, closed}) {
    const std::array<SocketHandle, 2> sockets{good, bad};
    std::array<bool, 2> ready{};
    EXPECT_EQ(WaitReadableSet(sockets, ready, 10), -1);
    EXPECT_EQ(SocketError(), kSocketNotASocket);
  }
}

TEST_F(PlatformTest, NegativeTimeoutsAreZero) {
  const Pair pair;
  const auto start = Clock::now();
  EXPECT_EQ(WaitReadable(pair.client, -1), 0);
  EXPECT_EQ(WaitReadable(pair.client, INT64_MIN), 0);
  EXPECT_EQ(WaitWritable(pair.client, -1), 1);
  EXPECT_LT(MsSince(start), 1000);
}

TEST_F(PlatformTest, AWaitLastsItsTimeout) {
  const Pair pair;
  const auto start = Clock::now();
  EXPECT_EQ(WaitReadable(pair.client, 120), 0);
  EXPECT_GE(MsSince(start), 110);
  EXPECT_LT(MsSince(start), kLongMs);
}

TEST_F(PlatformTest, AnArrivingMessageEndsAWait) {
  const Pair pair;
  std::thread sender([&pair] { (void)Send(pair.server, std::array{BytesOf("x")}); });
  EXPECT_EQ(WaitReadable(pair.client, kLongMs), 1);
  sender.join();
}

TEST_F(PlatformTest, AWakerEndsThePresentWait) {
  const Pair pair;
  Waker waker;
  ASSERT_TRUE(waker.Open());
  std::thread other([&waker] { waker.Wake(); });
  const auto start = Clock::now();
  EXPECT_EQ(WaitReadable(pair.client, kLongMs, &waker), 0);
  EXPECT_LT(MsSince(start), kLongMs);
  other.join();
}

TEST_F(PlatformTest, AWakerEndsTheNextWait) {
  const Pair pair;
  Waker waker;
  ASSERT_TRUE(waker.Open());
  waker.Wake();
  const auto start = Clock::now();
  EXPECT_EQ(WaitReadable(pair.client, kLongMs, &waker), 0);
  EXPECT_LT(MsSince(start), kLongMs);
}

TEST_F(PlatformTest, ADrainedWakerEndsNoWait) {
  const Pair pair;
  Waker waker;
  ASSERT_TRUE(waker.Open());
  waker.Wake();
  waker.Wake();
  waker.Drain();
  const auto start = Clock::now();
  EXPECT_EQ(WaitReadable(pair.client, 60, &waker), 0);
  EXPECT_GE(MsSince(start), 50);
}

TEST_F(PlatformTest, AWakerDoesNotHideAReadableSocket) {
  const Pair pair;
  Waker waker;
  ASSERT_TRUE(waker.Open());
  ASSERT_EQ(Send(pair.server, std::array{BytesOf("x")}), 1);
  ASSERT_EQ(WaitReadable(pair.client, kLongMs), 1);
  waker.Wake();
  EXPECT_EQ(WaitReadable(pair.client, kLongMs, &waker), 1);
}

TEST_F(PlatformTest, AnUnopenedWakerIsIgnored) {
  const Pair pair;
  Waker waker;
  EXPECT_FALSE(waker.IsOpen());
  waker.Wake();
  waker.Drain();
  EXPECT_EQ(WaitReadable(pair.client, 1, &waker), 0);
}

TEST_F(PlatformTest, OpeningAWakerAgainKeepsIt) {
  Waker waker;
  ASSERT_TRUE(waker.Open());
  const SocketHandle handle = waker.handle();
  EXPECT_TRUE(waker.Open());
  EXPECT_EQ(waker.handle(), handle);
}

TEST_F(PlatformTest, AClosedPeerIsReadableAndReceivesNothing) {
  Pair pair;
  pair.server.Close();
  uint8_t byte = 0;
  EXPECT_EQ(WaitReadable(pair.client, kLongMs), 1);
  EXPECT_EQ(Receive(pair.client, &byte, 1), 0);
}

TEST_F(PlatformTest, AResetPeerIsReadableAndEndsTheReceive) {
  Pair pair;
  ASSERT_TRUE(SetLinger(pair.server, true, 0));
  pair.server.Close();
  uint8_t byte = 0;
  EXPECT_EQ(WaitReadable(pair.client, kLongMs), 1);
  const int64_t received = Receive(pair.client, &byte, 1);
  // Wine gives the plain end of the stream.
  EXPECT_TRUE(received == 0 || (received == -1 && SocketError() == kSocketReset))
      << received << ' ' << SocketError();
}

TEST_F(PlatformTest, APeerHasEndedWhenItClosedOrResetAndAllWasRead) {
  for (const bool reset : {false, true}) {
    Pair pair;
    ASSERT_TRUE(SetNonBlocking(pair.client));
    EXPECT_FALSE(HasPeerEnded(pair.client));
    ASSERT_TRUE(SetLinger(pair.server, reset, 0));
    pair.server.Close();
    EXPECT_EQ(WaitReadable(pair.client, kLongMs), 1);
    EXPECT_TRUE(HasPeerEnded(pair.client)) << reset;
  }
}

TEST_F(PlatformTest, ShutdownWakesAWaitingThread) {
  const Pair pair;
  std::atomic<int> result{-2};
  const auto start = Clock::now();
  std::thread waiting([&] { result = WaitReadable(pair.client, kLongMs); });
  while (result == -2) {
    ShutdownSocket(pair.client);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  waiting.join();
  EXPECT_EQ(result, 1);
  EXPECT_LT(MsSince(start), kLongMs);
}

TEST_F(PlatformTest, ReceivingAfterAShutdownIsTheEnd) {
  const Pair pair;
  ShutdownSocket(pair.client);
  uint8_t byte = 0;
  EXPECT_EQ(Receive(pair.client, &byte, 1), 0);
}

TEST_F(PlatformTest, ReceivingNothingOnANonBlockingSocketWouldBlock) {
  const Pair pair;
  uint8_t byte = 0;
  EXPECT_EQ(Receive(pair.client, &byte, 1), -1);
  EXPECT_EQ(SocketError(), kSocketWouldBlock);
  EXPECT_EQ(Receive(pair.client, &byte, 1), -1);
  EXPECT_EQ(RuntimeError(), kRuntimeTryAgain);
}

TEST_F(PlatformTest, SendingAfterAShutdownIsABrokenPipe) {
  const Pair pair;
  ShutdownSocket(pair.client);
  EXPECT_EQ(Send(pair.client, std::array{BytesOf("x")}), -1);
  EXPECT_EQ(SocketError(), kSocketShutDown);
  EXPECT_EQ(Send(pair.client, std::array{BytesOf("x"), BytesOf("y")}), -1);
  EXPECT_EQ(RuntimeError(), kRuntimeBrokenPipe);
}

TEST_F(PlatformTest, ReceivingUnconnectedFails) {
  const Owned socket(OpenStreamSocket());
  uint8_t byte = 0;
  EXPECT_EQ(Receive(socket, &byte, 1), -1);
  EXPECT_EQ(SocketError(), kSocketNotConnected);
}

TEST_F(PlatformTest, AGatheredSendArrivesInOrder) {
  const Pair pair;
  const std::array<ConstBytes, kMaxPieces> pieces{BytesOf("one,"), BytesOf(""), BytesOf("two,"),
                                                  BytesOf("three")};
  EXPECT_EQ(Send(pair.client, pieces), 13);
  EXPECT_EQ(ReceiveText(pair.server, 13), "one,two,three");
}

TEST_F(PlatformTest, ASendToAFullPeerWouldBlock) {
  const Pair pair;
  const std::string block(1 << 16, 'x');
  int64_t sent = 0;
  for (int i = 0; i < 10000 && sent >= 0; ++i) sent = Send(pair.client, std::array{BytesOf(block)});
  EXPECT_EQ(sent, -1);
  EXPECT_EQ(Send(pair.client, std::array{BytesOf(block)}), -1);
  EXPECT_EQ(SocketError(), kSocketWouldBlock);
  EXPECT_EQ(WaitWritable(pair.client, 0), 0);
}

TEST_F(PlatformTest, ARefusedConnectIsKnownAtOnce) {
  Listener listener;
  const uint16_t port = listener.port();
  listener.Close();
  const Owned socket(OpenStreamSocket());
  ASSERT_TRUE(SetNonBlocking(socket));
  const auto start = Clock::now();
  ASSERT_EQ(StartConnect(socket, "127.0.0.1", port), ConnectResult::kInProgress);
  EXPECT_EQ(WaitWritable(socket, kLongMs), 1);
  const int32_t error = TakePendingError(socket);
  EXPECT_TRUE(error == 111 || error == 10061) << error;
  EXPECT_LT(MsSince(start), kLongMs);
}

TEST_F(PlatformTest, AConnectedSocketHasNoPendingError) {
  const Pair pair;
  EXPECT_EQ(TakePendingError(pair.client), 0);
}

TEST_F(PlatformTest, ConnectingAConnectedSocketCountsAsInProgress) {
  const Pair pair;
  EXPECT_EQ(StartConnect(pair.client, "127.0.0.1", pair.listener.port()), ConnectResult::kInProgress);
}

TEST_F(PlatformTest, ThePendingErrorOfNoSocketIsABadDescriptor) { EXPECT_EQ(TakePendingError(kNoSocket), 9); }

TEST_F(PlatformTest, DatagramsTellTheirSender) {
  const Owned from(OpenDatagramSocket());
  const Owned to(OpenDatagramSocket());
  ASSERT_TRUE(Bind(from, "127.0.0.1", 0));
  ASSERT_TRUE(Bind(to, "127.0.0.1", 0));
  EXPECT_EQ(SendDatagram(from, "127.0.0.1", LocalPort(to), BytesOf("hello")), 5);
  ASSERT_EQ(WaitReadable(to, kLongMs), 1);
  std::array<uint8_t, 5> buffer{};
  Endpoint sender;
  EXPECT_EQ(ReceiveDatagram(to, buffer.data(), buffer.size(), &sender), 5);
  EXPECT_EQ(sender.host, "127.0.0.1");
  EXPECT_EQ(sender.port, LocalPort(from));
}

TEST_F(PlatformTest, ADatagramLongerThanTheBufferIsAFailedReceive) {
  const Owned socket(OpenDatagramSocket());
  ASSERT_TRUE(Bind(socket, "127.0.0.1", 0));
  ASSERT_EQ(SendDatagram(socket, "127.0.0.1", LocalPort(socket), BytesOf("123456")), 6);
  ASSERT_EQ(WaitReadable(socket, kLongMs), 1);
  std::array<uint8_t, 5> buffer{};
  EXPECT_EQ(ReceiveDatagram(socket, buffer.data(), buffer.size(), nullptr), -1);
  EXPECT_EQ(SocketError(), kSocketMessageTooLong);
  EXPECT_EQ(WaitReadable(socket, 0), 0);
}

TEST_F(PlatformTest, AnUnwantedDatagramFailsNoLaterReceive) {
  const Owned socket(OpenDatagramSocket());
  ASSERT_TRUE(Bind(socket, "127.0.0.1", 0));
  Owned gone(OpenDatagramSocket());
  ASSERT_TRUE(Bind(gone, "127.0.0.1", 0));
  const uint16_t nobody = LocalPort(gone);
  gone.Close();
  ASSERT_EQ(SendDatagram(socket, "127.0.0.1", nobody, BytesOf("x")), 1);
  ASSERT_EQ(SendDatagram(socket, "127.0.0.1", LocalPort(socket), BytesOf("y")), 1);
  uint8_t byte = 0;
  ASSERT_EQ(WaitReadable(socket, kLongMs), 1);
  EXPECT_EQ(ReceiveDatagram(socket, &byte, 1, nullptr), 1);
  EXPECT_EQ(byte, 'y');
}

TEST_F(PlatformTest, AWaitOnASetTellsWhichAreReadable) {
  const Owned quiet(OpenDatagramSocket());
  const Owned busy(OpenDatagramSocket());
  ASSERT_TRUE(Bind(quiet, "127.0.0.1", 0));
  ASSERT_TRUE(Bind(busy, "127.0.0.1", 0));
  const std::array<SocketHandle, 2> sockets{quiet, busy};
  std::array<bool, 2> ready{true, true};
  EXPECT_EQ(WaitReadableSet(sockets, ready, 0), 0);
  EXPECT_EQ(ready, (std::array{false, false}));
  ASSERT_EQ(SendDatagram(quiet, "127.0.0.1", LocalPort(busy), BytesOf("x")), 1);
  EXPECT_EQ(WaitReadableSet(sockets, ready, kLongMs), 1);
  EXPECT_EQ(ready, (std::array{false, true}));
}

TEST_F(PlatformTest, AWaitOnAFullSetWorks) {
  std::array<SocketHandle, kMaxWatched> sockets{};
  std::array<bool, kMaxWatched> ready{};
  for (SocketHandle& socket : sockets) {
    socket = OpenDatagramSocket();
    ASSERT_TRUE(Bind(socket, "127.0.0.1", 0));
  }
  ASSERT_EQ(SendDatagram(sockets[0], "127.0.0.1", LocalPort(sockets.back()), BytesOf("x")), 1);
  EXPECT_EQ(WaitReadableSet(sockets, ready, kLongMs), 1);
  EXPECT_TRUE(ready.back());
  EXPECT_EQ(std::count(ready.begin(), ready.end(), true), 1);
  for (const SocketHandle socket : sockets) CloseSocket(socket);
}

TEST_F(PlatformTest, BindingATakenPortFails) {
  const Owned first(OpenStreamSocket());
  const Listener listener;
  EXPECT_FALSE(Bind(first, "127.0.0.1", listener.port()));
}

TEST_F(PlatformTest, BufferSizesAreSetAndRead) {
  const Owned socket(OpenStreamSocket());
  int32_t bytes = 0;
  EXPECT_TRUE(SetSendBuffer(socket, 100000));
  EXPECT_TRUE(GetSendBuffer(socket, bytes));
  EXPECT_GE(bytes, 100000);
  EXPECT_TRUE(SetReceiveBuffer(socket, 100000));
  EXPECT_TRUE(GetReceiveBuffer(socket, bytes));
  EXPECT_GE(bytes, 100000);
}

TEST_F(PlatformTest, StreamOptionsAreTaken) {
  const Owned socket(OpenStreamSocket());
  EXPECT_TRUE(SetLinger(socket, true, 0));
  EXPECT_TRUE(SetKeepAlive(socket, true));
  EXPECT_TRUE(SetNoDelay(socket, true));
  EXPECT_TRUE(SetReuseAddress(socket, true));
}

TEST_F(PlatformTest, DatagramOptionsAreTaken) {
  const Owned socket(OpenDatagramSocket());
  EXPECT_TRUE(SetBroadcast(socket, true));
  EXPECT_TRUE(SetMulticastTtl(socket, 1));
  EXPECT_TRUE(SetMulticastLoop(socket, false));
  EXPECT_TRUE(JoinMulticastGroup(socket, "239.255.0.3", "10.77.0.1"));
  EXPECT_FALSE(JoinMulticastGroup(socket, "10.77.0.1", "10.77.0.1"));
}

TEST_F(PlatformTest, OptionsOfNoSocketFail) {
  int32_t bytes = 0;
  EXPECT_FALSE(GetSendBuffer(kNoSocket, bytes));
  EXPECT_FALSE(SetNoDelay(kNoSocket, true));
  EXPECT_EQ(SocketError(), kSocketNotASocket);
}

TEST_F(PlatformTest, ErrorTextsAreTheRuntimes) {
  EXPECT_EQ(ErrorText(kRuntimeBrokenPipe), "Broken pipe");
  EXPECT_EQ(ErrorText(kRuntimeTryAgain), "Resource temporarily unavailable");
  EXPECT_EQ(ErrorText(10061).substr(0, 13), "Unknown error");
}

TEST_F(PlatformTest, ThreadsHaveNumbersOfTheirOwn) {
  uint32_t other = 0;
  std::thread([&other] { other = ThreadId(); }).join();
  EXPECT_NE(ThreadId(), 0U);
  EXPECT_NE(other, ThreadId());
  EXPECT_EQ(ThreadId(), ThreadId());
}

TEST_F(PlatformTest, CoresAreCounted) {
  EXPECT_GE(CoreCount(), 1U);
  EXPECT_LE(CoreCount(), std::max(std::thread::hardware_concurrency(), 1U));
}

TEST_F(PlatformTest, TheLabsAdapterIsListedOnce) {
  const std::vector<Adapter> adapters = ListAdapters();
  const auto isLabs = [](const Adapter& adapter) { return adapter.ip == "10.77.0.1"; };
  ASSERT_EQ(std::count_if(adapters.begin(), adapters.end(), isLabs), 1);
  const auto found = std::find_if(adapters.begin(), adapters.end(), isLabs);
  EXPECT_EQ(found->type, 6U);
  EXPECT_EQ(found->hardwareAddress, (std::vector<uint8_t>{2, 0x77, 0, 0, 0, 1}));
  EXPECT_FALSE(found->name.empty());
}

TEST_F(PlatformTest, StartingAgainNeedsOneMoreStop) {
  ASSERT_EQ(StartSockets(), 0);
  StopSockets();
  const Owned socket(OpenStreamSocket());
  EXPECT_NE(socket, kNoSocket);
}

}  // namespace
}  // namespace libzel::platform
