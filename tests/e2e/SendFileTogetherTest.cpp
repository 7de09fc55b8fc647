// Files of libzelx_sendFile to several devices at the same time, and what becomes of them when the library
// is ended.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/ElapsedTime.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/Options.h"
#include "support/SendingFile.h"

namespace zeltest {
namespace {

// Answers each message after a while.
class SlowDevice {
 public:
  explicit SlowDevice(int pauseMs)
      : device([pauseMs](const Bytes& message, size_t) {
          std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
          return GoodFileAnswer(message);
        }) {}

  FileDevice device;
};

class SendFileTogetherTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  static constexpr int kAnswerMs = 900;  // the library waits for an answer a little longer
  const Deadline deadline_{100};
  const SentFile file_{20000};
  const SentFile small_{100};
};

TEST_F(SendFileTogetherTest, WithOneWorkerFilesGoOneAfterTheOther) {
  const SlowDevice slow(100);
  const FileDevice quick;
  FileEventRecorder seen;
  uint64_t first = 0;
  ASSERT_EQ(SendFile(slow.device.Target(), file_.path(), seen, &first), 0);
  ASSERT_EQ(SendFile(quick.Target(), file_.path(), seen), 0);
  ASSERT_TRUE(seen.AwaitEnds(2));
  EXPECT_EQ(seen.EndEvents()[0].ticket, first);
}

TEST_F(SendFileTogetherTest, WithMoreWorkersASlowDeviceHoldsUpNoQuickOne) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 4);
  FileEventRecorder seen;
  const FileDevice slow([&](const Bytes& message, size_t number) {
    if (number == 0) {
      EXPECT_TRUE(seen.AwaitEnds(9, kAnswerMs));
    }
    return GoodFileAnswer(message);
  });
  const FileDevice quick[3];
  uint64_t slowest = 0;
  ASSERT_EQ(SendFile(slow.Target(), small_.path(), seen, &slowest), 0);
  for (const FileDevice& device : quick) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(SendFile(device.Target(), small_.path(), seen), 0);
  }
  ASSERT_TRUE(seen.AwaitEnds(10));
  EXPECT_EQ(seen.EndEvents().back().ticket, slowest);
  for (const libzelx_FileEvent& end : seen.EndEvents()) EXPECT_EQ(end.result, 0);
}

TEST_F(SendFileTogetherTest, WithEightWorkersFilesToOneDeviceGoInOrder) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 8);
  const FileDevice device;
  FileEventRecorder seen;
  std::vector<uint64_t> tickets(20);
  for (uint64_t& ticket : tickets) ASSERT_EQ(SendFile(device.Target(), file_.path(), seen, &ticket), 0);
  ASSERT_TRUE(seen.AwaitEnds(20));
  uint64_t last = 0;
  for (const auto& [event, thread] : seen.All()) {
    EXPECT_GE(event.ticket, last);
    last = event.ticket;
  }
  EXPECT_EQ(device.connections(), 1);
}

TEST_F(SendFileTogetherTest, EightWorkersSendToEightDevicesAtTheSameTime) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 8);
  std::atomic<int> asked{0};
  // Each answers its first message when all have got theirs.
  const auto reaction = [&asked](const Bytes& message, size_t number) {
    if (number == 0) ++asked;
    EXPECT_TRUE(Eventually([&] { return asked >= 8; }, kAnswerMs));
    return GoodFileAnswer(message);
  };
  std::vector<std::unique_ptr<FileDevice>> devices;
  for (int i = 0; i < 8; ++i) devices.push_back(std::make_unique<FileDevice>(reaction));
  FileEventRecorder seen;
  for (const auto& device : devices) ASSERT_EQ(SendFile(device->Target(), file_.path(), seen), 0);
  ASSERT_TRUE(seen.AwaitEnds(8));
  for (const libzelx_FileEvent& end : seen.EndEvents()) EXPECT_EQ(end.result, 0);
}

