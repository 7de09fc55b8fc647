// On the network of NameTest: each fault is found, with what to do about it. 127.0.0.4 has a server and no
// more.
#include <gtest/gtest.h>

#include "ZelProcess.h"

namespace {

void ExpectFault(const std::vector<std::string>& arguments, const std::string& sentence,
                 const std::string& advice) {
  const ZelResult result = RunZel(arguments);
  EXPECT_EQ(result.status, 1);
  const std::string text = Unwrapped(result.output);
  EXPECT_TRUE(Contains(text, "FAULT  " + sentence)) << result.output;
  EXPECT_TRUE(Contains(text, advice)) << result.output;
}

}  // namespace

TEST(DoctorTest, FindsTwins) {
  ExpectFault({"doctor"},
              "Several devices have the identifier 10.77.0.98.0.1:", "Give one of them another one");
}

TEST(DoctorTest, FindsMalformedAnswers) {
  ExpectFault({"doctor"}, "Scan answer of 10.77.0.5 dropped", "The device that sends it");
}

TEST(DoctorTest, TellsWhatIsWell) {
  const ZelResult result = RunZel({"doctor", "press-1"});
  for (const char* line :
       {"ok     This machine's identifier is ", "ok     Devices are asked for on ", " devices answer.",
        "ok     press-1 is at 10.77.0.2.", "ok     10.77.0.2 takes connections, in ",
        "ok     10.77.0.2 says that it is 10.77.0.99.9.9."}) {
    EXPECT_TRUE(Contains(result.output, line)) << line << result.output;
  }
}

TEST(DoctorTest, FindsAClosedPort) {
  ExpectFault({"doctor", "10.77.0.4"}, "10.77.0.4 refuses connections to TCP port 9999.",
              "Something is at this address");
}

TEST(DoctorTest, FindsADeafDevice) {
  ExpectFault({"doctor", "127.0.0.4"},
              "127.0.0.4 is there, its TCP port 9999 is open, but it does not answer",
              "Does a firewall drop UDP?");
}

TEST(DoctorTest, FindsThatNobodyIsThere) {
  ExpectFault({"doctor", "10.77.0.99", "--connect-timeout", "300"},
              "10.77.0.99 does not answer on TCP port 9999, and no answer comes from UDP port 38898.",
              "Is the device on");
}

TEST(DoctorTest, FindsAMissingRoute) {
  ExpectFault({"doctor", "192.0.2.7"},
              "there is no way to 192.0.2.7, and no answer comes from UDP port 38898.",
              "Has this machine an address");
}

TEST(DoctorTest, FindsAnotherDeviceAtTheAddress) {
  ExpectFault({"doctor", "10.77.0.2.0.7"}, "10.77.0.2 says that it is 10.77.0.99.9.9, not 10.77.0.2.0.7.",
              "Is the identifier right?");
}

TEST(DoctorTest, FindsAnUnknownName) {
  ExpectFault({"doctor", "nobody"}, "nobody is no host name", "zel scan shows who is there");
}

TEST(DoctorTest, WritesObjects) {
  const ZelResult result = RunZel({"doctor", "--json"});
  EXPECT_TRUE(
      result.output.starts_with("{\"check\":\"identifier\",\"good\":true,\"sentence\":\"This machine's"))
      << result.output;
  EXPECT_TRUE(Contains(result.output, "{\"check\":\"twins\",\"good\":false,")) << result.output;
}
