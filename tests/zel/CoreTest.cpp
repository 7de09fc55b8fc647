// The parts of the program that need no process.
#include <gtest/gtest.h>

#include "DeviceList.h"
#include "Format.h"
#include "Progress.h"
#include "Statistics.h"
#include "Table.h"
#include "Text.h"

namespace zeltool {
namespace {

using std::chrono::seconds;

TEST(TextTest, PrintableShowsControlCharactersAndBrokenUtf8) {
  EXPECT_EQ(Printable("a\x1b[2J\n"), "a\\x1b[2J\\x0a");
  EXPECT_EQ(Printable("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
  EXPECT_EQ(Printable("\xc3"), "\\xc3");
  EXPECT_EQ(Printable("\xc2\x9b"), "\\xc2\\x9b");
  EXPECT_EQ(Printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
}

TEST(TextTest, IsTextTakesLayoutButNoControls) {
  EXPECT_TRUE(IsText(ToBytes("a\tb\r\n")));
  EXPECT_FALSE(IsText(ToBytes("a\x01")));
  EXPECT_FALSE(IsText(Bytes{0xff}));
  EXPECT_TRUE(IsText(Bytes{}));
}

TEST(TextTest, ParseHexTakesUsualNotations) {
  const Bytes wanted = {1, 0x2f, 0xff};
  for (const char* text : {"012fff", "01 2F ff", "01:2f:FF", "0x01 0x2f 0xff"})
    EXPECT_EQ(ParseHex(text), wanted) << text;
  for (const char* text : {"0", "0g", "01 2", "x"}) EXPECT_FALSE(ParseHex(text)) << text;
}

TEST(TextTest, ParseNumberKnowsItsLimit) {
  EXPECT_EQ(ParseNumber("255", 255), 255U);
  EXPECT_EQ(ParseNumber("0xFF", 255), 255U);
  for (const char* text : {"256", "", "-1", "1x", "0x", " 1", "99999999999999999999"}) {
    EXPECT_FALSE(ParseNumber(text, 255)) << text;
  }
}

TEST(TextTest, SizesAndTimesAreReadable) {
  EXPECT_EQ(ReadableSize(17), "17 B");
  EXPECT_EQ(ReadableSize(1536), "1.5 KiB");
  EXPECT_EQ(ReadableDuration(6.2), "0:07");
  EXPECT_EQ(ReadableDuration(3600), "1:00:00");
  EXPECT_EQ(Counted(1, "device"), "1 device");
  EXPECT_EQ(Counted(0, "device"), "0 devices");
}

TEST(TableTest, GrowsWithItsRows) {
  Table table({{"A", 3}, {"B", 0}}, 1, 80);
  EXPECT_FALSE(table.Add({"x", "y"}));
  EXPECT_EQ(table.Header(), "A    B");
  EXPECT_EQ(table.Row(0), "x    y");
  EXPECT_TRUE(table.Add({"longer", ""}));
  EXPECT_EQ(table.Header(), "A       B");
  EXPECT_EQ(table.Row(1), "longer");
  EXPECT_EQ(table.LineCount(), 3U);
}

TEST(TableTest, FoldsRowsThatAreTooWide) {
  Table table({{"NAME", 0}, {"VERSION", 0}, {"SERIAL", 0}}, 1, 20);
  (void)table.Add({"press", "1.2", ""});
  EXPECT_EQ(table.Header(), "NAME");
  EXPECT_EQ(table.Row(0), "press\n    VERSION 1.2");
  EXPECT_EQ(table.LineCount(), 3U);
}

TEST(DeviceListTest, TellsFoundChangedSilentAndBack) {
  DeviceList list;
  const DeviceList::TimePoint start;
  FoundDevice device;
  device.identifier = "1.2.3.4.5.6";
  EXPECT_EQ(list.Note(device, start), DeviceChange::kFound);
  EXPECT_EQ(list.Note(device, start + seconds(1)), DeviceChange::kNone);
  device.hostName = "new";
  EXPECT_EQ(list.Note(device, start + seconds(2)), DeviceChange::kChanged);
  EXPECT_TRUE(list.TakeSilent(start + seconds(11), seconds(10)).empty());
  EXPECT_EQ(list.TakeSilent(start + seconds(12), seconds(10)).size(), 1U);
  EXPECT_TRUE(list.TakeSilent(start + seconds(13), seconds(10)).empty());
  EXPECT_EQ(list.Note(device, start + seconds(14)), DeviceChange::kBack);
  device.address = "10.0.0.1";
  EXPECT_EQ(list.Note(device, start + seconds(14)), DeviceChange::kFound);
  EXPECT_EQ(list.Count(), 2U);
}

TEST(FormatTest, ChecksConversions) {
  EXPECT_EQ(CheckFormat("%T %t%% \\n\\\\"), "");
  for (const char* format : {"%", "%q", "\\", "\\x"}) EXPECT_NE(CheckFormat(format), "") << format;
}

TEST(FormatTest, DefaultLineIsOneLine) {
  Message message;
  message.topic = "t";
  message.data = ToBytes("two\nlines\r\n");
  EXPECT_EQ(DefaultLine(message), "t  two\\x0alines");
}

TEST(StatisticsTest, QuantilesAreValuesThatOccurred) {
  Statistics times;
  for (int i = 100; i > 0; --i) times.Add(i);
  EXPECT_EQ(times.Quantile(0), 1);
  EXPECT_EQ(times.Quantile(0.5), 50);
  EXPECT_EQ(times.Quantile(0.99), 99);
  EXPECT_EQ(times.Quantile(1), 100);
}

TEST(ProgressTest, LineFitsItsTerminal) {
  const ProgressState state{"recipe.bin", 0.5, 10.0 * 1024 * 1024, 2};
  EXPECT_EQ(ProgressLine(state, 90),
            "recipe.bin  50% [==============>              ] 5.0 MiB of 10.0 MiB, 2.5 MiB/s, 0:02 left");
  for (size_t columns = 20; columns < 200; ++columns) {
    EXPECT_LT(DisplayWidth(ProgressLine(state, columns)), columns);
  }
}

TEST(ProgressTest, NothingIsSaidTooEarly) {
  const ProgressState state{"f", 0, 0, 0};
  EXPECT_EQ(Rate(state), 0);
  EXPECT_LT(Remaining(state), 0);
  EXPECT_EQ(ProgressLine(state, 60), "f   0% [>                                      ] 0 B of 0 B");
}

}  // namespace
}  // namespace zeltool
