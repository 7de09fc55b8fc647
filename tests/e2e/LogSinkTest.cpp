// The log in the application's hands: sink and level.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/OwnProcess.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace {

using zeltest::Instance;

struct SunkLine {
  int32_t level = 0;
  int64_t unixNs = 0;
  uint32_t thread = 0;
  std::string file;
  std::string function;
  int32_t line = 0;
  std::string message;
};

// What a sink was given.
class SunkLines {
 public:
  static void Sink(int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
                   int32_t line, const char* message, void* user) {
    static_cast<SunkLines*>(user)->lines_.Add({level, unixNs, thread, file, function, line, message});
  }
  std::vector<SunkLine> With(const std::string& message) const {
    std::vector<SunkLine> found;
    for (const SunkLine& line : lines_.All()) {
      if (line.message == message) found.push_back(line);
    }
    return found;
  }
  bool HasLevel(int32_t level) const {
    for (const SunkLine& line : lines_.All()) {
      if (line.level == level) return true;
    }
    return false;
  }
  size_t Count() const { return lines_.Count(); }

 private:
  zeltest::Recorder<SunkLine> lines_;
};

int64_t NowNs() {
  return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

// What reaches standard output meanwhile, without the carriage returns of some runtimes.
std::string OutputOf(const std::function<void()>& action) {
  (void)fflush(stdout);
  testing::internal::CaptureStdout();
  action();
  std::string output = testing::internal::GetCapturedStdout();
  std::erase(output, '\r');
  return output;
}

// The first line with the message, from behind its time stamp to its end.
std::string LineBehindStamp(const std::string& output, const std::string& message) {
  const size_t at = output.find("]:" + message + "\n");
  if (at == std::string::npos) return "no line: " + message;
  const size_t begin = output.rfind('\n', at) + 1;
  return output.substr(begin + 23, output.find('\n', at) - begin - 23);
}

class LogSinkTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(libzel_init(), 0); }
  void TearDown() override {
    EXPECT_EQ(libzelx_setLogLevel(LIBZELX_LOG_DEBUG), ZEL_OK);
    EXPECT_EQ(libzelx_setLogSink(libzelx_stdoutSink, nullptr), ZEL_OK);
  }

  // Makes the library log one ERROR line on this thread, "topic:<topic> no subscribe".
  void Log(const char* topic) const { (void)libzel_unsubscribe(instance_, topic); }
  void Sink(libzelx_LogSink sink, void* user) { ASSERT_EQ(libzelx_setLogSink(sink, user), ZEL_OK); }

  Instance instance_{zeltest::DeviceWithoutServer(), 100};
};

TEST_F(LogSinkTest, ASinkGetsEveryPartOfALine) {
  SunkLines lines;
  Sink(SunkLines::Sink, &lines);
  const int64_t before = NowNs();
  Log("a");
  const int64_t after = NowNs();
  Sink(nullptr, nullptr);
  const auto found = lines.With("topic:a no subscribe");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].level, LIBZELX_LOG_ERROR);
  EXPECT_GE(found[0].unixNs, before);
  EXPECT_LE(found[0].unixNs, after);
  EXPECT_EQ(found[0].file, "ZelTcpclient.cpp");
  EXPECT_EQ(found[0].function, "CTcpclient::UnSubscribe");
  EXPECT_GT(found[0].line, 1);
}

TEST_F(LogSinkTest, TheThreadIsTheOneThatLogs) {
  SunkLines lines;
  Sink(SunkLines::Sink, &lines);
  Log("here");
  Log("here");
  std::thread([&] { Log("there"); }).join();
  Sink(nullptr, nullptr);
  const auto here = lines.With("topic:here no subscribe");
  const auto there = lines.With("topic:there no subscribe");
  ASSERT_EQ(here.size(), 2U);
  ASSERT_EQ(there.size(), 1U);
  EXPECT_EQ(here[0].thread, here[1].thread);
  EXPECT_NE(here[0].thread, there[0].thread);
}

