// Servers that send what they should not: the process lives, its memory stays bounded, and the next
// connection works.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Memory.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/Wire.h"

namespace zeltest {
namespace {

constexpr int64_t kMostGrowth = 96 << 20;

struct Sequence {
  const char* name;
  std::vector<Bytes> parts;  // each goes out by itself
};

Bytes RecordWithLengths(uint64_t verb, uint64_t topic, uint64_t data) {
  return Answer(103, 0,
                Le(verb, 8) + Le(topic, 8) + Le(data, 8) + Text("pub") + Bytes{0} + Text("topic") + Bytes{0} +
                    Text("data") + Bytes{0} + Bytes(8));
}

std::vector<Bytes> SplitAtEveryByte(const Bytes& message) {
  std::vector<Bytes> parts;
  for (const uint8_t byte : message) parts.push_back({byte});
  return parts;
}

Bytes Garbage(size_t size) {
  Bytes bytes(size);
  uint32_t state = 12345;
  for (uint8_t& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

std::vector<Sequence> Sequences() {
  constexpr uint64_t kMost = UINT64_MAX;
  const Bytes record = Record("pub", "topic", Text("data"), 1, 2);
  std::vector<Sequence> rows = {
      {"nothing", {}},
      {"one byte", {{0}}},
      {"garbage", {Garbage(100000)}},
      {"text", {Text("GET / HTTP/1.1\r\nHost: device\r\n\r\n")}},
      {"all ones", {Bytes(65536, 0xFF)}},
      {"zeros", {Bytes(65536)}},
      {"message split at every byte", SplitAtEveryByte(TopicMessage("topic", Text("data")))},
      {"length 0", {OuterHeader(1, 600, 0)}},
      {"length 0 on the topic port", {OuterHeader(1, 103, 0)}},
      {"length one too long", {OuterHeader(1, 600, 10485760)}},
      {"length 2 GiB", {OuterHeader(1, 600, 0x80000000)}},
      {"length 4 GiB", {OuterHeader(1, 600, 0xFFFFFFFF)}},
      {"longest body that never comes", {OuterHeader(1, 600, 10485759)}},
      {"longest body cut short", {OuterHeader(0, 600, 10485759) + Bytes(300000)}},
      {"empty topic record", {Message(1, 103, InnerHeader(0, 0))}},
      {"bare empty topic record", {Message(0, 103, {0})}},
      {"verb beyond the message", {RecordWithLengths(1000, 5, 4)}},
      {"topic beyond the message", {RecordWithLengths(3, 1000, 4)}},
      {"data beyond the message", {RecordWithLengths(3, 5, 1000)}},
      {"data one beyond the message", {RecordWithLengths(3, 5, 13)}},
      {"verb near 2^64", {RecordWithLengths(kMost, 5, 4)}},
      {"verb at 2^64 - 24", {RecordWithLengths(kMost - 23, 5, 4)}},
      {"topic near 2^64", {RecordWithLengths(3, kMost, 4)}},
      {"topic that wraps to its start", {RecordWithLengths(3, kMost - 3, 4)}},
      {"data near 2^64", {RecordWithLengths(3, 5, kMost)}},
      {"data that wraps to its start", {RecordWithLengths(3, 5, kMost - 9)}},
      {"all lengths near 2^64", {RecordWithLengths(kMost, kMost, kMost)}},
      {"lengths of 2^63", {RecordWithLengths(uint64_t{1} << 63, uint64_t{1} << 63, uint64_t{1} << 63)}},
      {"lengths of 4 GiB", {RecordWithLengths(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF)}},
      {"body of 12 bytes", {Message(1, 600, Bytes(12)), Message(1, 103, Bytes(12))}},
      {"body of 13 bytes", {Message(1, 600, Bytes(13)), Message(1, 103, Bytes(13))}},
      {"bare message", {Message(0, 600, Text("x"))}},
      {"version 2", {Message(2, 600, Text("x")), Message(2, 103, record)}},
      {"version 7", {Message(7, 600, Text("x")), Message(7, 103, record)}},
      {"topic name of 100000 bytes", {TopicMessage(std::string(100000, 't'), Text("x"))}},
      {"topic with a format", {TopicMessage("%s%s%n%d", Text("x"))}},
      {"unknown ports", {Message(1, 0, Bytes(13)), Message(1, 65535, Bytes(13))}},
      {"unasked answers", {Answer(600, 1, Text("x")), Answer(600, 0xFFFFFFFF, {})}},
  };
  for (const size_t cut : {size_t{1}, size_t{7}, size_t{8}, size_t{9}, size_t{15}, size_t{16}, size_t{17},
                           size_t{23}, size_t{24}, size_t{27}, size_t{28}, size_t{33}, size_t{34}, size_t{38},
                           size_t{39}, size_t{40}, size_t{43}, size_t{46}}) {
    rows.push_back({"topic record cut short",
                    {Answer(103, 0, Bytes(record.begin(), record.begin() + static_cast<ptrdiff_t>(cut)))}});
  }
  return rows;
}

class HostileServerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // Whether a fresh connection of the instance delivers a message and carries a request.
  static void ExpectNextConnectionWorks(ScriptedServer& server, Link& link, MessageRecorder& seen) {
    link.peer.Close();
    EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 0), 0);
    Peer next = server.Accept();
    ASSERT_TRUE(link.instance.events.AwaitEvent(ZEL_EVENT_CONNECTED, 2));
    const size_t before = seen.Count();
    ASSERT_TRUE(next.ReadRequest().whole);  // the subscription
    EXPECT_TRUE(next.Send(Message(0, 700, Text("well"))));
    EXPECT_TRUE(seen.Await(before + 1));
    EXPECT_EQ(link.instance.Send(600, Text("well")), 33);
    EXPECT_EQ(next.ReadRequest().payload, Text("well"));
  }
};

TEST_F(HostileServerTest, ReceiveThreadSurvivesEverySequence) {
  const CapturedLog log;
  const int64_t before = PeakResidentBytes();
  for (const Sequence& sequence : Sequences()) {
    SCOPED_TRACE(sequence.name);
    ScriptedServer server;
    MessageRecorder seen;
    TopicRecorder topics;
    Link link(server);
    EXPECT_EQ(libzel__registerRouterEvent(link.instance, 700, MessageRecorder::Callback, &seen), 0);
    EXPECT_EQ(libzel_subscribe(link.instance, "topic", TopicRecorder::Callback, &topics), 0);
    EXPECT_TRUE(link.peer.ReadRequest().whole);
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
    for (const Bytes& part : sequence.parts) (void)link.peer.Send(part);
    ExpectNextConnectionWorks(server, link, seen);
    link.instance.Release();
  }
  EXPECT_LT(PeakResidentBytes() - before, kMostGrowth);
}

TEST_F(HostileServerTest, SynchronousReceiveSurvivesEverySequence) {
  const CapturedLog log;
  const int64_t before = PeakResidentBytes();
  for (const Sequence& sequence : Sequences()) {
    SCOPED_TRACE(sequence.name);
    ScriptedServer server;
    Link link(server);
    Bytes buffer(64);
    for (const Bytes& part : sequence.parts) (void)link.peer.Send(part);
    for (int i = 0; i < 3; ++i) (void)link.instance.Receive(buffer, 20);
    link.peer.Close();
    EXPECT_EQ(libzel_reconnect_delay_set(link.instance, 3600), 0);
    // 64 KiB are at most 8192 headers.
    int calls = 0;
    do {
      (void)link.instance.Receive(buffer, 20);
    } while (libzel_get_errno() != ZEL_E_DISCONNECTED && ++calls < 10000);
    EXPECT_LT(calls, 10000);
    EXPECT_TRUE(libzel_reconnect(link.instance, 1000));
    Peer next = server.Accept();
    EXPECT_GT(link.instance.Send(600, Text("ask")), 0);
    EXPECT_TRUE(next.Serve(Text("well")).whole);
    EXPECT_EQ(link.instance.Receive(buffer), 4);
  }
  EXPECT_LT(PeakResidentBytes() - before, kMostGrowth);
}

TEST_F(HostileServerTest, RecordLongerThanItsMessageIsLoggedOnceAndDropped) {
  ScriptedServer server;
  TopicRecorder topics;
  Link link(server);
  EXPECT_EQ(libzel_subscribe(link.instance, "topic", TopicRecorder::Callback, &topics), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  const CapturedLog log;
  EXPECT_TRUE(link.peer.Send(RecordWithLengths(3, 5, UINT64_MAX) + TopicMessage("topic", Text("next"))));
  ASSERT_TRUE(topics.Await(1));
  EXPECT_EQ(topics.All()[0].data, Text("next"));
  int errors = 0;
  for (const LogLine& line : log.Lines()) errors += line.level == "ERROR" ? 1 : 0;
  EXPECT_EQ(errors, 1);
  link.instance.Release();
}

TEST_F(HostileServerTest, AnnouncedGigabytesCostNoMemory) {
  ScriptedServer server;
  Link link(server);
  Bytes buffer(64);
  const int64_t before = PeakResidentBytes();
  EXPECT_TRUE(link.peer.Send(OuterHeader(1, 600, 0xFFFFFFFF) + Bytes(1000)));
  EXPECT_EQ(link.instance.Receive(buffer, 300), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
  EXPECT_LT(PeakResidentBytes() - before, int64_t{16} << 20);
}

TEST_F(HostileServerTest, ServerThatNeverAnswersDoesNotHoldUpARelease) {
  ScriptedServer server;
  Link link(server);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_TRUE(link.peer.Send({0}));
  const ElapsedTime time;
  link.instance.Release();
  EXPECT_LT(time.AwakeMs(), 3000);
}

}  // namespace
}  // namespace zeltest
