#include <gtest/gtest.h>

#include "Devices.h"
#include "Subscriber.h"
#include "ZelProcess.h"

namespace {

// Publishes until the subscriber has what it waits for, as a subscription shows by nothing else when it is
// there.
ZelResult ReceiveFrom(const std::vector<std::string>& sub, const std::vector<std::string>& pub,
                      const std::string& input = "") {
  ZelProcess subscriber(sub);
  std::vector<std::string> arguments = {"pub", kDevice};
  arguments.insert(arguments.end(), pub.begin(), pub.end());
  for (int i = 0; i < 50 && subscriber.Output().empty(); ++i) {
    const ZelResult result = RunZel(arguments, input);
    EXPECT_EQ(result.status, 0) << result.errors;
    if (result.status != 0) break;
  }
  const int status = subscriber.Wait();
  return {status, subscriber.Output(), subscriber.Errors()};
}

}  // namespace

TEST(TopicTest, ShowsTopicAndText) {
  const ZelResult result = ReceiveFrom({"sub", kDevice, "a/b", "-c", "1"}, {"a/b", "21.5"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "a/b  21.5\n");
}

TEST(TopicTest, ShowsBytesInHexadecimal) {
  EXPECT_EQ(ReceiveFrom({"sub", kAddress, "bytes", "-c", "1"}, {"bytes", "--hex", "00ff"}).output,
            "bytes  [2 bytes] 00 ff\n");
}

TEST(TopicTest, EscapeSequencesDoNotReachTheTerminal) {
  EXPECT_EQ(ReceiveFrom({"sub", kDevice, "esc", "-c", "1", "--format", "%s\\n"}, {"esc", "--hex", "1b5b324a"})
                .output,
            "\\x1b[2J\n");
}

TEST(TopicTest, WritesObjects) {
  const ZelResult result = ReceiveFrom({"sub", kDevice, "json", "-c", "1", "--json"},
                                       {"json", "x", "--group", "0x10", "--offset", "3"});
  EXPECT_TRUE(
      Contains(result.output, "\"topic\":\"json\",\"group\":16,\"offset\":3,\"length\":1,\"text\":\"x\"}\n"))
      << result.output;
}

TEST(TopicTest, FormatsAsTheUserWants) {
  const ZelResult result = ReceiveFrom({"sub", kDevice, "f", "-c", "1", "-F", "%t|%d|%x|%l|%g|%o|100%%\\n"},
                                       {"f", "ab", "-g", "1", "-o", "2"});
  EXPECT_EQ(result.output, "f|ab|61 62|2|1|2|100%\n");
}

TEST(TopicTest, HearsSeveralTopics) {
  ZelProcess subscriber({"sub", kDevice, "one", "two", "ready", "--count", "10000"});
  ASSERT_TRUE(IsReady(subscriber));
  ASSERT_EQ(RunZel({"pub", kDevice, "one", "1"}).status, 0);
  ASSERT_EQ(RunZel({"pub", kDevice, "two", "2"}).status, 0);
  EXPECT_TRUE(subscriber.SaysOutput("one  1\n"));
  EXPECT_TRUE(subscriber.SaysOutput("two  2\n"));
}

TEST(TopicTest, EachLineOfTheInputIsPublished) {
  ZelProcess subscriber({"sub", kDevice, "lines", "ready", "--count", "10000", "-F", "<%t:%d>"});
  ASSERT_TRUE(IsReady(subscriber));
  EXPECT_EQ(RunZel({"pub", kDevice, "lines", "--lines"}, "a\nb\r\n\n").status, 0);
  EXPECT_TRUE(subscriber.SaysOutput("<lines:a><lines:b><lines:>"));
}

TEST(TopicTest, NothingIsLostWhenThePublisherEnds) {
  ZelProcess subscriber({"sub", kDevice, "many", "ready", "--count", "10000", "-F", "%t\\n"});
  ASSERT_TRUE(IsReady(subscriber));
  EXPECT_EQ(RunZel({"pub", kDevice, "many", "x", "--count", "2000"}).status, 0);
  EXPECT_TRUE(subscriber.SaysOutput("many\n", 2000));
}

TEST(TopicTest, PubTellsProgramsWhatItDid) {
  EXPECT_EQ(RunZel({"pub", kDevice, "t", "abc", "-c", "2", "--json"}).output,
            "{\"topic\":\"t\",\"published\":2,\"bytes\":6,\"confirmed\":true}\n");
  EXPECT_EQ(RunZel({"pub", kDevice, "t", "abc"}).output, "");
}

TEST(TopicTest, PubPublishesAFileAndStandardInput) {
  const std::string path = ScratchFile("publication");
  WriteWhole(path, "from a file");
  EXPECT_EQ(ReceiveFrom({"sub", kDevice, "file", "-c", "1"}, {"file", "--file", path}).output,
            "file  from a file\n");
  EXPECT_EQ(ReceiveFrom({"sub", kDevice, "in", "-c", "1"}, {"in", "-"}, "from the input\n").output,
            "in  from the input\n");
}

TEST(TopicTest, AReplayedRecordIsByteEqual) {
  const std::string path = ScratchFile("record.jsonl");
  const std::string lines =
      "{\"time\":\"2026-11-21T23:59:59.900Z\",\"topic\":\"r\",\"group\":1,\"offset\":2,\"length\":3,"
      "\"text\":\"one\"}\n"
      "{\"time\":\"2026-11-22T01:00:00.000+01:00\",\"topic\":\"r\",\"group\":3,\"offset\":4,\"length\":3,"
      "\"base64\":\"AP8B\"}\n";
  WriteWhole(path, lines);
  ZelProcess recorder({"record", kDevice, "r", "ready", "-c", "10000"});
  ASSERT_TRUE(IsReady(recorder));
  const auto start = std::chrono::steady_clock::now();
  const ZelResult replay = RunZel({"replay", kDevice, path});
  EXPECT_EQ(replay.status, 0) << replay.errors;
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100)) << "no pause";
  EXPECT_TRUE(
      recorder.SaysOutput("\"topic\":\"r\",\"group\":1,\"offset\":2,\"length\":3,\"text\":\"one\"}\n"));
  EXPECT_TRUE(
      recorder.SaysOutput("\"topic\":\"r\",\"group\":3,\"offset\":4,\"length\":3,\"base64\":\"AP8B\"}\n"));
}

