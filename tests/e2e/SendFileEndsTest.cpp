// The ends of libzelx_sendFile's transfers: each of them, once.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <chrono>
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

constexpr size_t kSize = 20000;  // four messages
constexpr int kAtOnceMs = 3000;  // bounds what is to come soon, on a busy machine

// Looks for second ends, too: a file behind the others ends behind all that they tell.
class SendFileEndsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // The one end of a file to the device.
  libzelx_FileEvent EndOf(const FileDevice& device, const SentFile& file,
                          int timeoutMs = kRecorderPatienceMs) {
    EXPECT_EQ(SendFile(device.Target(), file.path(), seen_), 0);
    const libzelx_FileEvent end = seen_.End(timeoutMs);
    ExpectNoMore();
    return end;
  }
  void ExpectNoMore() {
    const size_t count = seen_.Count();
    const FileDevice other;
    FileEventRecorder last;
    EXPECT_EQ(SendFile(other.Target(), small_.path(), last), 0);
    EXPECT_EQ(last.End().result, 0);
    EXPECT_EQ(seen_.Count(), count);
    EXPECT_EQ(seen_.Ends(), 1U);
    EXPECT_EQ(seen_.All().back().event.ended, 1);
  }

  const Deadline deadline_{100};
  const SentFile file_{kSize};
  const SentFile small_{1};
  FileEventRecorder seen_;
};

// ---- The device -------------------------------------------------------------------------------------------

class DeviceErrorTest : public SendFileEndsTest, public testing::WithParamInterface<size_t> {};

TEST_P(DeviceErrorTest, AnErrorWordEndsAtThatMessage) {
  const FileDevice device([](const Bytes& message, size_t number) {
    return number == GetParam() ? FileAnswer(message.at(0), 8201) : GoodFileAnswer(message);
  });
  const libzelx_FileEvent end = EndOf(device, file_);
  EXPECT_EQ(end.result, LIBZELX_E_DEVICE);
  EXPECT_EQ(end.deviceError, 8201U);
  EXPECT_EQ(end.sent, GetParam() == 0 ? 0 : (GetParam() - 1) * kSentChunk);
  EXPECT_EQ(device.messages.Count(), GetParam() + 1);
}

TEST_P(DeviceErrorTest, AnErrorWordInTheHeaderDoesToo) {
  const FileDevice device([](const Request& request, size_t number) -> std::optional<Bytes> {
    const uint32_t error = number == GetParam() ? 4105 : 0;
    return Answer(request.port, request.invokeId, error != 0 ? Bytes{} : GoodFileAnswer(request.payload),
                  error);
  });
  const libzelx_FileEvent end = EndOf(device, file_);
  EXPECT_EQ(end.result, LIBZELX_E_DEVICE);
  EXPECT_EQ(end.deviceError, 4105U);
}

INSTANTIATE_TEST_SUITE_P(Messages, DeviceErrorTest, testing::Range<size_t>(0, 4));

TEST_F(SendFileEndsTest, AnErrorWordToTheEmptyMessageIsTaken) {
  const SentFile file(0);
  const FileDevice device([](const Bytes& message, size_t) {
    return message.empty() ? FileAnswer(2, 8201) : GoodFileAnswer(message);
  });
  const libzelx_FileEvent end = EndOf(device, file);
  EXPECT_EQ(end.result, LIBZELX_E_DEVICE);
  EXPECT_EQ(end.deviceError, 8201U);
}

TEST_F(SendFileEndsTest, AnErrorWordThatIsACodeOfOursIsTheDevicesAllTheSame) {
  const FileDevice device([](const Bytes&, size_t) { return FileAnswer(1, LIBZELX_E_CANCELLED); });
  const libzelx_FileEvent end = EndOf(device, file_);
  EXPECT_EQ(end.result, LIBZELX_E_DEVICE);
  EXPECT_EQ(end.deviceError, static_cast<uint32_t>(LIBZELX_E_CANCELLED));
}

TEST_F(SendFileEndsTest, ALastFlagThatComesTooEarlyEndsNothing) {
  const FileDevice device(
      [](const Bytes& message, size_t) { return FileAnswer(static_cast<uint8_t>(message.at(0) | 0x80)); });
  EXPECT_EQ(EndOf(device, file_).result, 0);
  EXPECT_EQ(device.messages.Count(), 4U);
}

TEST_F(SendFileEndsTest, ALastFlagThatNeverComesIsNotWaitedFor) {
  const FileDevice device([](const Bytes& message, size_t) { return FileAnswer(message.at(0) & 0x7F); });
  EXPECT_EQ(EndOf(device, file_).result, 0);
}