TEST_F(SendFileTogetherTest, NoMoreThanTheWorkersSendAtTheSameTime) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 2);
  std::atomic<int> open{0};
  std::atomic<int> most{0};
  FileEventRecorder seen([&](const libzelx_FileEvent& event, size_t) {
    if (event.ended != 0) {
      --open;
    } else if (event.sent == 0) {
      const int now = ++open;
      int before = most;
      while (before < now && !most.compare_exchange_weak(before, now)) {
      }
    }
    return 0;
  });
  std::vector<std::unique_ptr<SlowDevice>> devices;
  for (int i = 0; i < 6; ++i) devices.push_back(std::make_unique<SlowDevice>(20));
  for (const auto& device : devices) ASSERT_EQ(SendFile(device->device.Target(), file_.path(), seen), 0);
  ASSERT_TRUE(seen.AwaitEnds(6));
  EXPECT_EQ(most, 2);
}

TEST_F(SendFileTogetherTest, MoreWorkersComeWhileFilesWait) {
  FileEventRecorder seen;
  std::atomic<bool> isSet{false};
  // The option counts from the next message on.
  const FileDevice slow([&](const Bytes& message, size_t number) {
    if (number == 0) {
      EXPECT_TRUE(Eventually([&] { return isSet.load(); }, kAnswerMs));
    } else if (number == 1) {
      EXPECT_TRUE(seen.AwaitEnds(1, kAnswerMs));
    }
    return GoodFileAnswer(message);
  });
  const FileDevice quick;
  uint64_t slowest = 0;
  ASSERT_EQ(SendFile(slow.Target(), small_.path(), seen, &slowest), 0);
  ASSERT_EQ(SendFile(quick.Target(), small_.path(), seen), 0);
  ASSERT_TRUE(slow.messages.Await(1));
  const OptionSet workers(LIBZELX_FILE_WORKERS, 2);
  isSet = true;
  ASSERT_TRUE(seen.AwaitEnds(2));
  EXPECT_EQ(seen.EndEvents().back().ticket, slowest);
}

TEST_F(SendFileTogetherTest, HostileDevicesLeaveTheOthersAlone) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 8);
  const FileDevice silent([](const Bytes&, size_t) { return Bytes{}; });
  const FileDevice closing([](const Bytes&, size_t) -> std::optional<Bytes> { return std::nullopt; });
  const FileDevice refusing([](const Bytes&, size_t) { return FileAnswer(1, 8201); });
  const FileDevice garbled([](const Request&, size_t) -> std::optional<Bytes> { return Bytes(100, 0xFF); });
  const FileDevice good;
  FileEventRecorder bad;
  FileEventRecorder seen;
  for (int i = 0; i < 3; ++i) {
    for (const FileDevice* device : {&silent, &closing, &refusing, &garbled})
      ASSERT_EQ(SendFile(device->Target(), file_.path(), bad), 0);
    ASSERT_EQ(SendFile(good.Target(), file_.path(), seen), 0);
  }
  ASSERT_TRUE(seen.AwaitEnds(3));
  for (const libzelx_FileEvent& end : seen.EndEvents()) EXPECT_EQ(end.result, 0);
  ASSERT_TRUE(bad.AwaitEnds(12, 30000));
  EXPECT_EQ(bad.Ends(), 12U);
  for (const libzelx_FileEvent& end : bad.EndEvents()) EXPECT_NE(end.result, 0);
}

TEST_F(SendFileTogetherTest, ASlowCallbackHoldsUpItsOwnFileAlone) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 2);
  const FileDevice devices[2];
  FileEventRecorder quick;
  std::atomic<bool> isDone{false};
  FileEventRecorder slow([&](const libzelx_FileEvent&, size_t) {
    EXPECT_TRUE(Eventually([&] { return isDone.load(); }));
    return 0;
  });
  ASSERT_EQ(SendFile(devices[0].Target(), file_.path(), slow), 0);
  ASSERT_EQ(SendFile(devices[1].Target(), file_.path(), quick), 0);
  EXPECT_EQ(quick.End().result, 0);
  isDone = true;
  EXPECT_EQ(slow.End().result, 0);
}

// ---- The end of the library -------------------------------------------------------------------------------

// The tests' own sockets outlive the end: one start more.
void DestroyLibrary() {
  EXPECT_EQ(libzel_init(), 0);
  EXPECT_EQ(libzel_destory(), 0);
}

