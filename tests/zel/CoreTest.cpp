// The parts of the program that need no process.
#include <gtest/gtest.h>

#include "DeviceList.h"
#include "ErrorPage.h"
#include "Format.h"
#include "Progress.h"
#include "Reasons.h"
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

TEST(TextTest, Base64IsThatOfTheStandard) {
  const std::vector<std::pair<std::string, std::string>> pairs = {
      {"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
      {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xff\xfe\xfd", "//79"}};
  for (const auto& [text, base64] : pairs) {
    EXPECT_EQ(Base64(ToBytes(text)), base64);
    EXPECT_EQ(ParseBase64(base64), ToBytes(text));
  }
  for (const char* wrong : {"Zg=", "Z===", "Zg==Zg==", "Z!8="}) EXPECT_FALSE(ParseBase64(wrong)) << wrong;
}

TEST(TextTest, WrapsAtWords) {
  EXPECT_EQ(Wrapped("one two three", 12, 5), "one two\n     three");
  EXPECT_EQ(Wrapped("", 10, 5), "");
  EXPECT_EQ(Wrapped("aVeryLongWord x", 5, 2), "aVeryLongWord\n  x");
}

TEST(ErrorPageTest, ReadsRowsAndNothingElse) {
  const auto entries = ReadErrorPage(
      "| Code | Name and text | Cause | Cure |\n|---:|---|---|---|\n"
      "| 4108<br>0x100C | `ZEL_E_A`, `ZEL_E_B`<br>\"text\" | Some `cause`. | Look ([there](wire.md#x)). |\n"
      "| 3<br>0x0003 | \"no name\" | x | y |\nwords\n");
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].code, 4108);
  EXPECT_EQ(entries[0].names, (std::vector<std::string>{"ZEL_E_A", "ZEL_E_B"}));
  EXPECT_EQ(entries[0].cause, "Some cause.");
  EXPECT_EQ(entries[0].cure, "Look.");
  EXPECT_TRUE(entries[1].names.empty());
}

TEST(DeviceListTest, PointsOutTwins) {
  DeviceList list;
  FoundDevice device;
  device.identifier = "1.2.3.4.5.6";
  device.address = "10.0.0.1";
  (void)list.Note(device, {});
  EXPECT_TRUE(list.Twins().empty());
  device.address = "10.0.0.2";
  (void)list.Note(device, {});
  EXPECT_EQ(list.Twins(),
            std::vector<std::string>{"several devices have the identifier 1.2.3.4.5.6: 10.0.0.1, 10.0.0.2"});
}

TEST(ReasonsTest, EachHasASentenceAndAnAdvice) {
  EXPECT_EQ(ExplainConnect("10.0.0.9", "connect 10.0.0.9:9999: refused").sentence,
            "10.0.0.9 refuses connections to TCP port 9999");
  EXPECT_EQ(ExplainConnect("10.0.0.9", "connect 10.0.0.9:9999: no route").sentence,
            "there is no way to 10.0.0.9");
  EXPECT_EQ(ExplainConnect("10.0.0.9", "connect 10.0.0.9:9999: timed out").sentence,
            "10.0.0.9 does not answer on TCP port 9999");
  EXPECT_EQ(ExplainConnect("10.0.0.9", "").sentence, "10.0.0.9 cannot be reached");
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
