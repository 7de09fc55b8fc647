#include "utils/Log.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/Platform.h"
#include "utils/LogFormat.h"

namespace libzel {
namespace {

constexpr const char* kFile = "src\\zelclient\\Test.cpp";
constexpr size_t kStampSize = 23;

std::string OutputOf(const std::function<void()>& action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

std::string WithoutStamp(const std::string& line) { return line.substr(std::min(kStampSize, line.size())); }

std::string ThreadText() { return std::to_string(platform::ThreadId()); }

std::string MessageOf(const std::string& line) {
  constexpr std::string_view kBehindHead = "\x1b[37m]:";
  return line.substr(line.find(kBehindHead) + kBehindHead.size());
}

class LogTest : public testing::Test {
 protected:
  void SetUp() override { SetLogLevel(0); }
  void TearDown() override { SetLogLevel(0); }
};

TEST_F(LogTest, ALineHasItsTenFields) {
  const std::string line = OutputOf([] { LogPrint(8, kFile, "Socket::readn", 1234, "%s=%d", "answer", 42); });
  EXPECT_TRUE(std::regex_search(line, std::regex(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )"))) << line;
  EXPECT_EQ(WithoutStamp(line),
            " \x1b[31m[libzel,ERROR,Test.cpp,Socket::readn,1234," + ThreadText() + "\x1b[37m]:answer=42\n");
}

TEST_F(LogTest, EveryLevelHasItsNameAndColour) {
  struct Row {
    int32_t level;
    const char* colour;
    const char* name;
  };
  constexpr Row kRows[] = {
      {0, "33", "TRACE"},           {1, "33", "DEBUG"},     {2, "33", "INFO"},     {4, "31", "WARNING"},
      {8, "31", "ERROR"},           {16, "33", "CRITICAL"}, {32, "33", "NOTICE"},  {256, "33", "COMM"},
      {3, "33", "UNKNOWN"},         {5, "33", "UNKNOWN"},   {64, "33", "UNKNOWN"}, {128, "33", "UNKNOWN"},
      {INT32_MAX, "33", "UNKNOWN"},
  };
  for (const Row& row : kRows) {
    const std::string line = OutputOf([&row] { LogPrint(row.level, kFile, "F", 1, "m"); });
    EXPECT_EQ(WithoutStamp(line), std::string(" \x1b[") + row.colour + "m[libzel," + row.name +
                                      ",Test.cpp,F,1," + ThreadText() + "\x1b[37m]:m\n");
  }
}

TEST_F(LogTest, LevelsBelowTheThresholdPrintNothing) {
  struct Row {
    int32_t threshold;
    int32_t level;
    bool printed;
  };
  constexpr Row kRows[] = {
      {0, 0, true},          {0, -1, false},
      {0, INT32_MIN, false}, {1, 0, false},
      {1, 1, true},          {1, 256, true},
      {1, -1, false},        {1, 3, true},
      {9, 8, false},         {9, 16, true},
      {-5, -5, true},        {-5, -6, false},
      {257, 256, false},     {INT32_MAX, INT32_MAX - 1, false},
  };
  for (const Row& row : kRows) {
    SetLogLevel(row.threshold);
    const std::string output = OutputOf([&row] { LogPrint(row.level, kFile, "F", 1, "m"); });
    EXPECT_EQ(!output.empty(), row.printed) << row.threshold << " " << row.level;
  }
}

TEST_F(LogTest, ASuppressedLineEvaluatesNothing) {
  int evaluated = 0;
  SetLogLevel(1);
  EXPECT_EQ(OutputOf([&evaluated] { ZEL_LOG(kTrace, "%d", ++evaluated); }), "");
  EXPECT_EQ(evaluated, 0);
  EXPECT_NE(OutputOf([&evaluated] { ZEL_LOG(kComm, "%d", ++evaluated); }), "");
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LogTest, OnlyBackslashesSeparateTheFilesPath) {
  struct Row {
    const char* path;
    const char* printed;
  };
  constexpr Row kRows[] = {
      {"a\\b\\c.cpp", "c.cpp"},
      {"c:\\x\\include/zelclient/RouterTable.h", "include/zelclient/RouterTable.h"},
      {"src/utils/Log.cpp", "(null)"},
      {"Log.cpp", "(null)"},
      {"", "(null)"},
      {"a\\", ""},
      {"\\", ""},
  };
  for (const Row& row : kRows) {
    const std::string line = OutputOf([&row] { LogPrint(1, row.path, "F", 1, "m"); });
    EXPECT_NE(line.find(std::string("[libzel,DEBUG,") + row.printed + ",F,1,"), std::string::npos) << line;
  }
}

TEST_F(LogTest, LineNumbersAreSigned) {
  EXPECT_NE(OutputOf([] { LogPrint(1, kFile, "F", -7, "m"); }).find(",F,-7,"), std::string::npos);
}

TEST_F(LogTest, AMessageIsCutTo8191Characters) {
  const std::string fits(8191, 'a');
  for (const size_t more : {0U, 1U, 2U, 1000U, 100000U}) {
    const std::string text = fits + std::string(more, 'b');
    EXPECT_EQ(MessageOf(OutputOf([&] { LogPrint(1, kFile, "F", 1, "%s", text.c_str()); })), fits + "\n")
        << more;
    // A conversion that the runtime does.
    EXPECT_EQ(MessageOf(OutputOf([&] { LogPrint(1, kFile, "F", 1, "%-1s", text.c_str()); })), fits + "\n")
        << more;
  }
  EXPECT_EQ(MessageOf(OutputOf([&] { LogPrint(1, kFile, "F", 1, "%s%s", fits.c_str() + 1, "xy"); })),
            fits.substr(1) + "x\n");
}

TEST_F(LogTest, AnEmptyMessageIsALine) {
  EXPECT_EQ(MessageOf(OutputOf([] { LogPrint(1, kFile, "F", 1, "%s", ""); })), "\n");
}

struct Thing {
  static void Speak() { ZEL_LOG(kInfo, "spoken"); }
};

TEST_F(LogTest, ACallSiteIsNamedByItsFunction) {
  const std::string line = OutputOf(Thing::Speak);
  EXPECT_NE(line.find("[libzel,INFO,LogTest.cpp,"), std::string::npos) << line;
  EXPECT_NE(line.find("Thing::Speak,"), std::string::npos) << line;
  EXPECT_EQ(MessageOf(line), "spoken\n");
}

TEST_F(LogTest, NamesAreCutFromTheCompilersText) {
  using log_internal::QualifiedName;
  static_assert(QualifiedName("uint32_t libzel::Socket::readn(uint8_t*, uint32_t, int64_t)") ==
                "Socket::readn");
  static_assert(QualifiedName("virtual bool libzel::TcpSocket::Connect(int64_t)") == "TcpSocket::Connect");
  static_assert(QualifiedName("const char* libzel::Name()") == "Name");
  static_assert(QualifiedName("int& libzel::Map::at(int)") == "Map::at");
  static_assert(QualifiedName("libzel::CTcpclient::CTcpclient(int)") == "CTcpclient::CTcpclient");
  static_assert(QualifiedName("bool libzel::xml::Document::Parse(const char*)") ==
                "libzel::xml::Document::Parse");
  static_assert(QualifiedName("void libzel::(anonymous namespace)::Thing::Speak(int)") == "Thing::Speak");
  static_assert(QualifiedName("void libzel::{anonymous}::Thing::Speak(int)") == "Thing::Speak");
  static_assert(QualifiedName("void libzel::Speak(libzel::{anonymous}::Thing)") == "Speak");
  static_assert(QualifiedName("void libzel::Speak(libzel::(anonymous namespace)::Thing)") == "Speak");
  static_assert(log_internal::FileName("/a/b/c.cpp") == "c.cpp");
  static_assert(log_internal::FileName("c.cpp") == "c.cpp");
}

// What the sink was given last.
struct Sunk {
  int32_t level = 0, line = 0;
  int64_t unixNs = 0;
  uint32_t thread = 0;
  std::string file, function, message;

  static void Take(int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
                   int32_t line, const char* message, void* user) {
    *static_cast<Sunk*>(user) = {level, line, unixNs, thread, file, function, message};
  }
  static Sunk Of(const std::function<void()>& action) {
    Sunk sunk;
    EXPECT_TRUE(SetLogSink(Take, &sunk));
    action();
    EXPECT_TRUE(SetLogSink(WriteLogLine, nullptr));
    return sunk;
  }
};

TEST_F(LogTest, ASinkGetsThePartsOfACallSite) {
  const Sunk sunk = Sunk::Of(Thing::Speak);
  EXPECT_EQ(sunk.level, 2);
  EXPECT_EQ(sunk.thread, platform::ThreadId());
  EXPECT_EQ(sunk.file, "LogTest.cpp");
  EXPECT_TRUE(sunk.function.ends_with("Thing::Speak")) << sunk.function;
  EXPECT_GT(sunk.line, 0);
  EXPECT_EQ(sunk.message, "spoken");
}

TEST_F(LogTest, ASinkGetsThePartsThatAreKnownAtRunTime) {
  const Sunk sunk = Sunk::Of([] { LogPrint(64, kFile, "F", -7, "%d", 5); });
  EXPECT_EQ(sunk.level, 64);
  EXPECT_EQ(sunk.file, "Test.cpp");
  EXPECT_EQ(sunk.function, "F");
  EXPECT_EQ(sunk.line, -7);
  EXPECT_EQ(sunk.message, "5");
}

TEST_F(LogTest, AFunctionOfAnyLengthEndsSomewhere) {
  static constexpr char kLong[] =
      "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
      "aaaaaaaaaaaaaa"
      "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
      "aaaaaaaaaaaaaa";
  const Sunk sunk = Sunk::Of([] { ZEL_LOG_AS(kLong, kInfo, "m"); });
  EXPECT_EQ(sunk.function, std::string(99, 'a'));
}

TEST_F(LogTest, APassedOnLineIsThatOfTheDefaultToTheLetter) {
  const Sunk sunk = Sunk::Of([] { LogPrint(8, kFile, "F", 7, "%s", "m"); });
  const std::string line = OutputOf([&sunk] {
    WriteLogLine(sunk.level, sunk.unixNs, sunk.thread, sunk.file.c_str(), sunk.function.c_str(), sunk.line,
                 sunk.message.c_str(), nullptr);
  });
  const std::chrono::system_clock::time_point when{std::chrono::nanoseconds(sunk.unixNs)};
  EXPECT_EQ(line.substr(0, kStampSize), FormatTimeStamp(when));
  EXPECT_EQ(WithoutStamp(line), WithoutStamp(OutputOf([] { LogPrint(8, kFile, "F", 7, "%s", "m"); })));
}

TEST_F(LogTest, APassedOnMessageIsCutTo8191Characters) {
  const std::string message(9000, 'a');
  const std::string line = OutputOf([&] { WriteLogLine(8, 0, 1, "f", "F", 7, message.c_str(), nullptr); });
  EXPECT_EQ(MessageOf(line), message.substr(0, 8191) + "\n");
}

TEST_F(LogTest, APassedOnLineOfAnyPlaceIsCut) {
  const std::string place(3000, 'p');
  const std::string line =
      OutputOf([&] { WriteLogLine(8, 0, 1, place.c_str(), place.c_str(), 7, "m", nullptr); });
  EXPECT_TRUE(line.ends_with("1\x1b[37m]:m\n"));
  EXPECT_LT(line.size(), 1100U);
}

TEST_F(LogTest, LinesOfThreadsNeverMix) {
  constexpr int kLines = 2000;
  const std::string output = OutputOf([] {
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
      threads.emplace_back([letter] {
        const std::string text(300, letter);
        for (int i = 0; i < kLines; ++i) LogPrint(1, kFile, "F", 1, "%s", text.c_str());
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::istringstream lines(output);
  std::array<int, 4> counts{};
  for (std::string line; std::getline(lines, line);) {
    const std::string message = MessageOf(line);
    ASSERT_EQ(message, std::string(300, message.empty() ? '?' : message[0])) << line;
    ++counts.at(static_cast<size_t>(message[0] - 'a'));
  }
  EXPECT_EQ(counts, (std::array{kLines, kLines, kLines, kLines}));
}

TEST_F(LogTest, StampsOfLaterLinesAreNotEarlier) {
  const std::string output = OutputOf([] {
    for (int i = 0; i < 2000; ++i) LogPrint(1, kFile, "F", 1, "m");
  });
  std::istringstream lines(output);
  std::string last;
  for (std::string line; std::getline(lines, line); last = line.substr(0, kStampSize)) {
    ASSERT_LE(last, line.substr(0, kStampSize));
  }
}

std::chrono::system_clock::time_point At(int year, unsigned month, unsigned day,
                                         std::chrono::milliseconds time) {
  return std::chrono::sys_days(std::chrono::year(year) / static_cast<int>(month) / static_cast<int>(day)) +
         time;
}

TEST_F(LogTest, AStampIsEightHoursAheadWithoutCarry) {
  using namespace std::chrono_literals;
  EXPECT_EQ(FormatTimeStamp(At(2025, 1, 16, 10h + 9min + 37s + 123ms)), "2025-01-16 18:09:37.123");
  EXPECT_EQ(FormatTimeStamp(At(2025, 1, 16, 20h + 15min + 500ms)), "2025-01-16 28:15:00.500");
  EXPECT_EQ(FormatTimeStamp(At(2024, 12, 31, 23h + 59min + 59s + 999ms)), "2024-12-31 31:59:59.999");
  EXPECT_EQ(FormatTimeStamp(At(2024, 2, 29, 0ms)), "2024-02-29 08:00:00.000");
  EXPECT_EQ(FormatTimeStamp(At(2025, 6, 1, 16h)), "2025-06-01 24:00:00.000");
}

TEST_F(LogTest, TheStampIsOfNow) {
  const auto before = std::chrono::system_clock::now();
  const std::string stamp = GetTimeStampText();
  EXPECT_GE(stamp, FormatTimeStamp(before));
  EXPECT_LE(stamp, FormatTimeStamp(std::chrono::system_clock::now()));
}

TEST_F(LogTest, TheBuildTimeIsPutInOrder) {
  EXPECT_EQ(FormatBuildTime("Jan 16 2025", "10:09:37"), "2025-01-16 10:09:37");
  EXPECT_EQ(FormatBuildTime("Feb  3 2025", "00:00:00"), "2025-02-03 00:00:00");
  struct Month {
    const char* date;
    const char* printed;
  };
  constexpr Month kMonths[] = {
      {"Jan  1 2031", "2031-01-01 x"}, {"Feb  1 2031", "2031-02-01 x"}, {"Mar  1 2031", "2031-03-01 x"},
      {"Apr  1 2031", "2031-04-01 x"}, {"May  1 2031", "2031-05-01 x"}, {"Jun  1 2031", "2031-06-01 x"},
      {"Jul  1 2031", "2031-07-01 x"}, {"Aug  1 2031", "2031-08-01 x"}, {"Sep  1 2031", "2031-09-01 x"},
      {"Oct  1 2031", "2031-10-01 x"}, {"Nov  1 2031", "2031-11-01 x"}, {"Dec  1 2031", "2031-12-01 x"},
  };
  for (const Month& month : kMonths) EXPECT_EQ(FormatBuildTime(month.date, "x"), month.printed);
}

TEST_F(LogTest, TheBuildTimeOfThisBuildIsADate) {
  EXPECT_TRUE(
      std::regex_match(GetBuildTimeText(), std::regex(R"(20\d\d-[01]\d-[0-3]\d [0-2]\d:[0-5]\d:[0-5]\d)")));
}

// What FormatMessage makes of a format within `capacity`.
std::string Formatted(size_t capacity, const char* format, ...) {
  std::vector<char> out(capacity + 1, '\xEE');
  va_list arguments;
  va_start(arguments, format);
  const size_t size = FormatMessage(out.data(), capacity, format, arguments);
  va_end(arguments);
  return {out.data(), size};
}

TEST_F(LogTest, MessagesAreFormattedAsByTheRuntime) {
  EXPECT_EQ(Formatted(99, "plain"), "plain");
  EXPECT_EQ(Formatted(99, ""), "");
  EXPECT_EQ(Formatted(99, "%d,%d,%d", 0, INT32_MIN, INT32_MAX), "0,-2147483648,2147483647");
  EXPECT_EQ(Formatted(99, "%u %x", UINT32_MAX, 0xBEEF), "4294967295 beef");
  EXPECT_EQ(Formatted(99, "100%%%c%s", '!', "x"), "100%!x");
  EXPECT_EQ(Formatted(99, "%s", static_cast<const char*>(nullptr)), "(null)");
  EXPECT_EQ(Formatted(99, "%02x:%5.1f|%lld", 7, 2.25, 1LL << 40), "07:  2.2|1099511627776");
}

TEST_F(LogTest, MessagesAreCutAtTheCapacity) {
  for (size_t capacity = 1; capacity < 12; ++capacity) {
    const std::string whole = "ab-123-zz";
    EXPECT_EQ(Formatted(capacity, "%s%d-%s", "ab", -123, "zz"), whole.substr(0, capacity)) << capacity;
    EXPECT_EQ(Formatted(capacity, "%-2s%d-%s", "ab", -123, "zz"), whole.substr(0, capacity)) << capacity;
  }
}

}  // namespace
}  // namespace libzel
