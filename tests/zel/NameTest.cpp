// Devices by whatever names them. Two of them have one identifier.
#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

ZelResult AskByName(const std::string& device) { return RunZel({"request", device, "-p", "600", "hello"}); }

}  // namespace

TEST(NameTest, ADeviceIsReachedByItsHostName) {
  EXPECT_EQ(AskByName("press-1").output, "hello\n");
  EXPECT_EQ(AskByName("PRESS-1").output, "hello\n");
}

TEST(NameTest, ADeviceIsReachedByItsSerialNumbers) {
  EXPECT_EQ(AskByName("serial-1").output, "hello\n");
  EXPECT_EQ(AskByName("sn-1").output, "hello\n");
}

// Nobody answers at 10.77.0.99.
TEST(NameTest, AnIdentifierThatIsNoAddressIsLookedFor) {
  const ZelResult result = AskByName("10.77.0.99.9.9");
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "hello\n");
}

TEST(NameTest, AnIdentifierWhoseAddressIsAnotherDevicesIsLookedFor) {
  const ZelResult result = AskByName("10.77.0.2.9.9");
  EXPECT_EQ(result.output, "hello\n");
  EXPECT_TRUE(
      Contains(result.errors, "zel: 10.77.0.2 is 10.77.0.99.9.9, not 10.77.0.2.9.9; looking for that"))
      << result.errors;
}

TEST(NameTest, ANameThatNobodyHasIsAnError) {
  const ZelResult result = AskByName("nobody");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors, "no device calls itself so")) << result.errors;
}

TEST(NameTest, ScanPointsOutTwins) {
  const ZelResult result = RunZel({"scan", "-s", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(
      Contains(result.errors, "several devices have the identifier 10.77.0.98.0.1: 10.77.0.3, 10.77.0.4"))
      << result.errors;
}

TEST(NameTest, ATwinIsNotTaken) {
  const ZelResult result = AskByName("10.77.0.98.0.1");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(Contains(result.errors, "2 devices answer to 10.77.0.98.0.1: 10.77.0.")) << result.errors;
}

TEST(NameTest, ATwinIsNotTriedAgain) {
  const ZelResult result = RunZel({"request", "10.77.0.98.0.1", "-p", "600", "x", "--wait-online"});
  EXPECT_EQ(result.status, 1);
  EXPECT_FALSE(Contains(result.errors, "trying again")) << result.errors;
}

TEST(NameTest, ATwinIsReachedByItsAddress) { EXPECT_EQ(AskByName("10.77.0.3").output, "hello\n"); }

TEST(NameTest, QuietLeavesRemarksOut) {
  const ZelResult result = RunZel({"--quiet", "scan", "-s", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
}

TEST(NameTest, QuietStillTellsFailures) {
  EXPECT_TRUE(
      Contains(RunZel({"-q", "request", "nobody", "-p", "600"}).errors, "zel: nobody is no host name"));
}

// The device at 10.77.0.5 answers with what is no JSON.
TEST(NameTest, AMalformedAnswerNamesItsSenderAndEndsNothing) {
  const ZelResult result = RunZel({"scan", "-s", "2"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.output, "press-1"));
  EXPECT_TRUE(Contains(result.errors, "zel: scan answer of 10.77.0.5 dropped:")) << result.errors;
}
