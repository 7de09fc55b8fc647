// Scans, and identifiers asked of a host.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Device.h"
#include "Gathered.h"

namespace zeltest {
namespace {

constexpr zel::Milliseconds kTimeout{5000};

class DiscoveryTest : public testing::Test {
 protected:
  ~DiscoveryTest() override {
    library.StopScan();
    library.OnDevice(nullptr);
  }
  zel::Library& library = TheLibrary();
};

TEST_F(DiscoveryTest, ScanFindsTheDevice) {
  Gathered<zel::Device> found;
  ASSERT_TRUE(library.OnDevice([&](const zel::Device& device) { found.Add(device); }));
  ASSERT_TRUE(library.StartScan());
  ASSERT_TRUE(found.Await(1));
  const zel::Device device = found.All().at(0);
  EXPECT_EQ(device.address, kDeviceHost);
  EXPECT_EQ(device.id, TheDevice());
  EXPECT_EQ(device.idText, "10.77.0.2.0.1");
  EXPECT_EQ(device.hostName, "press-4");
  EXPECT_EQ(device.protocolVersion, "1.5");
  EXPECT_EQ(device.hardwareAddress, "02:00:0A:4D:00:02");
  library.OnDevice(nullptr);
}

TEST_F(DiscoveryTest, RemovedCallbackIsLetGoOf) {
  auto held = std::make_shared<Gathered<int>>();
  const std::weak_ptr<Gathered<int>> seen = held;
  ASSERT_TRUE(library.OnDevice([held](const zel::Device&) { held->Add(1); }));
  ASSERT_TRUE(library.StartScan());
  ASSERT_TRUE(held->Await(1));
  held.reset();
  EXPECT_FALSE(seen.expired());
  ASSERT_TRUE(library.OnDevice(nullptr));
  EXPECT_TRUE(seen.expired());
}

TEST_F(DiscoveryTest, CallbackMayRemoveItself) {
  Gathered<int> calls;
  ASSERT_TRUE(library.OnDevice([&](const zel::Device&) {
    library.OnDevice(nullptr);
    calls.Add(1);
  }));
  ASSERT_TRUE(library.StartScan());
  EXPECT_TRUE(calls.Await(1));
  Gathered<int> later;
  ASSERT_TRUE(library.OnDevice([&](const zel::Device&) { later.Add(1); }));
  EXPECT_TRUE(later.Await(1));
  EXPECT_EQ(calls.All().size(), 1U);
  library.OnDevice(nullptr);
}

TEST_F(DiscoveryTest, EndOfAnotherLibraryLeavesTheScan) {
  Gathered<zel::Device> found;
  ASSERT_TRUE(library.OnDevice([&](const zel::Device& device) { found.Add(device); }));
  ASSERT_TRUE(library.StartScan());
  { const zel::Library other; }
  EXPECT_TRUE(found.Await(2));
  library.OnDevice(nullptr);
}

TEST_F(DiscoveryTest, CallbackEndsWithItsLibrary) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = held;
  {
    zel::Library other;
    ASSERT_TRUE(other.OnDevice([kept = std::move(held)](const zel::Device&) { (void)kept; }));
    EXPECT_FALSE(seen.expired());
  }
  EXPECT_TRUE(seen.expired());
}

TEST_F(DiscoveryTest, HostTellsAndTakesItsIdentifier) {
  const auto id = zel::DeviceId::Of(kDeviceHost, kTimeout);
  EXPECT_TRUE(id) << id.Text();
  EXPECT_EQ(*id, TheDevice());
  const zel::DeviceId other(1, 2, 3, 4, 5, 6);
  EXPECT_TRUE(other.AssignTo(kDeviceHost, kTimeout));
  EXPECT_EQ(*zel::DeviceId::Of(kDeviceHost, kTimeout), other);
  EXPECT_TRUE(TheDevice().AssignTo(kDeviceHost, kTimeout));
}

TEST_F(DiscoveryTest, SilentHostIsATimeout) {
  const auto id = zel::DeviceId::Of("127.0.0.9", zel::Milliseconds(100));
  EXPECT_EQ(id.Code(), ZEL_E_TIMEOUT);
  EXPECT_EQ(*id, zel::DeviceId());
}

TEST_F(DiscoveryTest, LocalIdentifierIsThisHosts) {
  const auto id = zel::DeviceId::Local();
  EXPECT_TRUE(id);
  EXPECT_NE(*id, zel::DeviceId());
}

}  // namespace
}  // namespace zeltest
