#include <gtest/gtest.h>

#include <string>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

// The device counts its messages, and some may have passed before the port was listened on.
int FirstNumber(const std::string& output, const std::string& before) {
  return Contains(output, before) ? std::stoi(output.substr(output.find(before) + before.size())) : -1;
}

}  // namespace

TEST(ListenTest, ShowsPortAndText) {
  const ZelResult result = RunZel({"listen", kDevice, "700", "--count", "3"});
  EXPECT_EQ(result.status, 0);
  const int first = FirstNumber(result.output, "700  ");
  EXPECT_GE(first, 1);
  std::string wanted;
  for (int i = 0; i < 3; ++i) wanted += "700  " + std::to_string(first + i) + "\n";
  EXPECT_EQ(result.output, wanted);
}

TEST(ListenTest, HearsSeveralPortsOnly) {
  const ZelResult result = RunZel({"listen", kDevice, "700", "702", "-c", "2", "-F", "%p=%d;"});
  const int first = FirstNumber(result.output, "700=");
  EXPECT_EQ(result.output, "700=" + std::to_string(first) + ";700=" + std::to_string(first + 1) + ";");
}

TEST(ListenTest, WritesObjects) {
  const ZelResult result = RunZel({"listen", kAddress, "700", "--count", "1", "--json"});
  // 2026-11-21T20:37:04.123Z
  const std::string start = "{\"time\":\"";
  ASSERT_TRUE(result.output.starts_with(start)) << result.output;
  EXPECT_EQ(result.output.substr(start.size() + 10, 1), "T");
  EXPECT_EQ(result.output.substr(start.size() + 19, 1), ".");
  EXPECT_EQ(result.output.substr(start.size() + 23, 2), "Z\"");
  EXPECT_TRUE(Contains(result.output, "\"port\":700,\"length\":1,\"text\":\"")) << result.output;
}

TEST(ListenTest, FewerThanAskedForIsNothingArrived) {
  const ZelResult result = RunZel({"listen", kDevice, "700", "--count", "100000", "--wait", "1"});
  EXPECT_EQ(result.status, 27);
  EXPECT_TRUE(Contains(result.errors, " of 100000 arrived in 1.0 s"));
}

TEST(ListenTest, SilenceIsNothingArrived) {
  EXPECT_EQ(RunZel({"listen", kDevice, "703", "--wait", "0.2"}).status, 27);
}
