#include "Text.h"

#include <gtest/gtest.h>

#include <fstream>

#include "Support.h"

namespace zelsim {
namespace {

TEST(Text, NumbersAreDecimalOrHexadecimalAndBounded) {
  EXPECT_EQ(ParseNumber("42"), 42u);
  EXPECT_EQ(ParseNumber("0xA00000"), 0xA00000u);
  EXPECT_EQ(ParseNumber("256", 255), std::nullopt);
  for (const char* text : {"", "0x", "-1", " 1", "1 ", "1x", "18446744073709551616"}) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
  }
}

TEST(Text, BytesAreHexadecimalPairs) {
  EXPECT_EQ(ParseBytes("00ffA0"), (Bytes{0, 255, 160}));
  EXPECT_EQ(ParseBytes(""), Bytes{});
  EXPECT_EQ(ParseBytes("0"), std::nullopt);
  EXPECT_EQ(ParseBytes("0g"), std::nullopt);
}

TEST(Text, BytesMayComeFromAFile) {
  test::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/bytes";
  std::ofstream(path, std::ios::binary) << "ab";
  EXPECT_EQ(ParseBytes("@" + path), (Bytes{'a', 'b'}));
  EXPECT_EQ(ParseBytes("@" + path + ".none"), std::nullopt);
}

TEST(Text, EscapedTextHoldsNoBlankAndNoEqualsSign) {
  EXPECT_EQ(Escape("plain/topic"), "plain/topic");
  EXPECT_EQ(Escape("a b=c%\n\xff"), "a%20b%3dc%25%0a%ff");
}

}  // namespace
}  // namespace zelsim