class DestroyedFilesTest : public SendFileTogetherTest {
 protected:
  // Ten files, to silent devices and to good ones.
  void SubmitTen(FileEventRecorder& seen) {
    for (int i = 0; i < 5; ++i) {
      ASSERT_EQ(SendFile(silent_[i % 2].Target(), file_.path(), seen), 0);
      ASSERT_EQ(SendFile(silent_[(i + 1) % 2].Target(), file_.path(), seen), 0);
    }
    ASSERT_TRUE(silent_[0].messages.Await(1));
  }

  static std::optional<Bytes> Nothing(const Request&, size_t) { return Bytes{}; }
  const FileDevice silent_[2] = {FileDevice(&Nothing), FileDevice(&Nothing)};
};

class DestroyedFilesWithWorkersTest : public DestroyedFilesTest, public testing::WithParamInterface<int> {
  const OptionSet workers_{LIBZELX_FILE_WORKERS, GetParam()};
};

TEST_P(DestroyedFilesWithWorkersTest, TenInFlightHaveEndedWhenItReturns) {
  FileEventRecorder seen;
  SubmitTen(seen);
  const ElapsedTime time;
  DestroyLibrary();
  EXPECT_LT(time.AwakeMs(), 900);
  EXPECT_EQ(seen.Ends(), 10U);
  EXPECT_EQ(seen.Count(), 10U);
  for (const libzelx_FileEvent& end : seen.EndEvents()) EXPECT_EQ(end.result, LIBZELX_E_CANCELLED);
}

TEST_P(DestroyedFilesWithWorkersTest, FromACallbackAllButItsOwnHaveEndedWhenItReturns) {
  const FileDevice device;
  FileEventRecorder seen;
  std::atomic<bool> areSubmitted{false};
  std::atomic<size_t> ends{0};
  FileEventRecorder destroying([&](const libzelx_FileEvent& event, size_t number) {
    if (number == 0) {
      EXPECT_EQ(event.ended, 0);
      EXPECT_TRUE(Eventually([&] { return areSubmitted.load(); }));
      DestroyLibrary();
      ends = seen.Ends();
    }
    return 0;
  });
  if (GetParam() == 1) {
    ASSERT_EQ(SendFile(device.Target(), file_.path(), destroying), 0);
    for (int i = 0; i < 10; ++i) ASSERT_EQ(SendFile(silent_[i % 2].Target(), file_.path(), seen), 0);
  } else {
    SubmitTen(seen);
    ASSERT_EQ(SendFile(device.Target(), file_.path(), destroying), 0);
  }
  areSubmitted = true;
  EXPECT_EQ(destroying.End().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ends, 10U);
  EXPECT_EQ(seen.Ends(), 10U);
  EXPECT_EQ(destroying.Ends(), 1U);
}

TEST_P(DestroyedFilesWithWorkersTest, FromAnEndsCallback) {
  const FileDevice device;
  FileEventRecorder seen;
  std::atomic<bool> areSubmitted{false};
  std::atomic<size_t> ends{0};
  FileEventRecorder destroying([&](const libzelx_FileEvent& event, size_t) {
    if (event.ended != 0) {
      EXPECT_TRUE(Eventually([&] { return areSubmitted.load(); }));
      DestroyLibrary();
      ends = seen.Ends();
    }
    return 0;
  });
  ASSERT_EQ(SendFile(device.Target(), file_.path(), destroying), 0);
  for (int i = 0; i < 10; ++i) ASSERT_EQ(SendFile(silent_[i % 2].Target(), file_.path(), seen), 0);
  areSubmitted = true;
  EXPECT_EQ(destroying.End().result, 0);
  EXPECT_EQ(ends, 10U);
}

// One after the other, each within the one before where there is a single thread.
TEST_P(DestroyedFilesWithWorkersTest, FromTheCallbacksOfAllTen) {
  FileEventRecorder seen([](const libzelx_FileEvent& event, size_t) {
    EXPECT_EQ(event.ended, 1);
    DestroyLibrary();
    return 0;
  });
  SubmitTen(seen);
  DestroyLibrary();
  EXPECT_EQ(seen.Ends(), 10U);
}

