// zelgate ask, at the site north, which one process serves. The device is simulated on the command's host.
#include <gtest/gtest.h>

#include <memory>

#include "DeviceTable.h"
#include "GateProcess.h"
#include "SiteTest.h"

namespace gatelab {
namespace {

class AskCommandTest : public SiteTest {
 protected:
  static void SetUpTestSuite() {
    SiteTest::SetUpTestSuite();
    Put(zelgate::kDeviceBucket, "found.127-0-0-2-0-1",
        ToJson(zelgate::DeviceFinding{"127.0.0.2.0.1", "127.0.0.2", "press 7", "4711", false, {}}));
    gate = new GateProcess({"run", "--config", WriteSiteConfig("north")});
    EXPECT_TRUE(Until([] { return Ask({"127.0.0.2.0.1", "--port", "600"}).status == 0; })) << gate->Errors();
  }
  static void TearDownTestSuite() {
    delete gate;
    SiteTest::TearDownTestSuite();
  }
  void TearDown() override {}  // the process goes on

  static GateResult Ask(const std::vector<std::string>& more) {
    std::vector<std::string> words = {"ask", "--config", WriteSiteConfig("north", "", "reader")};
    words.insert(words.end(), more.begin(), more.end());
    return RunGate(words);
  }
  static void ExpectSaid(const GateResult& result, int status, const std::string& text) {
    EXPECT_EQ(result.status, status);
    EXPECT_NE(result.errors.find(text), std::string::npos) << result.errors;
    EXPECT_EQ(result.output, "");
  }

  static inline GateProcess* gate = nullptr;
};

TEST_F(AskCommandTest, TheAnswerIsShown) {
  const GateResult result = Ask({"127.0.0.2.0.1", "--port", "600", "--group", "1", "--offset", "2", "hello"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "hello\n");
}

TEST_F(AskCommandTest, BytesAreAskedInHexadecimal) {
  const GateResult result = Ask({"127.0.0.2.0.1", "--port", "600", "--hex", "00ff0a"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "00ff0a\n");
}

TEST_F(AskCommandTest, ADeviceMayBeNamed) {
  EXPECT_EQ(Ask({"press 7", "--port", "600", "hello"}).output, "hello\n");
}

TEST_F(AskCommandTest, ASerialNumberNamesADeviceToo) {
  EXPECT_EQ(Ask({"4711", "--port", "600", "hello"}).output, "hello\n");
}

TEST_F(AskCommandTest, TheDevicesErrorWordIsTold) {
  ExpectSaid(Ask({"press 7", "--port", "601"}), 1, "127.0.0.2.0.1 answers with its error word 16388;");
}

TEST_F(AskCommandTest, ARequestWithoutAnAnswerMayHaveBeenSent) {
  ExpectSaid(Ask({"press 7", "--port", "602", "--timeout", "300"}), 4,
             "127.0.0.2.0.1 may have got the request, but there is no answer");
}

TEST_F(AskCommandTest, ADeviceThatNobodyServesIsNotAsked) {
  ExpectSaid(Ask({"10.9.9.9.0.1", "--port", "600"}), 3, "nobody serves 10.9.9.9.0.1, so nothing was sent");
}

TEST_F(AskCommandTest, ANameThatNobodyHasIsTold) {
  ExpectSaid(Ask({"press 8", "--port", "600"}), 2,
             "no device of north has the identifier, name or serial number 'press 8'");
}

TEST_F(AskCommandTest, WhatIsNotHexadecimalIsTold) {
  ExpectSaid(Ask({"press 7", "--port", "600", "--hex", "0x"}), 2, "'0x' is no row of hexadecimal bytes");
}

}  // namespace
}  // namespace gatelab
