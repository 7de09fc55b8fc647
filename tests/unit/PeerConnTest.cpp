#include "zelclient/ZelPeerConn.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/Wire.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::operator+;
using zeltest::CapturedLog;
using zeltest::TopicRecorder;

// A connection whose transport is a list of what was sent.
class ListeningConnection : public IZelPeerConnection {
 public:
  ListeningConnection() : IZelPeerConnection({{1, 2, 3, 4, 5, 6}}, "parameters") {}
  ~ListeningConnection() override { (void)loop_stop(); }

  int32_t Write(const uint8_t*, uint32_t length, int64_t) override { return static_cast<int32_t>(length); }
  int32_t Send(uint16_t, uint32_t, uint32_t, const uint8_t*, uint32_t, uint32_t) override { return 0; }
  int32_t Recv(void*, uint8_t*, uint32_t, uint32_t) override { return 0; }
  int32_t SendBuffer(const FrameBuffer& message) override {
    const auto content = message.content();
    sent.emplace_back(content.begin(), content.end());
    return accepts ? static_cast<int32_t>(message.length()) : -1;
  }
  int32_t Publish(const char*, uint32_t, uint32_t, const uint8_t*, uint32_t) override { return 0; }
  int32_t Subscribe(const char* topic, ZelTopicCallback callback, void* user) override {
    topics().Set(topic, {callback, user});
    return 0;
  }
  int32_t UnSubscribe(const char* topic) override { return topics().Erase(topic) ? 0 : -1; }
  int32_t svc() override { return ++runs; }

  std::vector<Bytes> sent;
  std::atomic<int> runs{0};
  bool accepts = true;
};

class PeerConnTest : public testing::Test {
 protected:
  static constexpr ZelDeviceAddr kTarget{{{9, 9, 9, 9, 9, 9}}, 0x0203};

  ListeningConnection connection;
};

TEST_F(PeerConnTest, InvokeIdentifiersBeginAt1) {
  EXPECT_EQ(connection.GenInvokeId(), 1U);
  EXPECT_EQ(connection.GenInvokeId(), 2U);
}

TEST_F(PeerConnTest, BaseHasNoTransport) {
  EXPECT_FALSE(connection.Connect(10));
  EXPECT_FALSE(connection.Reconnect(10));
  EXPECT_FALSE(connection.IsConnected());
  connection.Close();
}

TEST_F(PeerConnTest, RequestGetsBothHeaders) {
  const Bytes body{7, 8};
  ZelRequest request{FrameBuffer(2, body.data()), &kTarget, 5};
  EXPECT_EQ(connection.SendRequest(request), nullptr);
  ASSERT_EQ(connection.sent.size(), 1U);
  EXPECT_EQ(connection.sent[0], zeltest::Message(1, 0x0203, zeltest::InnerHeader(0, 1, 5) + body));
}

TEST_F(PeerConnTest, SyncRequestFailsOnceTheRequestHasLeft) {
  ZelRequest request{FrameBuffer(0), &kTarget, 5};
  EXPECT_EQ(connection.SyncRequest(request), -1);
  EXPECT_EQ(connection.sent.size(), 1U);
}

TEST_F(PeerConnTest, RecordOfARequestThatDidNotLeaveIsReturned) {
  ZelRequest probe{FrameBuffer(0), &kTarget, 5};
  auto* const before = connection.Reserve(probe);
  ResponseRecords().Return(before);
  connection.accepts = false;
  ZelRequest request{FrameBuffer(0), &kTarget, 5};
  EXPECT_EQ(connection.SendRequest(request), nullptr);
  EXPECT_EQ(connection.Reserve(probe), before);
  ResponseRecords().Return(before);
}

TEST_F(PeerConnTest, RecordOfARequestThatLeftStaysReserved) {
  ZelRequest probe{FrameBuffer(0), &kTarget, 5};
  auto* const before = connection.Reserve(probe);
  ResponseRecords().Return(before);
  ZelRequest request{FrameBuffer(0), &kTarget, 5};
  EXPECT_EQ(connection.SendRequest(request), nullptr);
  EXPECT_NE(connection.Reserve(probe), before);
  EXPECT_EQ(before->object.owner, &request);
  EXPECT_EQ(before->object.invokeId, 1U);
}

TEST_F(PeerConnTest, ReservedRecordIsFresh) {
  ZelRequest request{FrameBuffer(0), &kTarget, 5};
  auto* const slot = connection.Reserve(request);
  EXPECT_EQ(slot->object.owner, &request);
  EXPECT_EQ(slot->object.invokeId, 0U);
  EXPECT_EQ(slot->object.result, 0);
  ResponseRecords().Return(slot);
}

TEST_F(PeerConnTest, TopicPortIsTaken) {
  EXPECT_EQ(connection.addUserMessaggeRouter(103, zeltest::MessageRecorder::Callback, nullptr), 4103);
}

TEST_F(PeerConnTest, SubscriptionsComeInByteOrder) {
  for (const char* topic : {"b", "\xC3\xA4", "a", "B", ""})
    (void)connection.Subscribe(topic, nullptr, nullptr);
  std::vector<std::string> topics;
  for (const auto& [topic, subscriber] : connection.GetSubscribes()) topics.push_back(topic);
  EXPECT_EQ(topics, (std::vector<std::string>{"", "B", "a", "b", "\xC3\xA4"}));
}

TEST_F(PeerConnTest, FilterCallsTheSubscriber) {
  TopicRecorder seen;
  (void)connection.Subscribe("a", TopicRecorder::Callback, &seen);
  const Bytes record = zeltest::Record("pub", "a", {}, 3, 4);
  connection.filter(record.data(), static_cast<uint32_t>(record.size()));
  ASSERT_EQ(seen.Count(), 1U);
  EXPECT_EQ(seen.All()[0].idGroup, 3U);
  EXPECT_EQ(seen.All()[0].idOffset, 4U);
}

TEST_F(PeerConnTest, FilterLogsATopicThatNobodyWants) {
  const CapturedLog log;
  const Bytes record = zeltest::Record("pub", "a", {});
  connection.filter(record.data(), static_cast<uint32_t>(record.size()));
  EXPECT_TRUE(log.Has("ERROR", "unknow topic:a"));
}

TEST_F(PeerConnTest, FilterOfNothingLooksForTheEmptyTopic) {
  const CapturedLog log;
  connection.filter(nullptr, 0);
  EXPECT_TRUE(log.Has("ERROR", "unknow topic:"));
}

TEST_F(PeerConnTest, LoopStartTwiceRunsOneThread) {
  EXPECT_EQ(connection.loop_start(), 0);
  EXPECT_EQ(connection.loop_start(), 0);
  EXPECT_EQ(connection.loop_stop(), 0);
  EXPECT_EQ(connection.runs, 1);
}

TEST_F(PeerConnTest, LoopStopWithoutAThreadGives0) { EXPECT_EQ(connection.loop_stop(), 0); }

}  // namespace
}  // namespace libzel
