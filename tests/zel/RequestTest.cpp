#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

std::vector<std::string> Ask(const char* port, std::vector<std::string> more, const char* device = kDevice) {
  std::vector<std::string> arguments = {"request", device, "--port", port, "--group", "0x1", "--offset", "2"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace

TEST(RequestTest, ShowsTextAsText) {
  const ZelResult result = RunZel(Ask("600", {"How are you?"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "How are you?\n");
}

TEST(RequestTest, AnAddressIsAskedForItsIdentifier) {
  EXPECT_EQ(RunZel(Ask("600", {"hello"}, kAddress)).output, "hello\n");
}

TEST(RequestTest, AnAddressWithoutAServerIsAnError) {
  const ZelResult result = RunZel(Ask("600", {"hello"}, kAbsentAddress));
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(
      Contains(result.errors, "cannot connect to 127.0.0.9: 127.0.0.9 refuses connections to TCP port 9999"))
      << result.errors;
}

TEST(RequestTest, ShowsBytesAsDump) {
  const ZelResult result = RunZel(Ask("603", {}));
  EXPECT_EQ(result.status, 0);
  const auto lines = Lines(result.output);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "00000000 00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  |................|");
  EXPECT_EQ(lines[2], "00000020 20 21 22 23 24 25 26 27                           | !\"#$%&'|");
}

TEST(RequestTest, TextCanBeDumped) {
  EXPECT_TRUE(Contains(RunZel(Ask("600", {"ab", "--show", "hex"})).output, " 61 62 "));
}

TEST(RequestTest, RawIsByteForByte) {
  const ZelResult result = RunZel(Ask("600", {"--hex", "00 0a 0D ff", "--show", "raw"}));
  EXPECT_EQ(result.output, std::string("\x00\x0a\x0d\xff", 4));
}

TEST(RequestTest, SendsAFile) {
  const std::string path = ScratchFile("question");
  WriteWhole(path, std::string("a\0\r\nb", 5));
  EXPECT_EQ(RunZel(Ask("600", {"--file", path, "--show", "raw"})).output, std::string("a\0\r\nb", 5));
}

TEST(RequestTest, SendsStandardInput) {
  const std::string input("1\r\n2\x1a\n", 6);
  EXPECT_EQ(RunZel(Ask("600", {"-", "--show", "raw"}), input).output, input);
}

TEST(RequestTest, AMissingFileIsUsage) {
  const ZelResult result = RunZel(Ask("600", {"--file", ScratchFile("missing")}));
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Contains(result.errors, "cannot open"));
}

TEST(RequestTest, TheAnswersErrorIsShown) {
  const ZelResult result = RunZel(Ask("601", {"x"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(Contains(result.errors, "the answer is an error: error 16388: component is offline"));
}

TEST(RequestTest, SilenceIsNothingArrived) {
  const ZelResult result = RunZel(Ask("602", {"x", "--timeout", "100"}));
  EXPECT_EQ(result.status, 27);
  EXPECT_TRUE(Contains(result.errors, "no answer from 10.77.0.2: error 4104: recv message timeout"));
}

TEST(RequestTest, NoServerIsAnError) {
  const ZelResult result = RunZel(Ask("600", {"x"}, kAbsentDevice));
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors,
                       "cannot connect to 127.0.0.9.0.1 at 127.0.0.9: 127.0.0.9 refuses connections to "
                       "TCP port 9999: error 5: alaready disconnect"));
}

TEST(RequestTest, WritesAnObject) {
  const ZelResult result = RunZel(Ask("600", {"hello", "--json"}));
  EXPECT_TRUE(result.output.starts_with("{\"number\":1,\"milliseconds\":")) << result.output;
  EXPECT_TRUE(Contains(result.output, "\"error\":0,\"length\":5,\"text\":\"hello\"}\n"));
  EXPECT_TRUE(
      Contains(RunZel(Ask("600", {"--hex", "00ff", "--json"})).output, "\"length\":2,\"hex\":\"00 ff\"}\n"));
}

TEST(RequestTest, ASeriesHasASummary) {
  const ZelResult result = RunZel(Ask("600", {"hello", "--count", "5", "--interval", "1"}));
  EXPECT_EQ(result.status, 0);
  const auto lines = Lines(result.output);
  ASSERT_EQ(lines.size(), 7U) << result.output;
  EXPECT_TRUE(lines[4].starts_with("    5 "));
  EXPECT_TRUE(lines[4].ends_with("5 B  hello"));
  EXPECT_EQ(lines[5], "5 requests, 5 answers");
  for (const char* part : {"minimum ", "median ", "99% ", "maximum "})
    EXPECT_TRUE(Contains(lines[6], part)) << part;
}

TEST(RequestTest, ASeriesCanBeSummaryOnly) {
  const ZelResult result = RunZel(Ask("600", {"hello", "--count", "200", "--summary", "--json"}));
  ASSERT_EQ(Lines(result.output).size(), 1U);
  EXPECT_TRUE(result.output.starts_with("{\"summary\":true,\"requests\":200,\"answers\":200,\"minimum\":"));
}

TEST(RequestTest, ASeriesWithoutAnswersIsNothingArrived) {
  const ZelResult result = RunZel(Ask("602", {"--count", "2", "--timeout", "50"}));
  EXPECT_EQ(result.status, 27);
  EXPECT_TRUE(Contains(result.output, "2 requests, 0 answers\n"));
}

TEST(RequestTest, ASeriesOfErrorsIsAnError) { EXPECT_EQ(RunZel(Ask("601", {"--count", "2"})).status, 1); }

TEST(RequestTest, TheLogIsSilent) {
  const ZelResult result = RunZel(Ask("600", {"hello"}));
  EXPECT_EQ(result.output, "hello\n");
  EXPECT_EQ(result.errors, "");
}

TEST(RequestTest, TheLogGoesToStandardErrorWhenItIsWanted) {
  const ZelResult result = RunZel(Ask("600", {"hello", "--verbose"}));
  EXPECT_EQ(result.output, "hello\n");
  EXPECT_TRUE(Contains(result.errors, "libzelclient Version 0.2.3"));
}

TEST(RequestTest, TheLogGoesToAFile) {
  const std::string log = ScratchFile("log");
  const ZelResult result = RunZel(Ask("600", {"hello", "--log", log}));
  EXPECT_EQ(result.output, "hello\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_TRUE(Contains(ReadWhole(log), "libzelclient Version 0.2.3"));
  EXPECT_FALSE(Contains(ReadWhole(log), "\x1b")) << "colours";
}

TEST(RequestTest, ALogThatCannotBeOpenedIsUsage) {
  EXPECT_EQ(RunZel(Ask("600", {"hello", "--log", ScratchFile("missing/log")})).status, 2);
}
