// Publishing, subscribing and the delivery of topics.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/Wire.h"

namespace zeltest {
namespace {

class TopicTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  ~TopicTest() override { link.instance.Release(); }

  void Subscribe(const char* topic) {
    EXPECT_EQ(libzel_subscribe(instance, topic, TopicRecorder::Callback, &seen), 0);
    EXPECT_TRUE(peer.ReadRequest().whole);
  }
  void Run() { EXPECT_EQ(libzel_loop_start(instance), 0); }
  std::string NextRecord() {
    const Request request = peer.ReadRequest();
    if (!request.whole) return "";
    const RecordText record = ReadRecord(request.payload);
    return record.verb + " " + record.topic;
  }

  ScriptedServer server;
  TopicRecorder seen;
  Link link{server};
  ZelInstance instance = link.instance;
  Peer& peer = link.peer;
};

// ---- What is sent -----------------------------------------------------------------------------------------

TEST_F(TopicTest, PublishIs71BytesForOneLetterAndThreeBytes) {
  const Bytes data{7, 0, 9};
  EXPECT_EQ(libzel_publish(instance, 1, 2, "a", data.data(), 3), 0);
  const Bytes expected = OuterHeader(1, 103, 63) + InnerHeader(0, 1) + Bytes{0, 0, 0, 1, 0, 0, 0, 2} +
                         Le(3, 8) + Le(1, 8) + Le(3, 8) + Text("pub") + Bytes{0} + Text("a") + Bytes{0} +
                         data + Bytes{0} + Bytes{1, 0, 0, 0, 2, 0, 0, 0};
  ASSERT_EQ(expected.size(), 71U);
  EXPECT_EQ(peer.Read(71), expected);
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(TopicTest, PublishOfNothingCarriesOneNul) {
  EXPECT_EQ(libzel_publish(instance, 0, 0, "a", nullptr, 0), 0);
  EXPECT_EQ(peer.ReadRequest().payload, Record("pub", "a", {}));
}

TEST_F(TopicTest, PublishOfALongTopicAndMuchDataArrivesWhole) {
  const std::string topic(3000, 't');
  const Bytes data(200000, 5);
  std::thread reader([&] { EXPECT_EQ(peer.ReadRequest().payload, Record("pub", topic, data, 3, 4)); });
  EXPECT_EQ(libzel_publish(instance, 3, 4, topic.c_str(), data.data(), 200000), 0);
  reader.join();
}

TEST_F(TopicTest, PublishOfMoreThanAFrameHoldsGives0AndSendsNothing) {
  const Bytes data(10485760);
  EXPECT_EQ(libzel_publish(instance, 0, 0, "a", data.data(), 10485760), 0);
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(TopicTest, SubscribeSendsItsRecord) {
  EXPECT_EQ(libzel_subscribe(instance, "weather", TopicRecorder::Callback, &seen), 0);
  const Request request = peer.ReadRequest();
  EXPECT_EQ(request.port, 103);
  EXPECT_EQ(request.idGroup, 0U);
  EXPECT_EQ(request.idOffset, 0U);
  EXPECT_EQ(request.payload, Record("sub", "weather", {}));
}

TEST_F(TopicTest, UnsubscribeSendsItsRecord) {
  Subscribe("weather");
  EXPECT_EQ(libzel_unsubscribe(instance, "weather"), 0);
  EXPECT_EQ(peer.ReadRequest().payload, Record("unsub", "weather", {}));
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(TopicTest, UnsubscribeOfAnUnknownTopicFailsWith4106AndSendsNothing) {
  const CapturedLog log;
  EXPECT_EQ(libzel_unsubscribe(instance, "weather"), ZEL_E_TOPIC);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TOPIC);
  EXPECT_TRUE(log.Has("ERROR", "topic:weather no subscribe"));
  EXPECT_FALSE(peer.HasInput(20));
}

TEST_F(TopicTest, UnsubscribeTwiceFailsWith4106) {
  Subscribe("weather");
  EXPECT_EQ(libzel_unsubscribe(instance, "weather"), 0);
  EXPECT_EQ(libzel_unsubscribe(instance, "weather"), ZEL_E_TOPIC);
}

TEST_F(TopicTest, TopicCallsUseTheInvokeIdentifiersOfRequests) {
  Subscribe("a");
  EXPECT_EQ(libzel_publish(instance, 0, 0, "a", nullptr, 0), 0);
  EXPECT_EQ(peer.ReadRequest().invokeId, 2U);
}

// ---- On a link that is down -------------------------------------------------------------------------------

TEST_F(TopicTest, PublishOnADownLinkGives5) {
  const Instance down(DeviceWithoutServer());
  EXPECT_EQ(libzel_publish(down, 0, 0, "a", nullptr, 0), ZEL_E_DISCONNECTED);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
}

TEST_F(TopicTest, SubscriptionStaysWhenItsSendFails) {
  server.StopListening();
  const Instance other(server.device());
  EXPECT_EQ(libzel_subscribe(other, "late", TopicRecorder::Callback, &seen), ZEL_E_DISCONNECTED);
  server.Listen();
  EXPECT_TRUE(libzel_reconnect(other, 1000));
  Peer later = server.Accept();
  EXPECT_EQ(later.ReadRequest().payload, Record("sub", "late", {}));
}

TEST_F(TopicTest, SubscriptionIsGoneWhenTheSendOfItsEndFails) {
  server.StopListening();
  const Instance other(server.device());
  EXPECT_EQ(libzel_subscribe(other, "late", TopicRecorder::Callback, &seen), ZEL_E_DISCONNECTED);
  EXPECT_EQ(libzel_unsubscribe(other, "late"), ZEL_E_DISCONNECTED);
  EXPECT_EQ(libzel_unsubscribe(other, "late"), ZEL_E_TOPIC);
}

// ---- Delivery ---------------------------------------------------------------------------------------------

TEST_F(TopicTest, DeliversEveryPartOfAPublication) {
  Subscribe("weather");
  Run();
  EXPECT_TRUE(peer.Send(TopicMessage("weather", Text("rain"), 0x01020304, 0x05060708)));
  ASSERT_TRUE(seen.Await(1));
  const SeenTopic message = seen.All()[0];
  EXPECT_EQ(message.idGroup, 0x01020304U);
  EXPECT_EQ(message.idOffset, 0x05060708U);
  EXPECT_EQ(message.topic, "weather");
  EXPECT_EQ(message.data, Text("rain"));
  EXPECT_TRUE(message.endsWithNul);
  EXPECT_NE(message.thread, std::this_thread::get_id());
}

TEST_F(TopicTest, DeliversDataWithNuls) {
  Subscribe("weather");
  Run();
  EXPECT_TRUE(peer.Send(TopicMessage("weather", {0, 1, 0, 0})));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].data, (Bytes{0, 1, 0, 0}));
}

TEST_F(TopicTest, DeliversAPublicationWithoutData) {
  Subscribe("weather");
  Run();
  EXPECT_TRUE(peer.Send(TopicMessage("weather", {})));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_TRUE(seen.All()[0].data.empty());
  EXPECT_TRUE(seen.All()[0].endsWithNul);
}

TEST_F(TopicTest, DeliversABareTopicMessage) {
  Subscribe("weather");
  Run();
  EXPECT_TRUE(peer.Send(Message(0, 103, Record("pub", "weather", Text("rain")))));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(TopicTest, DeliversWhateverTheVerb) {
  Subscribe("weather");
  Run();
  EXPECT_TRUE(peer.Send(Answer(103, 0, Record("whatever", "weather", Text("rain")))));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(TopicTest, DeliversInTheOrderOfArrival) {
  Subscribe("count");
  Run();
  Bytes burst;
  for (uint8_t i = 0; i < 200; ++i) burst = burst + TopicMessage("count", {i});
  EXPECT_TRUE(peer.Send(burst));
  ASSERT_TRUE(seen.Await(200));
  const auto all = seen.All();
  for (uint8_t i = 0; i < 200; ++i) EXPECT_EQ(all[i].data, Bytes{i});
}

TEST_F(TopicTest, UnknownTopicIsLoggedAndDropped) {
  Subscribe("weather");
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(TopicMessage("Weather", Text("rain")) + TopicMessage("weather", Text("sun"))));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].data, Text("sun"));
  EXPECT_EQ(log.Count("ERROR", "unknow topic:Weather"), 1);
}

