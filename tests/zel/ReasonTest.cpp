// Why a device cannot be reached: every reason its own sentence, with what to try.
#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

void ExpectFailure(const ZelResult& result, int status, const std::string& what, const std::string& advice) {
  EXPECT_EQ(result.status, status) << result.errors;
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(Contains(result.errors, what)) << result.errors;
  EXPECT_TRUE(Contains(result.errors, advice)) << result.errors;
}

ZelResult AskFrom(const std::string& device, std::vector<std::string> more = {}) {
  std::vector<std::string> arguments = {"request", device, "-p", "600", "hello"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunZel(arguments);
}

}  // namespace

TEST(ReasonTest, Refused) {
  ExpectFailure(AskFrom("127.0.0.9"), 1, "127.0.0.9 refuses connections to TCP port 9999",
                "has the device started?");
}

TEST(ReasonTest, TimedOut) {
  ExpectFailure(AskFrom("10.77.0.99", {"--connect-timeout", "300"}), 1,
                "cannot connect to 10.77.0.99: 10.77.0.99 does not answer on TCP port 9999",
                "Is the device on");
}

TEST(ReasonTest, NoRoute) {
  ExpectFailure(AskFrom("192.0.2.7"), 1, "there is no way to 192.0.2.7", "Look at cable");
  ExpectFailure(RunZel({"id", "get", "192.0.2.7"}), 1, "there is no way to 192.0.2.7", "Look at cable");
}

// 127.0.0.4 has a server and no more.
TEST(ReasonTest, ADeviceThatIsSilentOnUdpIsStillReached) {
  const ZelResult result = AskFrom("127.0.0.4");
  EXPECT_EQ(result.output, "hello\n");
  EXPECT_TRUE(Contains(result.errors, "127.0.0.4 does not tell its identifier on UDP port 38898"))
      << result.errors;
}

TEST(ReasonTest, NoUdpAnswerThoughTheServerIsThere) {
  ExpectFailure(RunZel({"id", "get", "127.0.0.4"}), 27,
                "127.0.0.4 is there, its TCP port 9999 is open, but it does not answer on UDP port 38898",
                "Does a firewall drop UDP?");
}

TEST(ReasonTest, NeitherUdpNorTcp) {
  ExpectFailure(RunZel({"id", "get", "127.0.0.9"}), 27,
                "127.0.0.9 does not answer on UDP port 38898, nor on TCP", "zel scan shows who is there");
}

TEST(ReasonTest, TheTimeoutCountsForAllOfIt) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NE(AskFrom("10.77.0.99", {"--timeout", "400", "--connect-timeout", "60000"}).status, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(ReasonTest, ADeviceIsTriedAgainAsOftenAsTheUserSays) {
  const auto start = std::chrono::steady_clock::now();
  ExpectFailure(AskFrom(kAbsentAddress, {"--retry", "2"}), 1, "; trying again",
                "127.0.0.9 refuses connections");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(ReasonTest, TheTimeoutEndsTheWaitForADevice) {
  const auto start = std::chrono::steady_clock::now();
  ExpectFailure(AskFrom(kAbsentAddress, {"--wait-online", "--timeout", "2300"}), 1, "; trying again",
                "127.0.0.9 refuses connections");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(ReasonTest, SendToASilentDeviceIsNothingArrived) {
  const std::string path = ScratchFile("file");
  WriteWhole(path, "file");
  ExpectFailure(RunZel({"send", "127.0.0.4", "602", path}), 27, "127.0.0.4 does not answer on port 602",
                "Is this the port that takes files");
}

TEST(ReasonTest, AFailureIsAnObject) {
  const ZelResult result = AskFrom("127.0.0.9.0.1", {"--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(result.output.starts_with(
      "{\"error\":5,\"errorText\":\"alaready disconnect\",\"what\":\"cannot connect"))
      << result.output;
  EXPECT_TRUE(result.output.ends_with("\"status\":1}\n")) << result.output;
}