TEST_F(LogSinkTest, ASinkRunsOnTheThreadThatLogs) {
  std::thread::id ranOn;
  Sink(
      [](int32_t, int64_t, uint32_t, const char*, const char*, int32_t, const char* message, void* user) {
        if (std::string(message) == "topic:a no subscribe")
          *static_cast<std::thread::id*>(user) = std::this_thread::get_id();
      },
      &ranOn);
  Log("a");
  Sink(nullptr, nullptr);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(LogSinkTest, WithASinkNothingReachesStandardOutput) {
  SunkLines lines;
  const std::string output = OutputOf([&] {
    Sink(SunkLines::Sink, &lines);
    Log("a");
  });
  EXPECT_EQ(output, "");
}

TEST_F(LogSinkTest, NullSendsTheLinesNowhere) {
  const std::string output = OutputOf([&] {
    Sink(nullptr, nullptr);
    Log("a");
  });
  EXPECT_EQ(output, "");
}

TEST_F(LogSinkTest, StandardOutputCanBeHadBack) {
  Sink(nullptr, nullptr);
  const std::string output = OutputOf([&] {
    Sink(libzelx_stdoutSink, nullptr);
    Log("a");
  });
  EXPECT_NE(output.find("]:topic:a no subscribe\n"), std::string::npos) << output;
}

TEST_F(LogSinkTest, StdoutSinkWritesTheLineThatTheDefaultWrites) {
  const std::string byDefault = OutputOf([&] { Log("a"); });
  Sink([](int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
          int32_t line, const char* message,
          void* user) { libzelx_stdoutSink(level, unixNs, thread, file, function, line, message, user); },
       nullptr);
  const std::string bySink = OutputOf([&] { Log("a"); });
  const std::string message = "topic:a no subscribe";
  EXPECT_EQ(LineBehindStamp(bySink, message), LineBehindStamp(byDefault, message));
  EXPECT_NE(LineBehindStamp(bySink, message).find(" \x1b[31m[libzel,ERROR,ZelTcpclient.cpp,"),
            std::string::npos);
}

TEST_F(LogSinkTest, StdoutSinkCanBeCalledOnItsOwn) {
  Sink(nullptr, nullptr);
  const std::string output = OutputOf([] {
    // 2025-01-16 10:09:37.123456789 UTC
    libzelx_stdoutSink(LIBZELX_LOG_INFO, 1737022177123456789, 7, "a.cpp", "F", 12, "m", nullptr);
    libzelx_stdoutSink(3, 0, 4294967295U, nullptr, nullptr, -1, nullptr, nullptr);
  });
  EXPECT_EQ(output,
            "2025-01-16 18:09:37.123 \x1b[33m[libzel,INFO,a.cpp,F,12,7\x1b[37m]:m\n"
            "1970-01-01 08:00:00.000 \x1b[33m[libzel,UNKNOWN,(null),(null),-1,4294967295\x1b[37m]:(null)\n");
}

TEST_F(LogSinkTest, StdoutSinkLeavesTheErrorNumber) {
  (void)libzel_loop_start(1);
  (void)OutputOf([] { libzelx_stdoutSink(1, 0, 7, "a.cpp", "F", 12, "m", nullptr); });
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(LogSinkTest, OneCallRunsAtATime) {
  struct Calls {
    std::atomic<int> running = 0, most = 0;
  } calls;
  Sink(
      [](int32_t, int64_t, uint32_t, const char*, const char*, int32_t, const char*, void* user) {
        Calls& seen = *static_cast<Calls*>(user);
        seen.most = std::max(seen.most.load(), ++seen.running);
        std::this_thread::yield();
        --seen.running;
      },
      &calls);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < 2000; ++n) Log("a");
    });
  }
  for (std::thread& thread : threads) thread.join();
  Sink(nullptr, nullptr);
  EXPECT_EQ(calls.most, 1);
}