TEST_F(TopicTest, EndedSubscriptionIsNoLongerDelivered) {
  Subscribe("weather");
  EXPECT_EQ(libzel_unsubscribe(instance, "weather"), 0);
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(TopicMessage("weather", Text("rain"))));
  EXPECT_TRUE(log.Await("ERROR", "unknow topic:weather"));
  EXPECT_EQ(seen.Count(), 0U);
}

TEST_F(TopicTest, SubscribingAgainReplacesTheCallback) {
  TopicRecorder second;
  Subscribe("weather");
  EXPECT_EQ(libzel_subscribe(instance, "weather", TopicRecorder::Callback, &second), 0);
  Run();
  EXPECT_TRUE(peer.Send(TopicMessage("weather", Text("rain"))));
  EXPECT_TRUE(second.Await(1));
  EXPECT_EQ(seen.Count(), 0U);
  link.instance.Release();
}

TEST_F(TopicTest, RecordThatEndsBehindItsTopicIsDeliveredEmpty) {
  Subscribe("weather");
  Run();
  const Bytes record = Le(3, 8) + Le(7, 8) + Le(0, 8) + Text("pub") + Bytes{0} + Text("weather") + Bytes{0};
  EXPECT_TRUE(peer.Send(Answer(103, 0, record)));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_TRUE(seen.All()[0].data.empty());
  EXPECT_TRUE(seen.All()[0].endsWithNul);
  EXPECT_EQ(seen.All()[0].idGroup, 0U);
}

