// Arguments, files' names and results are UTF-8, on both systems.
#include <gtest/gtest.h>

#include "Devices.h"
#include "Subscriber.h"
#include "ZelProcess.h"

namespace {

// "grün €", and a character beyond 16 bits.
const std::string kText = "gr\xc3\xbcn \xe2\x82\xac \xf0\x9f\x94\xa7";

std::string OddFile(const std::string& content) {
  const std::string path = ScratchFile("r\xc3\xa9zept \xe2\x82\xac.bin");
  WriteWhole(path, content);
  return path;
}

}  // namespace

// The device echoes what it is sent.
TEST(Utf8Test, AnArgumentGoesOutAsUtf8) {
  const ZelResult result = RunZel({"request", kDevice, "-p", "600", kText, "--json"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_TRUE(Contains(result.output, "\"length\":14,\"text\":\"" + kText + "\"}")) << result.output;
}

// Shells expand patterns; where they do not, nobody does.
TEST(Utf8Test, APatternIsAText) { EXPECT_EQ(RunZel({"request", kDevice, "-p", "600", "*"}).output, "*\n"); }

TEST(Utf8Test, QuotesAndBackslashesStay) {
  const std::string text = "a\"b\\c\\\\\"d\\";
  EXPECT_EQ(RunZel({"request", kDevice, "-p", "600", text}).output, text + "\n");
}

TEST(Utf8Test, AnAnswerIsShownAsItIs) {
  EXPECT_EQ(RunZel({"request", kDevice, "-p", "600", "--hex", "67 72 c3 bc 6e"}).output, "gr\xc3\xbcn\n");
}

TEST(Utf8Test, AFileMayHaveAnyName) {
  const ZelResult result = RunZel({"request", kDevice, "-p", "600", "--file", OddFile("hello")});
  EXPECT_EQ(result.output, "hello\n") << result.errors;
}

TEST(Utf8Test, AFileOfAnyNameIsSent) {
  const ZelResult result = RunZel({"send", kDevice, "710", OddFile("hello"), "odd-" + kText, "--json"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_TRUE(Contains(result.output, "\"remote\":\"odd-" + kText + "\"")) << result.output;
  EXPECT_EQ(ReadWhole(ScratchFile("odd-" + kText)), "hello");
}

TEST(Utf8Test, ARecordMayHaveAnyName) {
  const std::string path =
      OddFile("{\"time\":\"2026-11-21T23:59:59Z\",\"topic\":\"odd\",\"text\":\"" + kText + "\"}\n");
  ZelProcess subscriber({"sub", kDevice, "odd", "ready", "-c", "10000"});
  ASSERT_TRUE(IsReady(subscriber));
  const ZelResult result = RunZel({"replay", kDevice, path});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_TRUE(subscriber.SaysOutput("odd  " + kText + "\n"));
}

TEST(Utf8Test, ATopicIsUtf8) {
  ZelProcess subscriber({"sub", kDevice, kText, "ready", "-c", "10000"});
  ASSERT_TRUE(IsReady(subscriber));
  EXPECT_EQ(RunZel({"pub", kDevice, kText, kText}).status, 0);
  EXPECT_TRUE(subscriber.SaysOutput(kText + "  " + kText + "\n"));
}

TEST(Utf8Test, ALogMayHaveAnyName) {
  const std::string path = ScratchFile("l\xc3\xb6g");
  EXPECT_EQ(RunZel({"request", kDevice, "-p", "600", "x", "--log", path}).status, 0);
  EXPECT_TRUE(Contains(ReadWhole(path), "Version"));
}
