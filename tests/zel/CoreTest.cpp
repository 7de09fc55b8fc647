// The parts of the program that need no process.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "DeviceList.h"
#include "ErrorPage.h"
#include "Format.h"
#include "HelpText.h"
#include "Progress.h"
#include "Reasons.h"
#include "RecordFile.h"
#include "Statistics.h"
#include "Stopper.h"
#include "Table.h"
#include "Text.h"
#include "TimeStamp.h"

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

TEST(TextTest, ParseRealTakesFiniteNumbersOnly) {
  EXPECT_EQ(ParseReal("0.5"), 0.5);
  EXPECT_EQ(ParseReal("1e3"), 1000.0);
  for (const char* text : {"", "nan", "inf", "1e999", "1x", " 1", "0x10"})
    EXPECT_FALSE(ParseReal(text)) << text;
}

TEST(TextTest, IsUtf8TakesControlsToo) {
  EXPECT_TRUE(IsUtf8("gr\xc3\xbc\x01"));
  EXPECT_FALSE(IsUtf8("gr\xfc"));
}

TEST(StopperTest, ALongTimeIsNotOver) {
  for (const double time : {1e10, 1e30, 1e300, std::numeric_limits<double>::infinity(), std::nan("")}) {
    EXPECT_GT(After(time), Clock::now() + std::chrono::hours(24 * 365)) << time;
  }
}

TEST(StopperTest, ATimeThatIsPastIsNow) {
  for (const double time : {0.0, -1.0, -1e300}) {
    const auto before = Clock::now();
    const auto then = After(time);
    EXPECT_GE(then, before) << time;
    EXPECT_LE(then, Clock::now()) << time;
  }
}

TEST(TimeStampTest, IsReadAsItIsWritten) {
  for (const char* text :
       {"1970-01-01T00:00:00.000Z", "2026-11-21T20:37:04.123Z", "2261-12-31T23:59:59.999Z"}) {
    const auto time = ParseTimeStamp(text);
    ASSERT_TRUE(time) << text;
    EXPECT_EQ(TimeStamp(*time), text);
  }
}

TEST(TimeStampTest, TakesZonesAndFractions) {
  const auto time = ParseTimeStamp("2026-11-22T00:30:00.5Z");
  for (const char* text :
       {"2026-11-22T02:00:00.500+01:30", "2026-11-21t23:30:00.50-01:00", "2026-11-22T00:30:00.5009z"}) {
    EXPECT_EQ(ParseTimeStamp(text), time) << text;
  }
  EXPECT_EQ(ParseTimeStamp("2016-12-31T23:59:60Z"), ParseTimeStamp("2017-01-01T00:00:00Z"));
}

TEST(TimeStampTest, RefusesWhatIsNoTime) {
  for (const char* text : {"",
                           "now",
                           "2026-11-21",
                           "2026-11-21T20:37:04",
                           "2026-11-21T20:37:04Zx",
                           "2026-11-21T20:37:04.Z",
                           "2026-11-21T24:00:00Z",
                           "2026-11-21T20:60:00Z",
                           "2026-11-21T20:37:61Z",
                           "2026-02-30T00:00:00Z",
                           "2026-13-01T00:00:00Z",
                           "2026-1-1T00:00:00Z",
                           " 026-11-21T20:37:04Z",
                           "2026-11-21T20:37:+4Z",
                           "2026-11-21T20:37:nanZ",
                           "2026-11-21T20:37:1e1Z",
                           "2026-11-21T20:37:04+1:00",
                           "2026-11-21T20:37:04+24:00",
                           "2026-11-21T20:37:04*01:00",
                           "1969-12-31T23:59:59Z",
                           "9999-12-31T00:00:00Z"}) {
    EXPECT_FALSE(ParseTimeStamp(text)) << text;
  }
}

TEST(RecordFileTest, ReadsWhatSubAndRecordWrite) {
  const auto message = ReadPublication(
      R"({"time":"2026-11-21T20:37:04.123Z","topic":"a/b","group":1,"offset":4294967295,"length":2,"hex":"00 ff"})");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->topic, "a/b");
  EXPECT_EQ(message->group, 1U);
  EXPECT_EQ(message->offset, 4294967295U);
  EXPECT_EQ(message->data, (Bytes{0, 255}));
}

TEST(RecordFileTest, ReadsATopicThatIsNoUtf8) {
  const auto message = ReadPublication(R"({"time":"2026-11-21T20:37:04Z","topicBase64":"/w==","text":""})");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->topic, "\xff");
}

TEST(RecordFileTest, TheFailureThatEndsASubscriptionIsSkipped) {
  EXPECT_FALSE(ReadPublication(R"({"what":"interrupted","status":130})"));
}