TEST_F(TopicTest, DataIsFollowedByANulWhateverTheServerSent) {
  Subscribe("weather");
  Run();
  Bytes record = Record("pub", "weather", Text("rain"));
  record[record.size() - 9] = 'X';
  EXPECT_TRUE(peer.Send(Answer(103, 0, record)));
  ASSERT_TRUE(seen.Await(1));
  EXPECT_EQ(seen.All()[0].data, Text("rain"));
  EXPECT_TRUE(seen.All()[0].endsWithNul);
}

TEST_F(TopicTest, NullCallbackIsSkipped) {
  EXPECT_EQ(libzel_subscribe(instance, "mute", nullptr, nullptr), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  Subscribe("weather");
  Run();
  EXPECT_TRUE(peer.Send(TopicMessage("mute", Text("x")) + TopicMessage("weather", Text("rain"))));
  EXPECT_TRUE(seen.Await(1));
}

TEST_F(TopicTest, CallbackMayPublish) {
  const auto callback = [](uint32_t, uint32_t, const char*, const uint8_t* data, uint32_t length,
                           void* user) {
    EXPECT_EQ(libzel_publish(*static_cast<ZelInstance*>(user), 0, 0, "echo", data, length), 0);
  };
  EXPECT_EQ(libzel_subscribe(instance, "weather", callback, &instance), 0);
  EXPECT_TRUE(peer.ReadRequest().whole);
  Run();
  EXPECT_TRUE(peer.Send(TopicMessage("weather", Text("rain"))));
  EXPECT_EQ(peer.ReadRequest().payload, Record("pub", "echo", Text("rain")));
}

TEST_F(TopicTest, CallbackMayEndItsOwnSubscription) {
  struct State {
    ZelInstance instance;
    std::atomic<int> calls{0};
  } state{instance};
  const auto callback = [](uint32_t, uint32_t, const char* topic, const uint8_t*, uint32_t, void* user) {
    auto& mine = *static_cast<State*>(user);
    ++mine.calls;
    EXPECT_EQ(libzel_unsubscribe(mine.instance, topic), 0);
  };
  EXPECT_EQ(libzel_subscribe(instance, "once", callback, &state), 0);
  EXPECT_EQ(NextRecord(), "sub once");
  Run();
  const CapturedLog log;
  EXPECT_TRUE(peer.Send(TopicMessage("once", {}) + TopicMessage("once", {})));
  EXPECT_EQ(NextRecord(), "unsub once");
  EXPECT_TRUE(log.Await("ERROR", "unknow topic:once"));
  EXPECT_EQ(state.calls, 1);
  link.instance.Release();
}

}  // namespace
}  // namespace zeltest
