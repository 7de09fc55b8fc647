// Publications in bounded time, one or many in a write, and the wait for their acknowledgement.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/Asking.h"
#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

constexpr size_t kRecordOverhead = 24 + 3 + 1 + 1 + 9;  // lengths, "pub", NULs and the two words

class BoundedPublishTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  int32_t Publish(const char* topic, const Bytes& data, uint32_t timeoutMs = kAskPatienceMs) const {
    return libzelx_publish(instance, 3, 4, topic, data.data(), static_cast<uint32_t>(data.size()), timeoutMs);
  }
  int32_t PublishMany(const std::vector<libzelx_Message>& messages, uint32_t timeoutMs = kAskPatienceMs) {
    return libzelx_publishMany(instance, messages.data(), messages.size(), timeoutMs, &sent);
  }
  void TakeLinkDown() {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    peer.Close();
    Bytes buffer(8);
    EXPECT_EQ(link.instance.Receive(buffer), -1);
  }

  const Deadline deadline{100};
  const CapturedLog log;
  ScriptedServer server;
  Link link{server};
  Peer& peer = link.peer;
  ZelInstance instance = link.instance;
  size_t sent = 77;
};

// ---- publish ----------------------------------------------------------------------------------------------

TEST_F(BoundedPublishTest, SendsTheFrameThatTheOldCallSends) {
  EXPECT_EQ(libzel_publish(instance, 3, 4, "topic", Text("data").data(), 4), 0);
  EXPECT_EQ(Publish("topic", Text("data")), 0);
  const Request old = peer.ReadRequest();
  const Request bounded = peer.ReadRequest();
  EXPECT_EQ(bounded.payload, old.payload);
  EXPECT_EQ(bounded.port, 103);
  EXPECT_EQ(bounded.command, 9);
  EXPECT_EQ(bounded.idGroup, 3U);
  EXPECT_EQ(bounded.idOffset, 4U);
  EXPECT_EQ(bounded.invokeId, old.invokeId + 1);
}