TEST(RecordFileTest, SaysWhatIsWrong) {
  const std::string time = R"("time":"2026-11-21T20:37:04Z")";
  const std::vector<std::pair<std::string, std::string>> wrong = {
      {"{", "no JSON, at byte 2"},
      {"[]", "no JSON object"},
      {"{}", R"("topic" is missing)"},
      {R"({"topic":1})", R"("topic" is no text)"},
      {R"({"topic":"a\u0000b"})", R"("topic" has a zero byte)"},
      {R"({"topicBase64":"?"})", R"("topicBase64" cannot be decoded)"},
      {R"({"topic":"t","group":-1})", R"("group" is no number from 0 to 4294967295)"},
      {R"({"topic":"t","group":1.5})", R"("group" is no number from 0 to 4294967295)"},
      {R"({"topic":"t","group":"1"})", R"("group" is no number from 0 to 4294967295)"},
      {R"({"topic":"t","offset":4294967296})", R"("offset" is no number from 0 to 4294967295)"},
      {R"({"topic":"t"})", R"(the data are not given once, as "text", "base64" or "hex")"},
      {R"({"topic":"t","text":"","hex":""})", R"(the data are not given once, as "text", "base64" or "hex")"},
      {R"({"topic":"t","text":1})", R"("text" is no text)"},
      {R"({"topic":"t","hex":"0"})", R"("hex" cannot be decoded)"},
      {R"({"topic":"t","base64":"0"})", R"("base64" cannot be decoded)"},
      {R"({"topic":"t","text":"ab","length":3,)" + time + "}", R"("length" is not that of the data, 2)"},
      {R"({"topic":"t","text":""})", R"("time" is missing)"},
      {R"({"topic":"t","text":"","time":0})", R"("time" is no text)"},
      {R"({"topic":"t","text":"","time":"soon"})",
       R"("time" is no time from 1970 to 2261, as in 2026-11-21T20:37:04.123Z)"},
  };
  for (const auto& [line, what] : wrong) {
    try {
      (void)ReadPublication(line);
      ADD_FAILURE() << line;
    } catch (const std::invalid_argument& problem) {
      EXPECT_EQ(problem.what(), what) << line;
    }
  }
}

TEST(HelpTextTest, TakesParagraphsAndRowsApart) {
  const auto parts = ReadHelp("One\ntwo:\n  left   what it is\n  alone\nthree\n\nfour");
  ASSERT_EQ(parts.size(), 4U);
  EXPECT_EQ(parts[0].paragraph, "One two:");
  ASSERT_EQ(parts[1].rows.size(), 2U);
  EXPECT_EQ(parts[1].rows[0].left, "left");
  EXPECT_EQ(parts[1].rows[0].right, "what it is");
  EXPECT_EQ(parts[1].rows[1].left, "alone");
  EXPECT_EQ(parts[2].paragraph, "three");
  EXPECT_EQ(parts[3].paragraph, "four");
}

TEST(HelpTextTest, MeaningsStandInOneColumnOrBelow) {
  EXPECT_EQ(ShowRows({{"a", "short"}, {"long-word", "is below"}}, 14, 5),
            "  a  short\n  long-word\n      is below\n");
  EXPECT_EQ(ShowRows({{"ab", "one two three"}}, 14, 5), "  ab  one two\n      three\n");
}

TEST(HelpTextTest, FitsItsColumns) {
  EXPECT_EQ(ShowHelp("Some:\n  a  b\n\nmore words", 10), "Some:\n  a  b\n\nmore words\n");
  EXPECT_EQ(ShowHelp("one two three", 8), "one two\nthree\n");
}

TEST(HelpTextTest, IsEscapedForManAndMarkdown) {
  EXPECT_EQ(ShowHelpForMan("-a \\n"), ".PP\n\\-a \\en\n");
  EXPECT_EQ(EscapeForMarkdown("with --json, or <it>."), "with `--json`, or `<it>`.");
  EXPECT_EQ(ShowHelpInMarkdown("Try:\n  zel x  it"), "\nTry:\n\n```sh\nzel x # it\n```\n");
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

TEST(TableTest, ANarrowLineHasFewerColumns) {
  Table table({{"NAME", 8}, {"ADDRESS", 8}, {"VERSION", 0}}, 2, 16);
  (void)table.Add({"press", "10.0.0.1", "1.2"});
  EXPECT_EQ(table.Header(), "NAME");
  EXPECT_EQ(table.Row(0), "press\n    ADDRESS\n    10.0.0.1,\n    VERSION 1.2");
  EXPECT_EQ(table.LineCount(), 5U);
}

TEST(TextTest, ADumpMayBeNarrow) {
  EXPECT_EQ(HexDump(ToBytes("abcde"), 4), "00000000 61 62 63 64  |abcd|\n00000004 65           |e|\n");
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