// A sink that is told when it has been replaced.
struct ReplacedSink {
  std::atomic<bool> isReplaced = false;
  std::atomic<int> calls = 0, callsTooLate = 0;

  static void Sink(int32_t, int64_t, uint32_t, const char*, const char*, int32_t, const char*, void* user) {
    auto& self = *static_cast<ReplacedSink*>(user);
    ++self.calls;
    for (int i = 0; i < 3; ++i) {
      if (self.isReplaced) ++self.callsTooLate;
      std::this_thread::yield();
    }
  }
};

TEST_F(LogSinkTest, AReplacedSinkNoLongerRuns) {
  std::vector<ReplacedSink> sinks(300);
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop) Log("a");
    });
  }
  for (size_t i = 0; i < sinks.size(); ++i) {
    Sink(ReplacedSink::Sink, &sinks[i]);
    if (i > 0) sinks[i - 1].isReplaced = true;
    // The next one comes while this one is at work.
    EXPECT_TRUE(zeltest::Eventually([&] { return sinks[i].calls > 0; }));
  }
  Sink(nullptr, nullptr);
  sinks.back().isReplaced = true;
  for (int n = 0; n < 1000; ++n) Log("b");
  stop = true;
  for (std::thread& thread : threads) thread.join();
  int tooLate = 0;
  for (const ReplacedSink& sink : sinks) tooLate += sink.callsTooLate;
  EXPECT_EQ(tooLate, 0);
}

struct Misuse {
  Instance* instance = nullptr;
  int calls = 0;
  int32_t result = -1;
  int32_t errorNumber = -1;
};

TEST_F(LogSinkTest, ASinkThatSetsTheSinkIsRefused) {
  Misuse misuse;
  Sink(
      [](int32_t, int64_t, uint32_t, const char*, const char*, int32_t, const char* message, void* user) {
        auto& seen = *static_cast<Misuse*>(user);
        if (std::string(message) != "topic:a no subscribe") return;
        ++seen.calls;
        seen.result = libzelx_setLogSink(nullptr, nullptr);
        seen.errorNumber = libzel_get_errno();
      },
      &misuse);
  Log("a");
  Log("a");
  Sink(nullptr, nullptr);
  EXPECT_EQ(misuse.result, LIBZELX_E_WOULD_BLOCK);
  EXPECT_EQ(misuse.errorNumber, LIBZELX_E_WOULD_BLOCK);
  EXPECT_EQ(misuse.calls, 2) << "it stays";
}

TEST_F(LogSinkTest, ALineThatASinkCausesIsDropped) {
  Misuse misuse;
  misuse.instance = &instance_;
  Sink(
      [](int32_t, int64_t, uint32_t, const char*, const char*, int32_t, const char* message, void* user) {
        auto& seen = *static_cast<Misuse*>(user);
        const std::string text = message;
        if (text != "topic:a no subscribe" && text != "topic:b no subscribe") return;
        ++seen.calls;
        seen.result = libzel_unsubscribe(*seen.instance, "b");
      },
      &misuse);
  Log("a");
  Sink(nullptr, nullptr);
  EXPECT_EQ(misuse.result, ZEL_E_TOPIC);
  EXPECT_EQ(misuse.calls, 1);
}

TEST_F(LogSinkTest, AMessageIsCutAt8191Bytes) {
  SunkLines lines;
  Sink(SunkLines::Sink, &lines);
  const std::string topic(9000, 't');
  Log(topic.c_str());
  Sink(nullptr, nullptr);
  EXPECT_EQ(lines.With(("topic:" + topic).substr(0, 8191)).size(), 1U);
}

