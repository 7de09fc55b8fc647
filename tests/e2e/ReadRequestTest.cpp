// Read requests over cached connections, and the write request that does nothing.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>

#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

constexpr uint32_t kNotAwaited = 0xFFFFFFFF;

class ReadRequestTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  uint32_t Read(uint16_t port, uint32_t reserved = 0) {
    const ZelDeviceAddr target{server_.device(), port};
    return ZelSyncReadReq(&target, 0x11223344, 0x55667788, reserved, buffer_, &length_, 100);
  }

  ScriptedServer server_;
  uint8_t buffer_[4] = {9, 9, 9, 9};
  uint32_t length_ = 4;
};

TEST_F(ReadRequestTest, TheResultIsThatNothingIsAwaited) { EXPECT_EQ(Read(600), kNotAwaited); }

TEST_F(ReadRequestTest, TheLengthBecomes0) {
  (void)Read(600);
  EXPECT_EQ(length_, 0U);
}

TEST_F(ReadRequestTest, TheBufferStaysAsItIs) {
  (void)Read(600);
  for (const uint8_t byte : buffer_) EXPECT_EQ(byte, 9);
}

TEST_F(ReadRequestTest, TheRequestHas29Bytes) {
  (void)Read(600);
  Peer peer = server_.Accept();
  const Bytes request = peer.Read(29);
  ASSERT_EQ(request.size(), 29U);
  const Bytes expected = OuterHeader(1, 600, 21) + Bytes{0, 0, 0, 0} + Be(ReadBe(request, 12, 4), 4) +
                         Bytes{0, 2, 0, 0, 0} + Be(0x11223344, 4) + Be(0x55667788, 4);
  EXPECT_EQ(request, expected);
  EXPECT_FALSE(peer.HasInput(50));
}

TEST_F(ReadRequestTest, TheReservedArgumentChangesNothing) {
  (void)Read(600, 0xFFFFFFFF);
  Peer peer = server_.Accept();
  EXPECT_EQ(peer.Read(29).size(), 29U);
  EXPECT_FALSE(peer.HasInput(50));
}

TEST_F(ReadRequestTest, TheLengthAndTheBufferMayBeNull) {
  const ZelDeviceAddr target{server_.device(), 600};
  EXPECT_EQ(ZelSyncReadReq(&target, 1, 2, 0, nullptr, nullptr, 100), kNotAwaited);
  Peer peer = server_.Accept();
  EXPECT_TRUE(peer.ReadRequest().whole);
}

TEST_F(ReadRequestTest, TwoPortsOfADeviceShareOneConnection) {
  (void)Read(600);
  Peer peer = server_.Accept();
  EXPECT_EQ(peer.ReadRequest().port, 600);
  (void)Read(601);
  EXPECT_EQ(peer.ReadRequest().port, 601);
  EXPECT_FALSE(server_.IsCalled(50));
}

TEST_F(ReadRequestTest, AnAnswerDisturbsNothing) {
  (void)Read(600);
  Peer peer = server_.Accept();
  EXPECT_TRUE(peer.Serve(Text("answer")).whole);
  (void)Read(600);
  EXPECT_TRUE(peer.ReadRequest().whole);
}

TEST_F(ReadRequestTest, AfterTheLibraryWasEndedADeviceGetsANewConnection) {
  (void)Read(600);
  Peer first = server_.Accept();
  ASSERT_TRUE(first.ReadRequest().whole);
  ASSERT_EQ(libzel_destory(), 0);
  EXPECT_TRUE(first.AwaitEnd());
  (void)Read(600);
  Peer second = server_.Accept();
  EXPECT_TRUE(second.ReadRequest().whole);
}

TEST_F(ReadRequestTest, ADeviceThatIsAwayGivesTheSameResult) {
  server_.StopListening();
  EXPECT_EQ(Read(600), kNotAwaited);
  EXPECT_EQ(length_, 0U);
}

TEST_F(ReadRequestTest, AWriteRequestSucceedsAndSendsNothing) {
  const ZelDeviceAddr target{server_.device(), 600};
  const uint8_t data[] = {1, 2};
  EXPECT_EQ(ZelSyncWriteReq(&target, 1, 2, 0, data, sizeof data, 100), 0U);
  EXPECT_EQ(ZelSyncWriteReq(nullptr, 0, 0, 0, nullptr, 0, 0), 0U);
  EXPECT_FALSE(server_.IsCalled(50));
}

}  // namespace
}  // namespace zeltest
