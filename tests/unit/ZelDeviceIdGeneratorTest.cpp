#include "zelcomm/ZelDeviceIdGenerator.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TemporaryFolder.h"
#include "zelcomm/DeviceId.h"

namespace libzel {
namespace {

class ZelDeviceIdGeneratorTest : public testing::Test {
 protected:
  std::string Describe(const std::string& text) { return folder_.Write("zeldevice.xml", text); }
  std::string NoFile() { return folder_.Path("none.xml"); }

  // What this machine's adapters give, all zero without any.
  static std::string AdapterIdentifier() {
    const AdapterTable table = CZelDeviceIdGenerator::BuildAdapterTable();
    return DeviceIdText(table.empty() ? ZelDeviceId{} : DeviceIdFromAdapterIp(table.front().ip));
  }
  static std::string IdentifierOf(CZelDeviceIdGenerator& generator) {
    return DeviceIdText(generator.GetLocalDeviceId());
  }

  zeltest::TemporaryFolder folder_;
};

TEST_F(ZelDeviceIdGeneratorTest, TheDescriptionFileComesFirst) {
  CZelDeviceIdGenerator generator(Describe(R"(<device><deviceInfo deviceId="10.0.0.5.1.1"/></device>)"));
  const zeltest::CapturedLog log;
  EXPECT_EQ(IdentifierOf(generator), "10.0.0.5.1.1");
  const std::vector<zeltest::LogLine> wanted = {{"DEBUG", "ZelDeviceIdGenerator.cpp",
                                                 "CZelDeviceIdGenerator::LoadZelDeviceIdFromXml",
                                                 "xml name:deviceInfo,deviceId:10.0.0.5.1.1"}};
  EXPECT_EQ(log.Lines(), wanted);
}

// As a container engine makes one for a file that it was to mount and did not find.
TEST_F(ZelDeviceIdGeneratorTest, AFolderInTheFilesPlaceLeavesItToTheAdapters) {
  CZelDeviceIdGenerator generator(folder_.Path(""));
  EXPECT_EQ(IdentifierOf(generator), AdapterIdentifier());
}

TEST_F(ZelDeviceIdGeneratorTest, AnIdentifierFromTheFileLeavesTheAdaptersAlone) {
  CZelDeviceIdGenerator generator(Describe(R"(<device><deviceInfo deviceId="10.0.0.5.1.1"/></device>)"));
  EXPECT_EQ(generator.Reload(), 0);
  EXPECT_TRUE(generator.GetAdapterTable().empty());
}

TEST_F(ZelDeviceIdGeneratorTest, TheFileIsReadOnceUntilReload) {
  CZelDeviceIdGenerator generator(Describe(R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/></d>)"));
  EXPECT_EQ(IdentifierOf(generator), "1.2.3.4.5.6");
  Describe(R"(<d><deviceInfo deviceId="6.5.4.3.2.1"/></d>)");
  EXPECT_EQ(IdentifierOf(generator), "1.2.3.4.5.6");
  EXPECT_EQ(generator.Reload(), 0);
  EXPECT_EQ(IdentifierOf(generator), "6.5.4.3.2.1");
}

TEST_F(ZelDeviceIdGeneratorTest, TheRootsNameIsNotLookedAtAndTheFirstOfSeveralCounts) {
  CZelDeviceIdGenerator generator(Describe(
      R"(<any><other deviceId="9.9.9.9.9.9"/><deviceInfo deviceId="1.2.3.4.5.6"/><deviceInfo deviceId="7.7.7.7.7.7"/></any>)"));
  EXPECT_EQ(generator.LoadZelDeviceIdFromXml(), 0);
  EXPECT_EQ(IdentifierOf(generator), "1.2.3.4.5.6");
}

TEST_F(ZelDeviceIdGeneratorTest, WhatStandsInFrontOfAFaultCounts) {
  CZelDeviceIdGenerator generator(Describe(R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/><broken x></d>)"));
  EXPECT_EQ(generator.LoadZelDeviceIdFromXml(), 0);
  EXPECT_EQ(IdentifierOf(generator), "1.2.3.4.5.6");
}

TEST_F(ZelDeviceIdGeneratorTest, ATextThatIsNoIdentifierIsTheZeroIdentifier) {
  for (const char* text : {"1.2.3", "1.2.3.4.5.6.7", "no identifier"}) {
    CZelDeviceIdGenerator generator(Describe(std::string("<d><deviceInfo deviceId=\"") + text + "\"/></d>"));
    EXPECT_EQ(generator.LoadZelDeviceIdFromXml(), 0);
    EXPECT_EQ(IdentifierOf(generator), "0.0.0.0.0.0");
    EXPECT_TRUE(generator.GetAdapterTable().empty());
  }
}

TEST_F(ZelDeviceIdGeneratorTest, AMissingAttributeIsTheZeroIdentifier) {
  CZelDeviceIdGenerator generator(Describe("<d><deviceInfo/></d>"));
  const zeltest::CapturedLog log;
  EXPECT_EQ(generator.LoadZelDeviceIdFromXml(), 0);
  EXPECT_EQ(IdentifierOf(generator), "0.0.0.0.0.0");
  EXPECT_TRUE(log.Has("DEBUG", "xml name:deviceInfo,deviceId:"));
}

TEST_F(ZelDeviceIdGeneratorTest, FilesWithoutTheElementFallBackToTheAdapters) {
  for (const char* text :
       {"<d><inner><deviceInfo deviceId=\"1.2.3.4.5.6\"/></inner></d>",
        "<deviceInfo deviceId=\"1.2.3.4.5.6\"/>", "<d><DeviceInfo deviceId=\"1.2.3.4.5.6\"/></d>",
        "<d><deviceInfo2 deviceId=\"1.2.3.4.5.6\"/></d>", "", "<d"}) {
    CZelDeviceIdGenerator generator(Describe(text));
    EXPECT_EQ(generator.LoadZelDeviceIdFromXml(), -1) << text;
    EXPECT_EQ(IdentifierOf(generator), AdapterIdentifier()) << text;
  }
}

TEST_F(ZelDeviceIdGeneratorTest, WithoutAFileTheAdaptersGiveIdentifierAndTable) {
  CZelDeviceIdGenerator generator(NoFile());
  EXPECT_TRUE(generator.GetAdapterTable().empty());
  EXPECT_EQ(generator.LoadZelDeviceIdFromXml(), -1);
  EXPECT_EQ(generator.LoadZelDeviceIdFromNetAdapters(), -1);
  EXPECT_EQ(IdentifierOf(generator), AdapterIdentifier());
  EXPECT_EQ(generator.GetAdapterTable().size(), CZelDeviceIdGenerator::BuildAdapterTable().size());
}

TEST_F(ZelDeviceIdGeneratorTest, AnUnquotedAttributeIsThrownAndLeavesNothing) {
  CZelDeviceIdGenerator generator(Describe("<d><deviceInfo deviceId='1.2.3.4.5.6'/></d>"));
  EXPECT_THROW(generator.Reload(), std::logic_error);
  EXPECT_THROW(generator.GetLocalDeviceId(), std::logic_error);
  EXPECT_TRUE(generator.GetAdapterTable().empty());
  Describe(R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/></d>)");
  EXPECT_EQ(IdentifierOf(generator), "1.2.3.4.5.6");
}

TEST_F(ZelDeviceIdGeneratorTest, ManyThreadsMayAskAtOnce) {
  CZelDeviceIdGenerator generator(Describe(R"(<d><deviceInfo deviceId="1.2.3.4.5.6"/></d>)"));
  std::vector<std::string> seen(8);
  std::vector<std::thread> threads;
  for (auto& text : seen) threads.emplace_back([&] { text = IdentifierOf(generator); });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(seen, std::vector<std::string>(8, "1.2.3.4.5.6"));
}

TEST(AdapterTableTest, RecordsKeepTheSystemsOrderAndTheirFields) {
  const std::vector<platform::Adapter> adapters = {
      {6, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, "eth1", "172.16.5.9"},
      {71, {0xFF}, "wlan0", "10.0.0.1"},
      {1, {}, "tap0", "10.0.1.1"}};
  const AdapterTable table = CZelDeviceIdGenerator::MakeAdapterTable(adapters);
  ASSERT_EQ(table.size(), 3U);
  EXPECT_EQ(table[0].type, 6U);
  EXPECT_EQ(table[0].mac, "00-1A-2B-3C-4D-5E");
  EXPECT_EQ(table[0].name, "eth1");
  EXPECT_EQ(table[0].ip, "172.16.5.9");
  EXPECT_EQ(table[1].mac, "FF");
  EXPECT_EQ(table[2].mac, "");
}

TEST(AdapterTableTest, AdaptersWithoutAnAddressAreLeftOut) {
  const std::vector<platform::Adapter> adapters = {{6, {1}, "down", "0.0.0.0"}, {6, {2}, "up", "172.16.5.9"}};
  const AdapterTable table = CZelDeviceIdGenerator::MakeAdapterTable(adapters);
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(DeviceIdText(DeviceIdFromAdapterIp(table.front().ip)), "172.16.5.9.1.1");
}

TEST(AdapterTableTest, ARepeatedHardwareAddressOverwritesInPlace) {
  const std::vector<platform::Adapter> adapters = {
      {6, {1}, "first", "10.0.0.1"}, {6, {2}, "second", "10.0.0.2"}, {7, {1}, "third", "10.0.0.3"}};
  const AdapterTable table = CZelDeviceIdGenerator::MakeAdapterTable(adapters);
  ASSERT_EQ(table.size(), 2U);
  EXPECT_EQ(table[0].name, "third");
  EXPECT_EQ(table[0].type, 7U);
  EXPECT_EQ(table[0].ip, "10.0.0.3");
  EXPECT_EQ(table[1].name, "second");
}

TEST(AdapterTableTest, AllMeansAlsoThoseThatShareAHardwareAddressOrHaveNone) {
  const std::vector<platform::Adapter> adapters = {{6, {1}, "first", "10.0.0.1"},
                                                   {6, {1}, "second", "10.0.0.2"},
                                                   {1, {}, "third", "10.0.0.3"},
                                                   {1, {}, "fourth", "10.0.0.4"},
                                                   {6, {2}, "down", "0.0.0.0"}};
  const AdapterTable table =
      CZelDeviceIdGenerator::MakeAdapterTable(adapters, CZelDeviceIdGenerator::Adapters::kAll);
  ASSERT_EQ(table.size(), 4U);
  EXPECT_EQ(table[0].name, "first");
  EXPECT_EQ(table[1].name, "second");
  EXPECT_EQ(table[2].name, "third");
  EXPECT_EQ(table[3].name, "fourth");
}

}  // namespace
}  // namespace libzel
