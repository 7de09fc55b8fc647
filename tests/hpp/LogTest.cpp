// Where the library's log goes in a C++ program.
#include <gtest/gtest.h>
#include <libzel/libzel.hpp>

#include <algorithm>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Gathered.h"

namespace zeltest {
namespace {

using zel::LogLevel;
using zel::Options;

// What goes to std::clog while this lives. It outlives the Library that writes there.
class ClogText {
 public:
  ClogText() : earlier_(std::clog.rdbuf(text_.rdbuf())) {}
  ~ClogText() { std::clog.rdbuf(earlier_); }
  ClogText(const ClogText&) = delete;
  ClogText& operator=(const ClogText&) = delete;
  std::string Get() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* earlier_;
};

std::string StdoutOf(const std::function<void()>& action) {
  testing::internal::CaptureStdout();
  action();
  (void)fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

// An ERROR line, "topic:<topic> no subscribe", with lines of other levels around it.
void LogAnError(const std::string& topic = "a") {
  auto connection =
      zel::Connection::Create(*zel::DeviceId::Parse("127.0.0.9.0.1"), {zel::Milliseconds(100), nullptr});
  connection->Unsubscribe(topic).Ignore();
}

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Lines as a test keeps them.
struct Kept {
  LogLevel level;
  std::string function;
  std::string message;
};

class Lines {
 public:
  zel::LogSink Sink() {
    return [this](const zel::LogLine& line) {
      all_.push_back({line.level, std::string(line.function), std::string(line.message)});
    };
  }
  // When no Library lives.
  size_t CountOf(const std::string& message) const {
    return static_cast<size_t>(
        std::count_if(all_.begin(), all_.end(), [&](const Kept& line) { return line.message == message; }));
  }
  bool HasLevel(LogLevel level) const {
    return std::any_of(all_.begin(), all_.end(), [&](const Kept& line) { return line.level == level; });
  }
  const std::vector<Kept>& All() const { return all_; }

 private:
  std::vector<Kept> all_;  // without a lock: one call at a time
};

TEST(LogTest, FailuresGoToClogByDefault) {
  const ClogText clog;
  {
    const zel::Library library;
    LogAnError();
  }
  EXPECT_TRUE(Has(clog.Get(), "libzel ERROR CTcpclient::UnSubscribe: topic:a no subscribe\n")) << clog.Get();
}

TEST(LogTest, NothingElseGoesThere) {
  const ClogText clog;
  { const zel::Library library; }
  EXPECT_EQ(clog.Get(), "");
}

// A device that sends what nobody asked for makes a line of each.
TEST(LogTest, RepeatedFailuresGoThereOnce) {
  const ClogText clog;
  {
    const zel::Library library;
    for (int i = 0; i < 100; ++i) LogAnError("topic" + std::to_string(i));
  }
  EXPECT_TRUE(Has(clog.Get(), "topic:topic0 no subscribe\n")) << clog.Get();
  EXPECT_FALSE(Has(clog.Get(), "topic:topic1 no subscribe\n")) << clog.Get();
}

TEST(LogTest, HeldBackFailuresAreCountedWithTheNext) {
  const ClogText clog;
  zel::LogSink sink = Options().Sink();
  zel::LogLine line{LogLevel::kError, {}, 1, "File.cpp", "Class::Function", 7, "again"};
  for (int i = 0; i < 4; ++i) sink(line);
  line.time += std::chrono::seconds(10);
  sink(line);
  line.line = 8;
  sink(line);
  const std::string written = "libzel ERROR Class::Function: again\n";
  EXPECT_EQ(clog.Get(),
            written + "libzel ERROR Class::Function: 3 more like the next one\n" + written + written);
}

TEST(LogTest, NothingGoesToStandardOutputByDefault) {
  const ClogText clog;
  EXPECT_EQ(StdoutOf([] {
              const zel::Library library;
              LogAnError();
            }),
            "");
}

TEST(LogTest, SinkGetsTheLinesInPlaceOfStandardOutput) {
  Lines lines;
  EXPECT_EQ(StdoutOf([&] {
              const zel::Library library(Options().Log(lines.Sink()));
              LogAnError();
            }),
            "");
  EXPECT_EQ(lines.CountOf("topic:a no subscribe"), 1U);
}

TEST(LogTest, SinkGetsEveryPartOfALine) {
  Kept text{};
  zel::LogLine numbers;
  const auto before = std::chrono::system_clock::now();
  {
    const zel::Library library(Options().Log([&](const zel::LogLine& line) {
      if (line.message != "topic:parts no subscribe") return;
      text = {line.level, std::string(line.function), std::string(line.file)};
      numbers = {line.level, line.time, line.thread, {}, {}, line.line, {}};
    }));
    LogAnError("parts");
  }
  EXPECT_EQ(text.level, LogLevel::kError);
  EXPECT_EQ(text.function, "CTcpclient::UnSubscribe");
  EXPECT_EQ(text.message, "ZelTcpclient.cpp");
  EXPECT_GT(numbers.line, 1);
  EXPECT_NE(numbers.thread, 0U);
  EXPECT_GE(numbers.time + std::chrono::milliseconds(1), before);
  EXPECT_LE(numbers.time, std::chrono::system_clock::now());
}

TEST(LogTest, LevelIsKept) {
  Lines few, many;
  {
    const zel::Library library(Options().Log(few.Sink(), LogLevel::kError));
    LogAnError();
  }
  {
    const zel::Library library(Options().Log(many.Sink(), LogLevel::kDebug));
    LogAnError();
  }
  EXPECT_TRUE(few.HasLevel(LogLevel::kError));
  EXPECT_FALSE(few.HasLevel(LogLevel::kWarning) || few.HasLevel(LogLevel::kInfo) ||
               few.HasLevel(LogLevel::kDebug));
  EXPECT_TRUE(many.HasLevel(LogLevel::kError));
  EXPECT_TRUE(many.HasLevel(LogLevel::kDebug));
}

TEST(LogTest, NothingAsALevelLeavesNoLine) {
  Lines lines;
  {
    const zel::Library library(Options().Log(lines.Sink(), LogLevel::kNothing));
    LogAnError();
  }
  EXPECT_TRUE(lines.All().empty());
}

TEST(LogTest, EmptySinkDropsAll) {
  const ClogText clog;
  EXPECT_EQ(StdoutOf([] {
              const zel::Library library(Options().Log(nullptr));
              LogAnError();
            }),
            "");
  EXPECT_EQ(clog.Get(), "");
}

TEST(LogTest, StandardOutputIsThereOnRequest) {
  const ClogText clog;
  const std::string output = StdoutOf([] {
    const zel::Library library(Options().LogToStdout());
    LogAnError();
  });
  EXPECT_TRUE(Has(output, "[libzel,NOTICE,")) << output;
  EXPECT_TRUE(Has(output, "[libzel,DEBUG,")) << output;
  EXPECT_TRUE(Has(output, "topic:a no subscribe")) << output;
  EXPECT_EQ(clog.Get(), "");
}

TEST(LogTest, SinkIsLetGoOfWithTheLibrary) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = held;
  {
    const zel::Library library(Options().Log([kept = std::move(held)](const zel::LogLine&) { (void)kept; }));
    EXPECT_FALSE(seen.expired());
  }
  EXPECT_TRUE(seen.expired());
}

TEST(LogTest, EndOfAnEarlierLibraryLeavesTheLogOfALaterOne) {
  Lines first, second;
  {
    auto earlier = std::make_unique<zel::Library>(Options().Log(first.Sink()));
    const zel::Library later(Options().Log(second.Sink()));
    earlier.reset();
    LogAnError();
  }
  EXPECT_EQ(first.CountOf("topic:a no subscribe"), 0U);
  EXPECT_EQ(second.CountOf("topic:a no subscribe"), 1U);
}

TEST(LogTest, EndOfALaterLibraryGivesTheLogBack) {
  Lines first, second;
  {
    const zel::Library earlier(Options().Log(first.Sink()));
    { const zel::Library later(Options().Log(second.Sink(), LogLevel::kNothing)); }
    LogAnError();
  }
  EXPECT_EQ(first.CountOf("topic:a no subscribe"), 1U);
  EXPECT_EQ(second.All().size(), 0U);
}

TEST(LogTest, ExceptionOfASinkGoesToTheHandler) {
  Gathered<std::string> texts;
  zel::SetExceptionHandler([&](std::exception_ptr thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const std::exception& e) {
      texts.Add(e.what());
    }
  });
  {
    const zel::Library library(
        Options().Log([](const zel::LogLine& line) { throw std::runtime_error(std::string(line.message)); }));
    LogAnError("thrown");
  }
  zel::SetExceptionHandler(nullptr);
  const auto all = texts.All();
  EXPECT_EQ(std::count(all.begin(), all.end(), "topic:thrown no subscribe"), 1);
}

TEST(LogTest, ManyThreadsLogOneLineAtATime) {
  constexpr int kThreads = 8, kLines = 200;
  Lines lines;
  {
    const zel::Library library(Options().Log(lines.Sink()));
    auto connection =
        zel::Connection::Create(*zel::DeviceId::Parse("127.0.0.9.0.1"), {zel::Milliseconds(100), nullptr});
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (int k = 0; k < kLines; ++k) connection->Unsubscribe("many").Ignore();
      });
    }
    for (auto& thread : threads) thread.join();
  }
  EXPECT_EQ(lines.CountOf("topic:many no subscribe"), static_cast<size_t>(kThreads * kLines));
}

}  // namespace
}  // namespace zeltest