TEST_P(DestroyedFilesWithWorkersTest, FromTwoThreadsAtATime) {
  FileEventRecorder seen;
  SubmitTen(seen);
  {
    const OngoingCall other([] { return (DestroyLibrary(), 0); });
    DestroyLibrary();
  }
  EXPECT_EQ(seen.Ends(), 10U);
}

TEST_P(DestroyedFilesWithWorkersTest, FilesThatAreSentAfterwardsArrive) {
  FileEventRecorder seen;
  SubmitTen(seen);
  DestroyLibrary();
  const FileDevice device;
  FileEventRecorder later;
  ASSERT_EQ(SendFile(device.Target(), file_.path(), later), 0);
  EXPECT_EQ(later.End().result, 0);
}

TEST_P(DestroyedFilesWithWorkersTest, TicketsGoOn) {
  FileEventRecorder seen;
  SubmitTen(seen);
  DestroyLibrary();
  uint64_t last = 0;
  for (const libzelx_FileEvent& end : seen.EndEvents()) last = std::max(last, end.ticket);
  EXPECT_EQ(libzelx_cancelFile(last), 1);
  const FileDevice device;
  FileEventRecorder later;
  uint64_t ticket = 0;
  ASSERT_EQ(SendFile(device.Target(), file_.path(), later, &ticket), 0);
  EXPECT_EQ(ticket, last + 1);
  EXPECT_EQ(later.End().result, 0);
}

INSTANTIATE_TEST_SUITE_P(Workers, DestroyedFilesWithWorkersTest, testing::Values(1, 3, 8));

// The one that waited ends between two messages of the other, on its thread.
TEST_F(DestroyedFilesTest, FromTheEndOfACancelledOneTheOtherHasEndedWhenItReturns) {
  const FileDevice device;
  uint64_t waiting = 0;
  std::atomic<bool> areSubmitted{false};
  std::atomic<size_t> ends{9};
  FileEventRecorder sent([&](const libzelx_FileEvent& event, size_t number) {
    if (number == 0 && event.ended == 0) {
      EXPECT_TRUE(Eventually([&] { return areSubmitted.load(); }));
      EXPECT_EQ(libzelx_cancelFile(waiting), 0);
    }
    return 0;
  });
  FileEventRecorder destroying([&](const libzelx_FileEvent&, size_t) {
    DestroyLibrary();
    ends = sent.Ends();
    return 0;
  });
  ASSERT_EQ(SendFile(device.Target(), file_.path(), sent), 0);
  ASSERT_EQ(SendFile(silent_[0].Target(), file_.path(), destroying, &waiting), 0);
  areSubmitted = true;
  EXPECT_EQ(destroying.End().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(sent.End().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(ends, 1U);
  EXPECT_EQ(sent.Ends(), 1U);
}

TEST_F(DestroyedFilesTest, ItEndsAnAttemptToConnect) {
  ScriptedServer server;
  server.Stall();
  FileEventRecorder seen;
  const CapturedLog log;
  ASSERT_EQ(SendFile({server.device(), 700}, file_.path(), seen), 0);
  ASSERT_TRUE(Eventually(
      [&] { return log.HasStart("INFO", "tcpclient ready connect  HostName:" + server.host() + ","); }));
  const ElapsedTime time;
  DestroyLibrary();
  EXPECT_LT(time.AwakeMs(), 900);
  EXPECT_EQ(seen.Ends(), 1U);
  EXPECT_EQ(seen.End().result, LIBZELX_E_CANCELLED);
}

TEST_F(DestroyedFilesTest, FilesThatAreSentMeanwhileEndOnce) {
  const OptionSet workers(LIBZELX_FILE_WORKERS, 4);
  const FileDevice devices[4];
  FileEventRecorder seen;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int j = 0; j < 20; ++j) EXPECT_EQ(SendFile(devices[i].Target(), file_.path(), seen), 0);
    });
  }
  for (int i = 0; i < 5; ++i) DestroyLibrary();
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(seen.AwaitEnds(80, 30000));
  EXPECT_EQ(seen.Ends(), 80U);
}

}  // namespace
}  // namespace zeltest