TEST(TopicTest, ABrokenRecordIsUsage) {
  const ZelResult result = RunZel({"replay", kDevice}, "\n{\"topic\":1}\n");
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Contains(result.errors, "zel: standard input, line 2: \"topic\" is no text")) << result.errors;
}

TEST(TopicTest, NothingOfABrokenRecordIsPublished) {
  const std::string path = ScratchFile("broken.jsonl");
  const std::string good = "{\"time\":\"2026-11-21T23:59:59Z\",\"topic\":\"r\",\"text\":\"x\"}\n";
  WriteWhole(path, good + good + "{\"time\":\"2026-11-21T25:00:00Z\",\"topic\":\"r\",\"text\":\"x\"}\n");
  const ZelResult result = RunZel({"replay", kDevice, path, "--json"});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Contains(result.errors, "broken.jsonl, line 3: \"time\" is no time")) << result.errors;
  EXPECT_FALSE(Contains(result.output, "published")) << result.output;
}

TEST(TopicTest, AFolderIsNoRecord) {
  const ZelResult result = RunZel({"replay", kDevice, ScratchFile(".")});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.errors, "");
}

TEST(TopicTest, WhatSubWritesAsObjectsCanBeReplayed) {
  const std::string path = ScratchFile("sub.jsonl");
  ZelProcess subscriber({"sub", kDevice, "s", "ready", "--json", "-c", "10000"});
  ASSERT_TRUE(IsReady(subscriber));
  WriteWhole(path, subscriber.Output() + "{\"what\":\"interrupted\",\"status\":130}\n");
  const ZelResult replay = RunZel({"replay", kDevice, path, "--speed", "0", "--json"});
  EXPECT_EQ(replay.status, 0) << replay.errors;
}

TEST(TopicTest, SilenceIsNothingArrived) {
  const ZelResult result = RunZel({"sub", kDevice, "quiet", "--wait", "0.2"});
  EXPECT_EQ(result.status, 27);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(Contains(result.errors, "nothing arrived in 0.2 s"));
}

TEST(TopicTest, NoServerIsAnError) {
  EXPECT_EQ(RunZel({"sub", kAbsentDevice, "t"}).status, 1);
  EXPECT_EQ(RunZel({"pub", kAbsentDevice, "t", "x"}).status, 1);
}