TEST_F(SendFileEndsTest, AnswersOfOtherTypesAndLengthsAreAnswers) {
  for (const Bytes& answer : {FileAnswer(5, 8201), Bytes{1}, FileAnswer(2) + Bytes(1000000, 'x')}) {
    const FileDevice device([&](const Bytes&, size_t) { return answer; });
    FileEventRecorder seen;
    ASSERT_EQ(SendFile(device.Target(), file_.path(), seen), 0);
    EXPECT_EQ(seen.End().result, 0) << answer.size();
    EXPECT_EQ(seen.End().sent, kSize);
  }
}

// ---- The network ------------------------------------------------------------------------------------------

class LostDeviceTest : public SendFileEndsTest, public testing::WithParamInterface<size_t> {
 protected:
  void ExpectNetwork(const FileDevice& device) {
    const libzelx_FileEvent end = EndOf(device, file_);
    EXPECT_EQ(end.result, ZEL_E_FILE_TRANSFER);
    EXPECT_EQ(end.deviceError, 0U);
    EXPECT_EQ(end.sent, GetParam() == 0 ? 0 : (GetParam() - 1) * kSentChunk);
  }
};

TEST_P(LostDeviceTest, AClosedConnectionIsTheNetworks) {
  ExpectNetwork(FileDevice([](const Bytes& message, size_t number) -> std::optional<Bytes> {
    if (number == GetParam()) return std::nullopt;
    return GoodFileAnswer(message);
  }));
}

TEST_P(LostDeviceTest, SilenceIsTheNetworks) {
  ExpectNetwork(FileDevice([](const Bytes& message, size_t number) -> std::optional<Bytes> {
    return number == GetParam() ? Bytes{} : GoodFileAnswer(message);
  }));
}

TEST_P(LostDeviceTest, AnAnswerToAnotherRequestIsSilence) {
  ExpectNetwork(FileDevice([](const Request& request, size_t number) -> std::optional<Bytes> {
    const uint32_t id = number == GetParam() ? request.invokeId + 1000 : request.invokeId;
    return Answer(request.port, id, FileAnswer(static_cast<uint8_t>(number == 0 ? 1 : 2)));
  }));
}

TEST_P(LostDeviceTest, AnEmptyAnswerIsTheNetworks) {
  ExpectNetwork(FileDevice([](const Request& request, size_t number) -> std::optional<Bytes> {
    return Answer(request.port, request.invokeId,
                  number == GetParam() ? Bytes{} : GoodFileAnswer(request.payload));
  }));
}

TEST_P(LostDeviceTest, AFrameWithABadLengthIsTheNetworks) {
  ExpectNetwork(FileDevice([](const Request& request, size_t number) -> std::optional<Bytes> {
    if (number == GetParam()) return OuterHeader(1, request.port, 0xFFFFFFFF);
    return Answer(request.port, request.invokeId, GoodFileAnswer(request.payload));
  }));
}

INSTANTIATE_TEST_SUITE_P(Messages, LostDeviceTest, testing::Values(0, 1, 3));

TEST_F(SendFileEndsTest, ADeviceThatIsNotThereIsTheNetworks) {
  ASSERT_EQ(SendFile({DeviceWithoutServer(), 700}, file_.path(), seen_), 0);
  EXPECT_EQ(seen_.End().result, ZEL_E_FILE_TRANSFER);
  ExpectNoMore();
}

TEST_F(SendFileEndsTest, AStrangersAnswerBeforeTheRightOneIsSkipped) {
  const FileDevice device([](const Request& request, size_t number) -> std::optional<Bytes> {
    const Bytes stranger = Answer(request.port, request.invokeId + 7, FileAnswer(1, 8201), 4105);
    const Bytes publication = TopicMessage("any", Text("thing"));
    return (number == 0 ? publication : Bytes{}) + stranger +
           Answer(request.port, request.invokeId, GoodFileAnswer(request.payload));
  });
  EXPECT_EQ(EndOf(device, file_).result, 0);
}

TEST_F(SendFileEndsTest, ALateAnswerIsNotTakenForTheNextFiles) {
  const FileDevice device([this](const Bytes& message, size_t number) {
    if (number == 0) {
      EXPECT_TRUE(Eventually([&] { return seen_.Ends() == 1; }));
    }
    return GoodFileAnswer(message);
  });
  FileEventRecorder second;
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen_), 0);
  ASSERT_EQ(SendFile(device.Target(), file_.path(), second), 0);
  EXPECT_EQ(seen_.End().result, ZEL_E_FILE_TRANSFER);
  EXPECT_EQ(second.End().result, 0);
  EXPECT_EQ(second.End().sent, kSize);
}