TEST_F(LogSinkTest, LinesBelowTheLevelDoNotReachTheSink) {
  SunkLines lines;
  Sink(SunkLines::Sink, &lines);
  ASSERT_EQ(libzelx_setLogLevel(LIBZELX_LOG_CRITICAL), ZEL_OK);
  Log("a");
  ASSERT_EQ(libzelx_setLogLevel(LIBZELX_LOG_ERROR), ZEL_OK);
  Log("b");
  Sink(nullptr, nullptr);
  EXPECT_EQ(lines.With("topic:a no subscribe").size(), 0U);
  EXPECT_EQ(lines.With("topic:b no subscribe").size(), 1U);
}

TEST_F(LogSinkTest, TheLevelHoldsForStandardOutputToo) {
  const std::string output = OutputOf([&] {
    (void)libzelx_setLogLevel(LIBZELX_LOG_NOTHING);
    Log("a");
  });
  EXPECT_EQ(output, "");
}

TEST_F(LogSinkTest, ALevelSetAfterInitHolds) {
  SunkLines lines;
  (void)libzelx_setLogLevel(LIBZELX_LOG_TRACE);
  Sink(SunkLines::Sink, &lines);
  { const Instance other(zeltest::DeviceWithoutServer(), 100); }
  Sink(nullptr, nullptr);
  EXPECT_TRUE(lines.HasLevel(LIBZELX_LOG_TRACE));
}

// What libzel_init does with the level, each in a process of its own.
class LogLevelTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { zeltest::UseFreshProcesses(); }

  // The lines of a start and of an instance, which has one of TRACE.
  static void StartAndConnect(SunkLines& lines) {
    ASSERT_EQ(libzelx_setLogSink(SunkLines::Sink, &lines), ZEL_OK);
    ASSERT_EQ(libzel_init(), 0);
    { const Instance instance(zeltest::DeviceWithoutServer(), 100); }
    ASSERT_EQ(libzelx_setLogSink(nullptr, nullptr), ZEL_OK);
  }
};

TEST_F(LogLevelTest, InitSetsDebugByDefault) {
  IN_OWN_PROCESS({
    SunkLines lines;
    StartAndConnect(lines);
    EXPECT_TRUE(lines.HasLevel(LIBZELX_LOG_DEBUG));
    EXPECT_FALSE(lines.HasLevel(LIBZELX_LOG_TRACE));
  });
}

TEST_F(LogLevelTest, InitKeepsALowerLevel) {
  IN_OWN_PROCESS({
    SunkLines lines;
    EXPECT_EQ(libzelx_setLogLevel(LIBZELX_LOG_TRACE), ZEL_OK);
    StartAndConnect(lines);
    EXPECT_TRUE(lines.HasLevel(LIBZELX_LOG_TRACE));
  });
}

TEST_F(LogLevelTest, InitKeepsAHigherLevel) {
  IN_OWN_PROCESS({
    SunkLines lines;
    EXPECT_EQ(libzelx_setLogLevel(LIBZELX_LOG_NOTICE), ZEL_OK);
    StartAndConnect(lines);
    EXPECT_EQ(lines.With("libzelclient Version 0.2.3").size(), 1U);
    EXPECT_FALSE(lines.HasLevel(LIBZELX_LOG_DEBUG));
    EXPECT_FALSE(lines.HasLevel(LIBZELX_LOG_ERROR));
  });
}

TEST_F(LogLevelTest, InitIsSilentWhenNothingIsWanted) {
  IN_OWN_PROCESS({
    SunkLines lines;
    EXPECT_EQ(libzelx_setLogLevel(LIBZELX_LOG_NOTHING), ZEL_OK);
    StartAndConnect(lines);
    EXPECT_EQ(lines.Count(), 0U);
  });
}

TEST_F(LogLevelTest, AnotherInitKeepsTheLevel) {
  IN_OWN_PROCESS({
    SunkLines lines;
    ASSERT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_setLogLevel(LIBZELX_LOG_NOTICE), ZEL_OK);
    StartAndConnect(lines);
    EXPECT_FALSE(lines.HasLevel(LIBZELX_LOG_DEBUG));
  });
}

}  // namespace
