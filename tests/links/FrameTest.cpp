// Messages of many sizes arrive as they were sent, in both directions, whatever the link.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>
#include <thread>

#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

Bytes Numbered(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
  return bytes;
}

// By the bytes of payload; the largest frame has 64 KiB.
class FrameTest : public testing::TestWithParam<size_t> {
 protected:
  static constexpr size_t kFrames = 5;

  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  ~FrameTest() override { link.instance.Release(); }

  const Bytes payload = Numbered(GetParam());
  ScriptedServer server;
  MessageRecorder messages;
  TopicRecorder topics;
  Link link{server};
  Peer& peer = link.peer;
};

TEST_P(FrameTest, AnswersArriveWhole) {
  Bytes buffer(payload.size() + 1);
  for (uint32_t i = 1; i <= kFrames; ++i) {
    ASSERT_GT(link.instance.Send(600, Text("ask")), 0);
    ASSERT_TRUE(peer.ReadRequest().whole);
    std::thread sender([&] { EXPECT_TRUE(peer.Send(Answer(600, i, payload))); });
    EXPECT_EQ(link.instance.Receive(buffer), static_cast<int32_t>(payload.size()));
    sender.join();
    EXPECT_EQ(Bytes(buffer.begin(), buffer.end() - 1), payload);
  }
}

TEST_P(FrameTest, RoutedMessagesArriveWholeAndInOrder) {
  ASSERT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &messages), 0);
  ASSERT_EQ(libzel_loop_start(link.instance), 0);
  for (uint8_t i = 0; i < kFrames; ++i) EXPECT_TRUE(peer.Send(Message(0, 600, payload + Bytes{i})));
  ASSERT_TRUE(messages.Await(kFrames));
  for (uint8_t i = 0; i < kFrames; ++i) EXPECT_EQ(messages.All()[i].payload, payload + Bytes{i});
}

TEST_P(FrameTest, TopicsArriveWholeAndInOrder) {
  ASSERT_EQ(libzel_subscribe(link.instance, "topic", TopicRecorder::Callback, &topics), 0);
  ASSERT_TRUE(peer.ReadRequest().whole);
  ASSERT_EQ(libzel_loop_start(link.instance), 0);
  for (uint8_t i = 0; i < kFrames; ++i) EXPECT_TRUE(peer.Send(TopicMessage("topic", payload + Bytes{i})));
  ASSERT_TRUE(topics.Await(kFrames));
  for (uint8_t i = 0; i < kFrames; ++i) EXPECT_EQ(topics.All()[i].data, payload + Bytes{i});
}

TEST_P(FrameTest, PublicationsReachTheServerWhole) {
  std::thread publisher([&] {
    for (size_t i = 0; i < kFrames; ++i) {
      EXPECT_EQ(
          libzel_publish(link.instance, 1, 2, "topic", payload.data(), static_cast<uint32_t>(payload.size())),
          0);
    }
  });
  for (size_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(peer.ReadRequest().payload, Record("pub", "topic", payload, 1, 2));
  }
  publisher.join();
}

TEST_P(FrameTest, TheLinkStaysUp) {
  ASSERT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &messages), 0);
  ASSERT_EQ(libzel_loop_start(link.instance), 0);
  for (size_t i = 0; i < kFrames; ++i) EXPECT_TRUE(peer.Send(Message(1, 600, InnerHeader(0, 0) + payload)));
  ASSERT_TRUE(messages.Await(kFrames));
  EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
}

std::string SizeName(const testing::TestParamInfo<size_t>& size) {
  return std::to_string(size.param) + "Bytes";
}

INSTANTIATE_TEST_SUITE_P(Short, FrameTest, testing::Values(1, 100, 700), SizeName);
INSTANTIATE_TEST_SUITE_P(Long, FrameTest, testing::Values(1427, 1428, 8192, 65536 - 80), SizeName);

}  // namespace
}  // namespace zeltest