TEST_F(SendFileEndsTest, AfterALostConnectionTheNextFileGetsANewOne) {
  const FileDevice device([](const Bytes& message, size_t number) -> std::optional<Bytes> {
    if (number == 1) return std::nullopt;
    return GoodFileAnswer(message);
  });
  // A connection makes no attempt by itself in its first seconds.
  ASSERT_EQ(EndOf(device, file_).result, ZEL_E_FILE_TRANSFER);
  EXPECT_TRUE(Eventually([&] {
    FileEventRecorder next;
    EXPECT_EQ(SendFile(device.Target(), file_.path(), next), 0);
    return next.End().result == 0;
  }));
  EXPECT_EQ(device.connections(), 2);
}

// ---- The file ---------------------------------------------------------------------------------------------

TEST_F(SendFileEndsTest, AFileThatShrinksEndsAsChanged) {
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 1) file_.CutTo(10000);
    return GoodFileAnswer(message);
  });
  const libzelx_FileEvent end = EndOf(device, file_);
  EXPECT_EQ(end.result, LIBZELX_E_FILE_CHANGED);
  EXPECT_EQ(end.sent, kSentChunk);
  EXPECT_EQ(end.total, kSize);
  EXPECT_EQ(device.messages.Count(), 2U);
}

TEST_F(SendFileEndsTest, AFileThatBecomesEmptyEndsAsChanged) {
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 0) file_.CutTo(0);
    return GoodFileAnswer(message);
  });
  EXPECT_EQ(EndOf(device, file_).result, LIBZELX_E_FILE_CHANGED);
  EXPECT_EQ(device.messages.Count(), 1U);
}

// ---- Cancels ----------------------------------------------------------------------------------------------

class CancelledByCallbackTest : public SendFileEndsTest, public testing::WithParamInterface<size_t> {};

TEST_P(CancelledByCallbackTest, Minus1EndsBeforeTheNextMessage) {
  const FileDevice device;
  FileEventRecorder seen(
      [](const libzelx_FileEvent&, size_t number) { return number == GetParam() ? -1 : 0; });
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen), 0);
  const libzelx_FileEvent end = seen.End();
  EXPECT_EQ(end.result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(end.sent, GetParam() * kSentChunk);
  EXPECT_EQ(device.messages.Count(), GetParam() + 1);
  EXPECT_EQ(seen.Count(), GetParam() + 2);
}

TEST_P(CancelledByCallbackTest, CancelFileDoesTheSame) {
  const FileDevice device;
  FileEventRecorder seen([](const libzelx_FileEvent& event, size_t number) {
    if (number == GetParam()) {
      EXPECT_EQ(libzelx_cancelFile(event.ticket), 0);
    }
    return 0;
  });
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen), 0);
  EXPECT_EQ(seen.End().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(device.messages.Count(), GetParam() + 1);
}

INSTANTIATE_TEST_SUITE_P(Events, CancelledByCallbackTest, testing::Range<size_t>(0, 3));

TEST_F(SendFileEndsTest, Minus1AtTheEndChangesNothing) {
  const FileDevice device;
  FileEventRecorder seen([](const libzelx_FileEvent& event, size_t) { return event.ended != 0 ? -1 : 0; });
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
}

TEST_F(SendFileEndsTest, ACancelFromTheEndsCallbackComesTooLate) {
  const FileDevice device;
  std::atomic<int32_t> result{-1};
  FileEventRecorder seen([&](const libzelx_FileEvent& event, size_t) {
    if (event.ended != 0) result = libzelx_cancelFile(event.ticket);
    return 0;
  });
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  EXPECT_EQ(result, 1);
}

TEST_F(SendFileEndsTest, ACancelAfterTheEndGives1AndNoError) {
  const FileDevice device;
  uint64_t ticket = 0;
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen_, &ticket), 0);
  ASSERT_EQ(seen_.End().result, 0);
  EXPECT_EQ(libzelx_cancelFile(ticket), 1);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(SendFileEndsTest, ACancelOfNoTicketIs8196) {
  const FileDevice device;
  uint64_t ticket = 0;
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen_, &ticket), 0);
  EXPECT_EQ(libzelx_cancelFile(0), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_cancelFile(ticket + 1), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_cancelFile(UINT64_MAX), ZEL_E_PARAM);
  EXPECT_EQ(seen_.End().result, 0);
}

// A device that answers nothing until it is told.
class HeldDevice {
 public:
  ~HeldDevice() { Release(); }

  void Release() { isHeld_ = false; }

