#include <gtest/gtest.h>

#include "DeviceTable.h"

namespace zelgate {
namespace {

constexpr const char* kDevice = "10-20-0-7-0-1";

DeviceFinding Press() { return {"10.20.0.7.0.1", "10.20.0.7", "press 7", "4711", false, {}}; }

TEST(DeviceTableTest, AFindingIsReadAsItWasWritten) {
  DeviceFinding finding = Press();
  finding.isFixed = true;
  finding.twins = {"10.20.0.7", "10.20.0.8"};
  EXPECT_EQ(ParseFinding(ToJson(finding)), finding);
}

TEST(DeviceTableTest, ALinkIsReadAsItWasWritten) {
  const DeviceLink link = {LinkState::kConnecting, "2026-11-21T10:00:00.000Z", "gate1/77",
                           "connect: refused"};
  EXPECT_EQ(ParseLink(ToJson(link)), link);
}

TEST(DeviceTableTest, ANameThatIsNoUtf8IsWrittenAllTheSame) {
  DeviceFinding finding = Press();
  finding.name = "press \xff";
  const auto read = ParseFinding(ToJson(finding));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->name, "press \xEF\xBF\xBD");
}

TEST(DeviceTableTest, WhatIsNoJsonIsRefused) {
  EXPECT_FALSE(ParseFinding("press 7"));
  EXPECT_FALSE(ParseFinding("[]"));
  EXPECT_FALSE(ParseLink(""));
}

TEST(DeviceTableTest, AMemberOfAnotherTypeIsRefused) {
  EXPECT_FALSE(ParseFinding(R"({"id":"10.20.0.7.0.1","address":7})"));
  EXPECT_FALSE(ParseFinding(R"({"id":"10.20.0.7.0.1","twins":"10.20.0.7"})"));
  EXPECT_FALSE(ParseLink(R"({"state":"up","since":7})"));
}

TEST(DeviceTableTest, AFindingWithoutAnIdentifierIsRefused) {
  EXPECT_FALSE(ParseFinding(R"({"address":"1.2.3.4"})"));
}

TEST(DeviceTableTest, AnUnknownStateIsRefused) { EXPECT_FALSE(ParseLink(R"({"state":"sleeping"})")); }

TEST(DeviceTableTest, BothKeysOfADeviceAreOneRow) {
  DeviceTable table;
  EXPECT_TRUE(table.Apply(FindingKey(kDevice), ToJson(Press())));
  EXPECT_TRUE(table.Apply(LinkKey(kDevice), ToJson(DeviceLink{LinkState::kUp, "", "gate1/77", ""})));
  ASSERT_EQ(table.Rows().size(), 1U);
  const auto* const row = table.Find(kDevice);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->finding, Press());
  EXPECT_EQ(row->link->state, LinkState::kUp);
}

TEST(DeviceTableTest, ARowGoesWithItsLastKey) {
  DeviceTable table;
  (void)table.Apply(FindingKey(kDevice), ToJson(Press()));
  (void)table.Apply(LinkKey(kDevice), ToJson(DeviceLink{}));
  EXPECT_TRUE(table.Apply(FindingKey(kDevice), std::nullopt));
  ASSERT_NE(table.Find(kDevice), nullptr);
  EXPECT_FALSE(table.Find(kDevice)->finding);
  EXPECT_TRUE(table.Apply(LinkKey(kDevice), std::nullopt));
  EXPECT_EQ(table.Find(kDevice), nullptr);
}

TEST(DeviceTableTest, KeysThatAreNotOursChangeNothing) {
  DeviceTable table;
  EXPECT_FALSE(table.Apply("something", ToJson(Press())));
  EXPECT_FALSE(table.Apply("found.press7", ToJson(Press())));
  EXPECT_FALSE(table.Apply(FindingKey("10-20-0-8-0-1"), ToJson(Press()))) << "another device's";
  EXPECT_FALSE(table.Apply(LinkKey(kDevice), "nonsense"));
  EXPECT_TRUE(table.Rows().empty());
}

TEST(DeviceTableTest, AWrongValueKeepsTheLastGoodOne) {
  DeviceTable table;
  (void)table.Apply(FindingKey(kDevice), ToJson(Press()));
  EXPECT_FALSE(table.Apply(FindingKey(kDevice), "nonsense"));
  EXPECT_EQ(table.Find(kDevice)->finding, Press());
}

}  // namespace
}  // namespace zelgate
