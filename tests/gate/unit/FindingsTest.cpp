#include "Findings.h"

#include <gtest/gtest.h>

namespace zelgate {
namespace {

constexpr const char* kId = "10.20.0.7.0.1";

DeviceFinding At(const std::string& address, const std::string& name = "press 7") {
  return {kId, address, name, "4711", false, {}};
}

// One round in which these answer; what is to be written then.
std::vector<DeviceFinding> Round(Findings& findings, const std::vector<DeviceFinding>& answers) {
  for (const DeviceFinding& answer : answers) EXPECT_TRUE(findings.Note(answer));
  findings.EndRound();
  return findings.Unwritten();
}

void WriteAll(Findings& findings) {
  for (const DeviceFinding& finding : findings.Unwritten()) findings.Wrote(finding);
}

using Twins = std::vector<std::string>;

TEST(FindingsTest, ADeviceThatAnswersIsToBeWritten) {
  Findings findings({});
  const auto unwritten = Round(findings, {At("10.20.0.7")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_EQ(unwritten[0], At("10.20.0.7"));
}

TEST(FindingsTest, WhatWasWrittenIsNotWrittenAgain) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.7")});
  WriteAll(findings);
  EXPECT_TRUE(Round(findings, {At("10.20.0.7")}).empty());
}

TEST(FindingsTest, WhatCouldNotBeWrittenIsTriedAgain) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.7")});
  EXPECT_EQ(Round(findings, {}).size(), 1U);
}

TEST(FindingsTest, ANewNameIsWritten) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.7")});
  WriteAll(findings);
  const auto unwritten = Round(findings, {At("10.20.0.7", "press 8")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_EQ(unwritten[0].name, "press 8");
}

TEST(FindingsTest, ASilentDeviceStays) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.7")});
  WriteAll(findings);
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(Round(findings, {}).empty());
  EXPECT_EQ(findings.Count(), 1U);
}

TEST(FindingsTest, ADeviceThatMovedHasItsNewAddressAndNoTwin) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.7")});
  WriteAll(findings);
  const auto unwritten = Round(findings, {At("10.20.0.99")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_EQ(unwritten[0].address, "10.20.0.99");
  EXPECT_TRUE(unwritten[0].twins.empty());
}

TEST(FindingsTest, TwoThatAnswerInOneRoundAreTwins) {
  Findings findings({});
  const auto unwritten = Round(findings, {At("10.20.0.8"), At("10.20.0.7")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_EQ(unwritten[0].twins, (Twins{"10.20.0.7", "10.20.0.8"}));
  EXPECT_EQ(unwritten[0].address, "10.20.0.7");
}

TEST(FindingsTest, TwinsKeepTheAddressThatWasThereFirst) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.8")});
  WriteAll(findings);
  const auto unwritten = Round(findings, {At("10.20.0.8"), At("10.20.0.7")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_EQ(unwritten[0].address, "10.20.0.8");
  EXPECT_EQ(unwritten[0].twins, (Twins{"10.20.0.7", "10.20.0.8"}));
}

TEST(FindingsTest, TwinsStayTwinsWhileOneMissesARound) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.8")});
  (void)Round(findings, {At("10.20.0.8"), At("10.20.0.7")});
  WriteAll(findings);
  EXPECT_TRUE(Round(findings, {At("10.20.0.7")}).empty());
  EXPECT_TRUE(Round(findings, {}).empty());
}

TEST(FindingsTest, OneThatIsSilentForLongIsNoTwinAnyMore) {
  Findings findings({});
  (void)Round(findings, {At("10.20.0.8")});
  (void)Round(findings, {At("10.20.0.8"), At("10.20.0.7")});
  WriteAll(findings);
  std::vector<DeviceFinding> unwritten;
  for (uint64_t i = 0; i < Findings::kForgottenAfter; ++i) unwritten = Round(findings, {At("10.20.0.7")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_TRUE(unwritten[0].twins.empty());
  EXPECT_EQ(unwritten[0].address, "10.20.0.7");
}

TEST(FindingsTest, ADeviceOfTheListIsThereWithoutAnAnswer) {
  const Findings findings({{kId, "", "press 7"}, {"10.20.0.9.0.1", "10.99.0.1", ""}});
  const auto unwritten = findings.Unwritten();
  ASSERT_EQ(unwritten.size(), 2U);
  EXPECT_EQ(unwritten[0].address, "10.20.0.7");
  EXPECT_TRUE(unwritten[0].isFixed);
  EXPECT_EQ(unwritten[1].address, "10.99.0.1");
}

TEST(FindingsTest, ADeviceOfTheListKeepsItsAddressAndName) {
  Findings findings({{kId, "10.99.0.1", "mine"}});
  const auto unwritten = Round(findings, {At("10.20.0.7", "press 7")});
  ASSERT_EQ(unwritten.size(), 1U);
  EXPECT_EQ(unwritten[0].address, "10.99.0.1");
  EXPECT_EQ(unwritten[0].name, "mine");
  EXPECT_EQ(unwritten[0].serial, "4711");
}

TEST(FindingsTest, WhatAnotherProcessWroteIsKnown) {
  Findings findings({});
  findings.Restore(At("10.20.0.7"));
  EXPECT_TRUE(findings.Unwritten().empty());
  EXPECT_TRUE(Round(findings, {At("10.20.0.7")}).empty());
}

TEST(FindingsTest, TwinsThatAnotherProcessFoundStayForAWhile) {
  Findings findings({});
  DeviceFinding written = At("10.20.0.7");
  written.twins = {"10.20.0.7", "10.20.0.8"};
  findings.Restore(written);
  EXPECT_TRUE(Round(findings, {At("10.20.0.7")}).empty());
}

TEST(FindingsTest, ADeviceThatLeftTheListIsFixedNoMore) {
  Findings findings({});
  DeviceFinding written = At("10.20.0.7");
  written.isFixed = true;
  findings.Restore(written);
  ASSERT_EQ(findings.Unwritten().size(), 1U);
  EXPECT_FALSE(findings.Unwritten()[0].isFixed);
}

TEST(FindingsTest, WhatIsNoIdentifierIsRefused) {
  Findings findings({});
  EXPECT_FALSE(findings.Note({"press", "10.20.0.7", "", "", false, {}}));
}

TEST(FindingsTest, ThereIsAnEnd) {
  Findings findings({});
  const auto id = [](size_t i) {
    return "10." + std::to_string(i >> 16 & 255) + "." + std::to_string(i >> 8 & 255) + "." +
           std::to_string(i & 255) + ".0.1";
  };
  for (size_t i = 0; i < Findings::kMostDevices; ++i) {
    ASSERT_TRUE(findings.Note({id(i), "10.0.0.1", "", "", false, {}}));
  }
  EXPECT_FALSE(findings.Note({"11.0.0.1.0.1", "10.0.0.1", "", "", false, {}}));
  EXPECT_TRUE(findings.Note({id(7), "10.0.0.1", "", "", false, {}}));
}

}  // namespace
}  // namespace zelgate
