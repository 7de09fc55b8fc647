#include "zelcomm/DeviceId.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace libzel {
namespace {

using IdBytes = std::array<uint8_t, 6>;

struct TextRow {
  const char* text;
  IdBytes bytes;
};

IdBytes BytesOf(const ZelDeviceId& id) { return std::to_array(id.bytes); }

constexpr TextRow kTexts[] = {
    {"1.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"0.0.0.0.0.0", {}},
    {"192.168.1.20.0.1", {192, 168, 1, 20, 0, 1}},
    {"255.255.255.255.255.255", {255, 255, 255, 255, 255, 255}},
    {"127.0.0.1.1.1", {127, 0, 0, 1, 1, 1}},
    // Only the low 8 bits count.
    {"256.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"300.2.3.4.5.6", {0x2C, 2, 3, 4, 5, 6}},
    {"1.2.3.4.5.257", {1, 2, 3, 4, 5, 1}},
    {"65536.65537.65535.4.5.6", {0, 1, 255, 4, 5, 6}},
    {"2147483647.2.3.4.5.6", {255, 2, 3, 4, 5, 6}},
    {"-2147483648.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"1000.1000.1000.1000.1000.1000", {232, 232, 232, 232, 232, 232}},
    {"511.512.513.4.5.6", {255, 0, 1, 4, 5, 6}},
    // Signs.
    {"-1.2.3.4.5.6", {255, 2, 3, 4, 5, 6}},
    {"1.2.3.4.5.-1", {1, 2, 3, 4, 5, 255}},
    {"-256.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"-255.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"+1.+2.+3.+4.+5.+6", {1, 2, 3, 4, 5, 6}},
    {"-0.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"+-1.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"--1.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"-.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"+.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"- 1.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    // Blanks in front are skipped, those behind end the number.
    {" 1.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"1. 2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"1.2 .3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"1.2.3.4.5.6 ", {1, 2, 3, 4, 5, 6}},
    {"\t1.\n2.\v3.\f4.\r5.6", {1, 2, 3, 4, 5, 6}},
    {"1 9.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"   -1.2.3.4.5.6", {255, 2, 3, 4, 5, 6}},
    {" . . . . . ", {}},
    // Reading stops at the first character that is no digit.
    {"1x.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"x1.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"0x10.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"1e2.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"1,5.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    {"12-3.2.3.4.5.6", {12, 2, 3, 4, 5, 6}},
    {"a.b.c.d.e.f", {}},
    {"\xC2\xB2.2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    // Leading zeros are decimal.
    {"01.002.0003.010.0377.08", {1, 2, 3, 10, 121, 8}},
    {"000000000000000000001.2.3.4.5.6", {1, 2, 3, 4, 5, 6}},
    // Empty components give 0.
    {"1..3.4.5.6", {1, 0, 3, 4, 5, 6}},
    {".2.3.4.5.6", {0, 2, 3, 4, 5, 6}},
    {"1.2.3.4..6", {1, 2, 3, 4, 0, 6}},
    {"1.....6", {1, 0, 0, 0, 0, 6}},
    {".....6", {0, 0, 0, 0, 0, 6}},
    {".....", {}},
    {"......", {}},
    // One dot at the end starts no component, whether or not there are enough.
    {"1.2.3.4.5.6.", {1, 2, 3, 4, 5, 6}},
    {"1.2.3.4.5..", {1, 2, 3, 4, 5, 0}},
    {"1.2.3.4.5.", {}},
    // Another number of components.
    {"", {}},
    {".", {}},
    {"1", {}},
    {"1.", {}},
    {"1.2", {}},
    {"1.2.3", {}},
    {"1.2.3.4", {}},
    {"1.2.3.4.5", {}},
    {"1.2.3.4.5.6.7", {}},
    {"1.2.3.4.5.6..", {}},
    {"1.2.3.4.5.6. ", {}},
    {"1.2.3.4.5.6.x", {}},
    {"1.2.3.4.5.6..7", {}},
    {"1.2.3.4.5.6.7.8", {}},
    {"1,2,3,4,5,6", {}},
    {"1 2 3 4 5 6", {}},
    {"fe80::1", {}},
};

TEST(DeviceIdTest, TextsAreRead) {
  static_assert(std::size(kTexts) >= 60);
  for (const TextRow& row : kTexts) EXPECT_EQ(BytesOf(ParseDeviceId(row.text)), row.bytes) << row.text;
}

TEST(DeviceIdTest, AVeryLongTextIsRead) {
  const std::string spaces(100000, ' ');
  EXPECT_EQ(BytesOf(ParseDeviceId(spaces + "1.2.3.4.5.6")), (IdBytes{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(BytesOf(ParseDeviceId(std::string(100000, '.'))), IdBytes{});
}

TEST(DeviceIdTest, EveryByteIsPrintedAndReadBack) {
  for (int value = 0; value < 256; ++value) {
    const auto byte = static_cast<uint8_t>(value);
    const ZelDeviceId id{{byte, 0, byte, 255, 9, byte}};
    const std::string number = std::to_string(value);
    EXPECT_EQ(DeviceIdText(id), number + ".0." + number + ".255.9." + number);
    EXPECT_EQ(BytesOf(ParseDeviceId(DeviceIdText(id))), BytesOf(id));
  }
}

TEST(DeviceIdTest, AnAdaptersAddressGivesAnIdentifier) {
  EXPECT_EQ(BytesOf(DeviceIdFromAdapterIp("192.168.1.20")), (IdBytes{192, 168, 1, 20, 1, 1}));
  EXPECT_EQ(BytesOf(DeviceIdFromAdapterIp("10.77.0.1")), (IdBytes{10, 77, 0, 1, 1, 1}));
}

TEST(DeviceIdTest, TheFirstDifferingByteOrders) {
  const DeviceIdLess less;
  for (size_t i = 0; i < 6; ++i) {
    ZelDeviceId low{{5, 5, 5, 5, 5, 5}};
    ZelDeviceId high = low;
    high.bytes[i] = 200;
    for (size_t after = i + 1; after < 6; ++after) low.bytes[after] = 255;
    EXPECT_TRUE(less(low, high)) << i;
    EXPECT_FALSE(less(high, low)) << i;
    EXPECT_FALSE(less(low, low)) << i;
  }
}

}  // namespace
}  // namespace libzel