  FileDevice device{[this](const Bytes& message, size_t) {
    while (isHeld_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return GoodFileAnswer(message);
  }};

 private:
  std::atomic<bool> isHeld_{true};
};

TEST_F(SendFileEndsTest, ACancelWhileAnAnswerIsAwaitedEndsBehindIt) {
  HeldDevice held;
  uint64_t ticket = 0;
  ASSERT_EQ(SendFile(held.device.Target(), file_.path(), seen_, &ticket), 0);
  ASSERT_TRUE(held.device.messages.Await(1));
  EXPECT_EQ(libzelx_cancelFile(ticket), 0);
  EXPECT_EQ(libzelx_cancelFile(ticket), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
  held.Release();
  EXPECT_EQ(seen_.End().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(held.device.messages.Count(), 1U);
  ExpectNoMore();
}

TEST_F(SendFileEndsTest, AFileThatWaitsIsCancelledWithoutItsTurn) {
  HeldDevice held;
  const FileDevice other;
  FileEventRecorder first;
  FileEventRecorder third;
  uint64_t ticket = 0;
  ASSERT_EQ(SendFile(held.device.Target(), file_.path(), first), 0);
  ASSERT_EQ(SendFile(held.device.Target(), file_.path(), seen_, &ticket), 0);
  ASSERT_EQ(SendFile(held.device.Target(), file_.path(), third), 0);
  ASSERT_TRUE(held.device.messages.Await(1));
  EXPECT_EQ(libzelx_cancelFile(ticket), 0);
  held.Release();
  EXPECT_EQ(seen_.End().result, LIBZELX_E_CANCELLED);
  EXPECT_EQ(seen_.Count(), 1U);
  EXPECT_EQ(seen_.End().sent, 0U);
  EXPECT_EQ(seen_.End().total, kSize);
  EXPECT_EQ(first.End().result, 0);
  EXPECT_EQ(third.End().result, 0);
  EXPECT_EQ(libzelx_cancelFile(ticket), 1);
}

TEST_F(SendFileEndsTest, ManyThatWaitAreCancelledInAnyOrder) {
  HeldDevice held;
  FileEventRecorder all;
  std::vector<uint64_t> tickets(50);
  for (uint64_t& ticket : tickets) ASSERT_EQ(SendFile(held.device.Target(), small_.path(), all, &ticket), 0);
  ASSERT_TRUE(held.device.messages.Await(1));
  for (size_t i = tickets.size(); i-- > 1;) EXPECT_EQ(libzelx_cancelFile(tickets[i]), 0);
  held.Release();
  ASSERT_TRUE(all.AwaitEnds(50));
  EXPECT_EQ(all.Ends(), 50U);
  for (const libzelx_FileEvent& end : all.EndEvents()) {
    EXPECT_EQ(end.result, end.ticket == tickets[0] ? 0 : LIBZELX_E_CANCELLED);
  }
}

// ---- Time -------------------------------------------------------------------------------------------------

TEST_F(SendFileEndsTest, WithoutATotalTimeASlowFileIsSent) {
  const FileDevice device([](const Bytes& message, size_t) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return GoodFileAnswer(message);
  });
  EXPECT_EQ(EndOf(device, file_).result, 0);
}

TEST_F(SendFileEndsTest, ATotalTimeEndsASlowFile) {
  const OptionSet total(LIBZELX_FILE_TOTAL_MS, 300);
  const FileDevice device([](const Bytes& message, size_t) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return GoodFileAnswer(message);
  });
  const libzelx_FileEvent end = EndOf(device, file_);
  EXPECT_EQ(end.result, ZEL_E_TIMEOUT);
  EXPECT_LT(end.sent, kSize);
}

TEST_F(SendFileEndsTest, ATotalTimeEndsTheWaitForASilentDevice) {
  const OptionSet total(LIBZELX_FILE_TOTAL_MS, 100);
  const FileDevice device([](const Bytes&, size_t) { return Bytes{}; });
  const ElapsedTime time;
  ASSERT_EQ(SendFile(device.Target(), file_.path(), seen_), 0);
  EXPECT_EQ(seen_.End().result, ZEL_E_TIMEOUT);
  EXPECT_LT(time.AwakeMs(), 900);
}

TEST_F(SendFileEndsTest, ATotalTimeEndsAnAttemptToConnect) {
  const OptionSet total(LIBZELX_FILE_TOTAL_MS, 100);
  ScriptedServer server;
  server.Stall();
  const ElapsedTime time;
  ASSERT_EQ(SendFile({server.device(), 700}, file_.path(), seen_), 0);
  EXPECT_EQ(seen_.End().result, ZEL_E_TIMEOUT);
  EXPECT_LT(time.AwakeMs(), 900);
}

TEST_F(SendFileEndsTest, TheTimeOfAFileThatWaitsDoesNotRun) {
  HeldDevice held;
  FileEventRecorder second;
  const OptionSet total(LIBZELX_FILE_TOTAL_MS, 900);
  ASSERT_EQ(SendFile(held.device.Target(), file_.path(), seen_), 0);
  ASSERT_EQ(SendFile(held.device.Target(), file_.path(), second), 0);
  EXPECT_EQ(seen_.End().result, ZEL_E_TIMEOUT);
  held.Release();
  EXPECT_EQ(second.End().result, 0);
}

}  // namespace
}  // namespace zeltest