TEST_F(BoundedPublishTest, Gives0AndNoError) {
  EXPECT_EQ(Publish("topic", Text("data")), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(BoundedPublishTest, NullDataOfLength0IsEmpty) {
  EXPECT_EQ(libzelx_publish(instance, 0, 0, "topic", nullptr, 0, kAskPatienceMs), 0);
  EXPECT_EQ(peer.ReadRequest().payload, Record("pub", "topic", {}));
}

TEST_F(BoundedPublishTest, RefusesNullDataWithALength) {
  EXPECT_EQ(libzelx_publish(instance, 0, 0, "topic", nullptr, 1, kAskPatienceMs), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

TEST_F(BoundedPublishTest, RefusesNoTopic) {
  EXPECT_EQ(libzelx_publish(instance, 0, 0, nullptr, "x", 1, kAskPatienceMs), ZEL_E_PARAM);
}

TEST_F(BoundedPublishTest, RefusesAnInstanceThatIsNotLive) {
  EXPECT_EQ(libzelx_publish(1, 0, 0, "topic", nullptr, 0, kAskPatienceMs), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(BoundedPublishTest, LongestFrameIsSent) {
  const Bytes data(10485760 - 29 - kRecordOverhead - 1, 'x');
  const OngoingCall call([&] { return Publish("t", data); });
  EXPECT_EQ(peer.ReadRequest().payload, Record("pub", "t", data, 3, 4));
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, 0);
}

TEST_F(BoundedPublishTest, LongerFrameIsRefusedUnsent) {
  const Bytes data(10485760 - 29 - kRecordOverhead, 'x');
  EXPECT_EQ(Publish("t", data), LIBZELX_E_TOO_LONG);
  EXPECT_EQ(libzel_get_errno(), LIBZELX_E_TOO_LONG);
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(BoundedPublishTest, LongTopicCountsToTheFrame) {
  const std::string topic(10485760, 't');
  EXPECT_EQ(Publish(topic.c_str(), {}), LIBZELX_E_TOO_LONG);
}

TEST_F(BoundedPublishTest, TimeoutOf0SendsWhatNeedsNoWait) {
  EXPECT_EQ(Publish("topic", Text("x"), 0), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
}

TEST_F(BoundedPublishTest, DownLinkIs5) {
  TakeLinkDown();
  EXPECT_EQ(Publish("topic", {}), ZEL_E_DISCONNECTED);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
}

TEST_F(BoundedPublishTest, RestoresTheLink) {
  TakeLinkDown();
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(Publish("topic", {}), 0);
  EXPECT_TRUE(server.Accept().ReadRequest().whole);
}

TEST_F(BoundedPublishTest, HalfWrittenIs4104InTime) {
  const ElapsedTime time;
  EXPECT_EQ(Publish("topic", Huge(), kShortMs), ZEL_E_TIMEOUT);
  EXPECT_GE(time.Ms(), kShortMs - 1);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(BoundedPublishTest, HalfWrittenDropsTheLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  EXPECT_EQ(Publish("topic", Huge(), kShortMs), ZEL_E_TIMEOUT);
  EXPECT_TRUE(peer.AwaitEnd());
  EXPECT_EQ(Publish("topic", {}), ZEL_E_DISCONNECTED);
}

TEST_F(BoundedPublishTest, LostLinkIs5) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  const OngoingCall call([&] { return Publish("topic", Huge(), 60000); });
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  peer.Reset();
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, ZEL_E_DISCONNECTED);
}

TEST_F(BoundedPublishTest, LeavesTheLastIdentifierOfTheOldCalls) {
  EXPECT_EQ(link.instance.Send(600, {}), 29);
  const Request old = peer.ReadRequest();
  EXPECT_EQ(Publish("topic", {}), 0);
  EXPECT_EQ(PublishMany({MessageOn("topic", {})}), 0);
  EXPECT_TRUE(peer.Send(Answer(600, old.invokeId, Text("old"))));
  Bytes buffer(64);
  EXPECT_EQ(link.instance.Receive(buffer), 3);
}

// ---- publishMany ------------------------------------------------------------------------------------------

TEST_F(BoundedPublishTest, ManyArriveInOrder) {
  constexpr size_t kMessages = 3000;
  std::vector<Bytes> data;
  for (size_t i = 0; i < kMessages; ++i) data.push_back(Le(i, 4) + Bytes(i % 200, 'x'));
  std::vector<libzelx_Message> messages;
  for (size_t i = 0; i < kMessages; ++i) messages.push_back(MessageOn("topic", data[i], 5, 6));
  const OngoingCall call([&] { return PublishMany(messages); });
  for (size_t i = 0; i < kMessages; ++i) {
    ASSERT_EQ(peer.ReadRequest().payload, Record("pub", "topic", data[i], 5, 6)) << i;
  }
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, 0);
  EXPECT_EQ(sent, kMessages);
}

TEST_F(BoundedPublishTest, ManyHaveTheFramesOfSingleOnes) {
  EXPECT_EQ(PublishMany({MessageOn("topic", Text("data"), 3, 4)}), 0);
  EXPECT_EQ(Publish("topic", Text("data")), 0);
  const Request many = peer.ReadRequest();
  const Request single = peer.ReadRequest();
  EXPECT_EQ(many.payload, single.payload);
  EXPECT_EQ(many.port, 103);
  EXPECT_EQ(many.command, 9);
  EXPECT_EQ(many.idGroup, 3U);
  EXPECT_EQ(many.idOffset, 4U);
  EXPECT_EQ(many.invokeId + 1, single.invokeId);
}

TEST_F(BoundedPublishTest, ManyMayHaveTopicsOfTheirOwn) {
  EXPECT_EQ(PublishMany({MessageOn("a", {}), MessageOn("b", {})}), 0);
  EXPECT_EQ(ReadRecord(peer.ReadRequest().payload).topic, "a");
  EXPECT_EQ(ReadRecord(peer.ReadRequest().payload).topic, "b");
}

TEST_F(BoundedPublishTest, ManyMayBeLargerThanAWrite) {
  const Bytes small(1000, 's'), large(1000000, 'l');
  const OngoingCall call([&] {
    return PublishMany({MessageOn("t", small), MessageOn("t", large), MessageOn("t", small)});
  });
  for (const Bytes* data : {&small, &large, &small}) {
    EXPECT_EQ(peer.ReadRequest().payload, Record("pub", "t", *data));
  }
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(sent, 3U);
}

TEST_F(BoundedPublishTest, NoneIsDone) {
  EXPECT_EQ(libzelx_publishMany(instance, nullptr, 0, kAskPatienceMs, &sent), 0);
  EXPECT_EQ(sent, 0U);
}

TEST_F(BoundedPublishTest, NoPlaceForTheCountIsNeeded) {
  const libzelx_Message message = MessageOn("topic", {});
  EXPECT_EQ(libzelx_publishMany(instance, &message, 1, kAskPatienceMs, nullptr), 0);
}

TEST_F(BoundedPublishTest, RefusesNoMessagesWithACount) {
  EXPECT_EQ(libzelx_publishMany(instance, nullptr, 1, kAskPatienceMs, &sent), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
  EXPECT_EQ(sent, 0U);
}

TEST_F(BoundedPublishTest, RefusesManyOnAnInstanceThatIsNotLive) {
  const libzelx_Message message = MessageOn("topic", {});
  EXPECT_EQ(libzelx_publishMany(1, &message, 1, kAskPatienceMs, &sent), ZEL_E_HANDLE);
  EXPECT_EQ(sent, 0U);
}

// Spoils the second of two messages.
struct Spoiling {
  const char* name;
  void (*spoil)(libzelx_Message& message);
  int32_t result;
};

std::ostream& operator<<(std::ostream& out, const Spoiling& row) { return out << row.name; }

const Bytes& TooLong() {
  static const Bytes data(10485760, 'x');
  return data;
}

constexpr Spoiling kSpoilings[] = {
    {"NoTopic", [](libzelx_Message& message) { message.topic = nullptr; }, ZEL_E_PARAM},
    {"NullDataWithALength",
     [](libzelx_Message& message) {
       message.data = nullptr;
       message.length = 1;
     },
     ZEL_E_PARAM},
    {"SmallerSize", [](libzelx_Message& message) { message.size -= 8; }, ZEL_E_PARAM},
    {"OtherSize", [](libzelx_Message& message) { message.size += 8; }, ZEL_E_PARAM},
    {"HugeSize", [](libzelx_Message& message) { message.size = SIZE_MAX; }, ZEL_E_PARAM},
    {"Reserved", [](libzelx_Message& message) { message.reserved = 1; }, ZEL_E_PARAM},
    {"TooLong",
     [](libzelx_Message& message) {
       message.data = TooLong().data();
       message.length = static_cast<uint32_t>(TooLong().size());
     },
     LIBZELX_E_TOO_LONG},
};

class SpoiledMessagesTest : public BoundedPublishTest, public testing::WithParamInterface<Spoiling> {};

TEST_P(SpoiledMessagesTest, AreRefusedUnsent) {
  // With a third behind, so that a size that is too large reads nothing foreign.
  std::vector<libzelx_Message> messages(3, MessageOn("topic", {}));
  GetParam().spoil(messages[1]);
  EXPECT_EQ(libzelx_publishMany(instance, messages.data(), 2, kAskPatienceMs, &sent), GetParam().result);
  EXPECT_EQ(libzel_get_errno(), GetParam().result);
  EXPECT_EQ(sent, 0U);
  EXPECT_FALSE(peer.HasInput(20));
}

INSTANTIATE_TEST_SUITE_P(All, SpoiledMessagesTest, testing::ValuesIn(kSpoilings),
                         [](const auto& row) { return std::string(row.param.name); });

// A step that no array has: what stands there is not aligned.
TEST_F(BoundedPublishTest, RefusesASizeThatIsNoStep) {
  std::vector<libzelx_Message> messages(3, MessageOn("topic", {}));
  messages[0].size = sizeof(libzelx_Message) + 1;
  EXPECT_EQ(libzelx_publishMany(instance, messages.data(), 2, kAskPatienceMs, &sent), ZEL_E_PARAM);
}

TEST_F(BoundedPublishTest, TakesLargerMessagesByTheirStep) {
  struct Later {
    libzelx_Message message;
    uint64_t unknown = 0;
  };
  std::vector<Later> later(2);
  for (size_t i = 0; i < 2; ++i) {
    later[i].message = MessageOn(i == 0 ? "a" : "b", {});
    later[i].message.size = sizeof(Later);
  }
  EXPECT_EQ(libzelx_publishMany(instance, &later[0].message, 2, kAskPatienceMs, &sent), 0);
  EXPECT_EQ(ReadRecord(peer.ReadRequest().payload).topic, "a");
  EXPECT_EQ(ReadRecord(peer.ReadRequest().payload).topic, "b");
}

TEST_F(BoundedPublishTest, ManyOnADownLinkAre5) {
  TakeLinkDown();
  EXPECT_EQ(PublishMany({MessageOn("topic", {})}), ZEL_E_DISCONNECTED);
  EXPECT_EQ(sent, 0U);
}

TEST_F(BoundedPublishTest, ManyThatNobodyReadsAre4104InTime) {
  const Bytes data(1000, 'x');
  const ElapsedTime time;
  EXPECT_EQ(PublishMany(std::vector<libzelx_Message>(20000, MessageOn("topic", data)), kShortMs),
            ZEL_E_TIMEOUT);
  EXPECT_LT(time.AwakeMs(), 5000);
  EXPECT_LT(sent, 20000U);
}

// Whatever is told to be sent has left whole, whether or not the link had to be dropped in the middle of one.
TEST_F(BoundedPublishTest, CountsTheOnesThatLeftWhole) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
  const Bytes data(1000, 'x');
  EXPECT_EQ(PublishMany(std::vector<libzelx_Message>(20000, MessageOn("topic", data)), 500), ZEL_E_TIMEOUT);
  ASSERT_GT(sent, 0U);
  EXPECT_EQ(StatsOf(instance).framesOut, sent);
}

TEST_F(BoundedPublishTest, ManyAreCutByALostLink) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  const Bytes data(1000, 'x');
  const std::vector<libzelx_Message> messages(20000, MessageOn("topic", data));
  const OngoingCall call([&] { return PublishMany(messages, 60000); });
  EXPECT_TRUE(peer.HasInput(kPatienceMs));
  peer.Reset();
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, ZEL_E_DISCONNECTED);
}

TEST_F(BoundedPublishTest, CallbacksMayPublish) {
  struct Publisher {
    static void OnTopic(uint32_t, uint32_t, const char*, const uint8_t*, uint32_t, void* user) {
      auto* const self = static_cast<Publisher*>(user);
      const libzelx_Message message = MessageOn("many", {});
      self->results.Add(libzelx_publish(self->instance, 0, 0, "single", nullptr, 0, kAskPatienceMs));
      self->results.Add(libzelx_publishMany(self->instance, &message, 1, kAskPatienceMs, nullptr));
    }
    ZelInstance instance;
    Recorder<int32_t> results;
  } publisher{instance, {}};
  EXPECT_EQ(libzel_subscribe(instance, "topic", Publisher::OnTopic, &publisher), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  EXPECT_TRUE(peer.Send(TopicMessage("topic", {})));
  ASSERT_TRUE(publisher.results.Await(2));
  EXPECT_EQ(publisher.results.All(), (std::vector<int32_t>{0, 0}));
  link.instance.Release();
}

TEST_F(BoundedPublishTest, MessagesOfManyThreadsArriveWhole) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 50;
  std::vector<std::thread> publishers;
  for (int i = 0; i < kThreads; ++i) {
    publishers.emplace_back([&] {
      const Bytes data(3000, 'x');
      const std::vector<libzelx_Message> messages(20, MessageOn("topic", data));
      for (int k = 0; k < kCalls; ++k) {
        EXPECT_EQ(libzelx_publishMany(instance, messages.data(), messages.size(), 60000, nullptr), 0);
      }
    });
  }
  const Bytes expected = Record("pub", "topic", Bytes(3000, 'x'));
  for (int i = 0; i < kThreads * kCalls * 20; ++i) ASSERT_EQ(peer.ReadRequest().payload, expected) << i;
  for (std::thread& publisher : publishers) publisher.join();
}

// ---- flush ------------------------------------------------------------------------------------------------

TEST_F(BoundedPublishTest, FlushRefusesAnInstanceThatIsNotLive) {
  EXPECT_EQ(libzelx_flush(1, kAskPatienceMs), ZEL_E_HANDLE);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(BoundedPublishTest, FlushOfADownLinkIs5) {
  TakeLinkDown();
  EXPECT_EQ(libzelx_flush(instance, kAskPatienceMs), ZEL_E_DISCONNECTED);
}

#ifdef _WIN32
TEST_F(BoundedPublishTest, FlushIs4107WhereTheSystemCannotTell) {
  EXPECT_EQ(libzelx_flush(instance, kAskPatienceMs), ZEL_E_PROTOCOL);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PROTOCOL);
}
#else
TEST_F(BoundedPublishTest, FlushGives0WhenAllIsAcknowledged) {
  EXPECT_EQ(Publish("topic", Text("x")), 0);
  EXPECT_EQ(libzelx_flush(instance, kAskPatienceMs), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(BoundedPublishTest, FlushOfNothingIsDone) { EXPECT_EQ(libzelx_flush(instance, 0), 0); }

// More than the peer's system holds, and less than ours.
class UnreadTest : public BoundedPublishTest {
 protected:
  UnreadTest() {
    narrow.LimitReceiveBuffer(4096);
    link.emplace(narrow);
    EXPECT_EQ(libzel_reconnect_delay_set(link->instance, 3600), 0);
    const Bytes data(40000, 'x');
    EXPECT_EQ(libzelx_publish(link->instance, 0, 0, "topic", data.data(), 40000, 0), 0);
    instance = link->instance;
  }

  ScriptedServer narrow;
  std::optional<Link> link;
};

TEST_F(UnreadTest, FlushIs4104) {
  const ElapsedTime time;
  EXPECT_EQ(libzelx_flush(instance, kShortMs), ZEL_E_TIMEOUT);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  EXPECT_GE(time.Ms(), kShortMs - 1);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(UnreadTest, FlushOf0LooksOnce) { EXPECT_EQ(libzelx_flush(instance, 0), ZEL_E_TIMEOUT); }

TEST_F(UnreadTest, FlushEndsWhenThePeerReads) {
  const OngoingCall flush([&] { return libzelx_flush(instance, 60000); });
  EXPECT_FALSE(flush.Await(20));
  std::thread reading([&] { (void)link->peer.AwaitEnd(); });
  EXPECT_TRUE(flush.Await());
  EXPECT_EQ(flush.end().result, 0);
  link->instance.Release();
  reading.join();
}

// Nobody reads the stream, so nobody else would notice.
TEST_F(UnreadTest, FlushEndsWith5WhenTheLinkIsLost) {
  const OngoingCall flush([&] { return libzelx_flush(instance, 60000); });
  link->peer.Reset();
  EXPECT_TRUE(flush.Await());
  EXPECT_EQ(flush.end().result, ZEL_E_DISCONNECTED);
}

// The new link has nothing to acknowledge, but that is not what was written.
TEST_F(UnreadTest, FlushEndsWith5WhenTheLinkIsReplaced) {
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  const OngoingCall flush([&] { return libzelx_flush(instance, 60000); });
  EXPECT_FALSE(flush.Await(20));
  link->peer.Reset();
  EXPECT_TRUE(flush.Await());
  EXPECT_EQ(flush.end().result, ZEL_E_DISCONNECTED);
}

TEST_F(UnreadTest, ReleaseEndsAFlush) {
  const OngoingCall flush([&] { return libzelx_flush(instance, 60000); });
  EXPECT_FALSE(flush.Await(20));
  link->instance.Release();
  EXPECT_TRUE(flush.Await());
  EXPECT_EQ(flush.end().result, ZEL_E_DISCONNECTED);
}
#endif

}  // namespace
}  // namespace zeltest
