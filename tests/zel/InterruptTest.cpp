// Ctrl-C: every command ends within 0.3 s, with status 130.
#include <gtest/gtest.h>

#include <filesystem>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

constexpr std::chrono::milliseconds kSoon{300};

std::vector<std::string> Ask(const char* port, std::vector<std::string> more) {
  std::vector<std::string> arguments = {"request", kDevice, "-p", port, "x"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace

TEST(InterruptTest, EndsWatch) {
  ZelProcess process({"watch", kDevice});
  ASSERT_TRUE(process.SaysOutput("connected"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsListen) {
  ZelProcess process({"listen", kDevice, "700"});
  ASSERT_TRUE(process.SaysOutput("700  "));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsSub) {
  ZelProcess process({"sub", kDevice, "quiet", "--verbose"});
  ASSERT_TRUE(process.SaysError("Success"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsScan) {
  ZelProcess process({"scan", "--watch"});
  ASSERT_TRUE(process.SaysOutput("found"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsASeriesWithItsSummary) {
  ZelProcess process(Ask("600", {"-c", "1000", "-i", "1000"}));
  ASSERT_TRUE(process.SaysOutput("1 B  x"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
  EXPECT_TRUE(Contains(process.Output(), "1 request, 1 answer"));
}

TEST(InterruptTest, EndsARequestThatHangs) {
  ZelProcess process(Ask("602", {"-t", "600000", "--verbose"}));
  ASSERT_TRUE(process.SaysError("Success"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsASeriesThatHangs) {
  ZelProcess process(Ask("602", {"-t", "600000", "-c", "3", "--verbose"}));
  ASSERT_TRUE(process.SaysError("Success"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
  EXPECT_TRUE(Contains(process.Output(), "0 requests, 0 answers"));
}

TEST(InterruptTest, EndsTheSearchForADevice) {
  ZelProcess process({"request", "nobody", "-p", "600", "--verbose"});
  ASSERT_TRUE(process.SaysError("Init Zel Scan Finish"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

// Nobody is at this address.
TEST(InterruptTest, EndsAConnect) {
  ZelProcess process({"request", "10.77.0.99", "-p", "600", "--connect-timeout", "60000"});
  ASSERT_TRUE(process.SaysError("trying TCP port 9999"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsAQuestionForAnIdentifier) {
  ZelProcess process({"id", "get", "10.77.0.99", "-t", "60000", "--verbose"});
  ASSERT_TRUE(process.SaysError("Version"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
}

TEST(InterruptTest, EndsPub) {
  ZelProcess process({"pub", kDevice, "t", "x", "-c", "1000", "-i", "60000", "--json", "--verbose"});
  ASSERT_TRUE(process.SaysError("Success"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
  EXPECT_TRUE(Contains(process.Output(), "\"topic\":\"t\",\"published\":")) << process.Output();
  EXPECT_TRUE(Contains(process.Output(), "{\"what\":\"interrupted\",\"status\":130}")) << process.Output();
}

TEST(InterruptTest, EndsSend) {
  const std::string path = ScratchFile("large");
  WriteWhole(path, "");
  std::filesystem::resize_file(path, 1U << 30);
  ZelProcess process({"send", kDevice, "710", path, "--json"});
  ASSERT_TRUE(process.SaysOutput("progress"));
  EXPECT_TRUE(process.EndsSoonAfterInterrupt(kSoon));
  EXPECT_TRUE(Contains(process.Errors(), "stopped; the device has a part of the file at most"));
}
