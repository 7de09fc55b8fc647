// Firewalls: this host's lets in only answers to a question to one host, as most do, so none to multicast or
// broadcast; that of 10.77.0.2 drops direct requests, that of 10.77.0.3 connections, that of 10.77.0.4
// nothing.
#include <gtest/gtest.h>

#include "ZelProcess.h"

namespace {

void ExpectInDoctor(const std::vector<std::string>& more, const std::string& sentence,
                    const std::string& advice) {
  std::vector<std::string> arguments = {"doctor"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const ZelResult result = RunZel(arguments);
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(Unwrapped(result.output), "FAULT  " + sentence + " " + advice)) << result.output;
}

}  // namespace

TEST(FirewallTest, TheDoctorFindsThatNoAnswerComesIn) {
  ExpectInDoctor({}, "No device answers.",
                 "Are the devices on, and in a network of this machine? Does the firewall here let UDP in, "
                 "to port 38897 as well as to zel's own ports?");
}

TEST(FirewallTest, TheDoctorFindsThatADeviceAnswersOnlyWhenItAloneIsAsked) {
  ExpectInDoctor({"10.77.0.4"}, "10.77.0.4 answers when it alone is asked, but not when all are.",
                 "Is it in a network of this machine? Does the firewall here let UDP in, "
                 "to port 38897 as well as to zel's own ports?");
}

TEST(FirewallTest, TheDoctorFindsThatDirectRequestsAreDropped) {
  ExpectInDoctor({"10.77.0.2"},
                 "10.77.0.2 is there, its TCP port 9999 is open, but it does not answer on UDP port 38898.",
                 "Does a firewall drop UDP?");
}

TEST(FirewallTest, TheDoctorFindsThatConnectionsAreDropped) {
  ExpectInDoctor({"10.77.0.3", "--connect-timeout", "300"}, "10.77.0.3 does not answer on TCP port 9999.",
                 "Is the device on, is the address right, does a firewall drop TCP port 9999?");
}

TEST(FirewallTest, ARequestIsAnsweredThoughUdpIsDropped) {
  EXPECT_EQ(RunZel({"request", "10.77.0.2", "-p", "600", "hello"}).output, "hello\n");
}

TEST(FirewallTest, ARequestSaysThatConnectionsAreDropped) {
  const ZelResult result = RunZel({"request", "10.77.0.3", "-p", "600", "x", "--connect-timeout", "300"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors, "does a firewall drop TCP port 9999?")) << result.errors;
}
