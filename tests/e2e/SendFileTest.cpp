// libzelx_sendFile: what it takes, what it sends, what it tells.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/LibraryStart.h"
#include "support/OwnProcess.h"
#include "support/SendingFile.h"

namespace zeltest {
namespace {

namespace fs = std::filesystem;

class SendFileTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  static std::vector<Bytes> MessagesOf(const FileDevice& device) {
    std::vector<Bytes> messages;
    for (const Request& request : device.messages.All()) messages.push_back(request.payload);
    return messages;
  }

  const Deadline deadline{100};
};

// ---- Arguments --------------------------------------------------------------------------------------------

class RefusedSendTest : public SendFileTest {
 protected:
  void ExpectRefused(int32_t code, const std::string& path) {
    uint64_t ticket = 9;
    EXPECT_EQ(SendFile(target_, path, seen_, &ticket), code) << path;
    EXPECT_EQ(libzel_get_errno(), code);
    EXPECT_EQ(ticket, 0U);
    EXPECT_EQ(seen_.Count(), 0U);
  }

  const ZelDeviceAddr target_{DeviceWithoutServer(), 700};
  const SentFile file_{1};
  FileEventRecorder seen_;
};

TEST_F(RefusedSendTest, NullsAre8196) {
  const std::string path = file_.path();
  const auto send = [&](const ZelDeviceAddr* target, const char* local, const char* remote,
                        libzelx_FileCallback callback) {
    uint64_t ticket = 9;
    const int32_t result = libzelx_sendFile(target, local, remote, callback, &seen_, &ticket);
    EXPECT_EQ(ticket, 0U);
    EXPECT_EQ(libzel_get_errno(), result);
    return result;
  };
  EXPECT_EQ(send(nullptr, path.c_str(), "r", FileEventRecorder::Callback), ZEL_E_PARAM);
  EXPECT_EQ(send(&target_, nullptr, "r", FileEventRecorder::Callback), ZEL_E_PARAM);
  EXPECT_EQ(send(&target_, path.c_str(), nullptr, FileEventRecorder::Callback), ZEL_E_PARAM);
  EXPECT_EQ(send(&target_, path.c_str(), "r", nullptr), ZEL_E_PARAM);
}

TEST_F(RefusedSendTest, ARemotePathOf256BytesIs8196) {
  const std::string path = file_.path();
  EXPECT_EQ(SendFile(target_, path, seen_, nullptr, std::string(256, 'r')), ZEL_E_PARAM);
  EXPECT_EQ(seen_.Count(), 0U);
}

TEST_F(RefusedSendTest, AMissingFileIs12289) { ExpectRefused(ZEL_E_FILE_OPEN, "no such file"); }
TEST_F(RefusedSendTest, AnEmptyPathIs12289) { ExpectRefused(ZEL_E_FILE_OPEN, ""); }
TEST_F(RefusedSendTest, ADirectoryIs12289) { ExpectRefused(ZEL_E_FILE_OPEN, std::getenv("ZEL_LAB")); }
TEST_F(RefusedSendTest, ATextThatIsNoUtf8Is12289) { ExpectRefused(ZEL_E_FILE_OPEN, "\xC3\x28\xFF"); }

TEST_F(RefusedSendTest, AFileOfTwoGibibytesIs12289) {
  std::error_code error;
  fs::resize_file(file_.place(), 2147483648ULL, error);
  if (error) GTEST_SKIP() << "no room for a file of 2 GiB: " << error.message();
  ExpectRefused(ZEL_E_FILE_OPEN, file_.path());
}

TEST_F(RefusedSendTest, TheReasonIsLogged) {
  const CapturedLog log;
  ExpectRefused(ZEL_E_FILE_OPEN, "no such file");
  EXPECT_TRUE(log.HasStart("ERROR", "open file:no such file fail,error:"));
}

TEST_F(SendFileTest, TicketsCountFrom1InEveryProcess) {
  UseFreshProcesses();
  IN_OWN_PROCESS({
    const FileDevice device;
    const SentFile file(10);
    FileEventRecorder seen;
    uint64_t tickets[3] = {};
    EXPECT_EQ(SendFile(device.Target(), file.path(), seen, &tickets[0]), 0);
    EXPECT_EQ(SendFile(device.Target(), "no such file", seen, &tickets[1]), ZEL_E_FILE_OPEN);
    EXPECT_EQ(SendFile(device.Target(), file.path(), seen, &tickets[2]), 0);
    EXPECT_EQ(tickets[0], 1U);
    EXPECT_EQ(tickets[2], 2U);
    EXPECT_TRUE(seen.AwaitEnds(2));
  });
}

TEST_F(SendFileTest, TheTicketIsSetBeforeTheCallbackRuns) {
  const FileDevice device;
  const SentFile file(10);
  uint64_t ticket = 0;
  std::atomic<bool> isSet{true};
  FileEventRecorder seen([&](const libzelx_FileEvent& event, size_t) {
    if (event.ticket != ticket) isSet = false;
    return 0;
  });
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen, &ticket), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
  EXPECT_EQ(seen.End().ticket, ticket);
  EXPECT_TRUE(isSet);
}

TEST_F(SendFileTest, NoTicketIsNeeded) {
  const FileDevice device;
  const SentFile file(10);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
}

// ---- What is sent -----------------------------------------------------------------------------------------

// An end of the other way to send, which has none.
class OldSending {
 public:
  static int32_t Callback(const ZelDeviceId*, uint32_t, float, uint32_t, uint8_t, void* user) {
    ++static_cast<OldSending*>(user)->calls;
    return 0;
  }
  std::atomic<size_t> calls{0};
};

class SameMessagesTest : public SendFileTest, public testing::WithParamInterface<size_t> {};

TEST_P(SameMessagesTest, AsZelFileTransferSends) {
  const size_t steps = 2 + GetParam() / kSentChunk;
  const FileDevice device;
  const FileDevice other;
  const SentFile file(GetParam());
  static auto& old = *new OldSending;
  const size_t before = old.calls;
  (void)ZelFileTransfer(other.Target(), 0, 0, file.path().c_str(), "remote.bin", OldSending::Callback, &old);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  ASSERT_TRUE(Eventually([&] { return old.calls >= before + steps + 1; }));
  EXPECT_EQ(MessagesOf(device), MessagesOf(other));
  EXPECT_EQ(device.messages.Count(), steps);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SameMessagesTest, testing::Values(0, 1, 8191, 8192, 8193, 16384, 20000));

TEST_F(SendFileTest, EveryMessageGoesToTheTargetsPortAndAddress) {
  const FileDevice device;
  const SentFile file(9000);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(812), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  for (const Request& request : device.messages.All()) {
    EXPECT_EQ(request.port, 812);
    EXPECT_EQ(request.idGroup, 0x1002U);
    EXPECT_EQ(request.idOffset, 1U);
    EXPECT_EQ(request.command, 9);
  }
}

TEST_F(SendFileTest, ARemotePathOf255BytesIsSentWhole) {
  const FileDevice device;
  const SentFile file(1);
  const std::string remote = std::string(253, 'r') + "\xC3\xA4";
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen, nullptr, remote), 0);
  EXPECT_EQ(seen.End().result, 0);
  const Bytes message = device.messages.All().at(0).payload;
  EXPECT_EQ(Bytes(message.end() - 255, message.end()), Text(remote));
}

TEST_F(SendFileTest, NamesAreUtf8OnEverySystem) {
  const FileDevice device;
  const SentFile file(9000,
                      "Pr\xC3\xBC"
                      "fbericht \xE2\x82\xAC \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x93\x84.bin");
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  const Bytes last = device.messages.All().at(2).payload;
  EXPECT_EQ(Bytes(last.begin() + 9, last.end()), file.Part(kSentChunk, 9000 - kSentChunk));
}

TEST_F(SendFileTest, TheNameBehindABackslashIsSentInUtf8) {
  const FileDevice device;
  const std::string name = "\xE6\x97\xA5.bin";
  const SentFile file(1, "directory\\..\\" + name);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  const Bytes message = device.messages.All().at(0).payload;
  EXPECT_EQ(message.at(1), name.size());
  EXPECT_EQ(Bytes(message.begin() + 15, message.begin() + 15 + static_cast<ptrdiff_t>(name.size())),
            Text(name));
}

TEST_F(SendFileTest, WhatAGrowingFileGainsIsLeftOut) {
  const SentFile file(20000);
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 1) file.Append(ContentOfSize(50000));
    return GoodFileAnswer(message);
  });
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  const libzelx_FileEvent end = seen.End();
  EXPECT_EQ(end.result, 0);
  EXPECT_EQ(end.sent, 20000U);
  EXPECT_EQ(device.messages.Count(), 4U);
  EXPECT_EQ(device.messages.All().at(3).payload,
            Bytes{130} + Be(3, 4) + Be(kFileHandle, 4) + file.Part(2 * kSentChunk, 3616));
}

TEST_F(SendFileTest, AFileThatWasMovedAwayIsSentAllTheSame) {
  const SentFile file(20000);
  const fs::path moved = file.place().string() + ".moved";
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 1) fs::rename(file.place(), moved);
    return GoodFileAnswer(message);
  });
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  fs::remove(moved);
}

// ---- What is told -----------------------------------------------------------------------------------------

using SentEvents = std::vector<std::tuple<uint64_t, uint64_t, int32_t>>;  // sent, total, ended

SentEvents EventsIn(const FileEventRecorder& seen) {
  SentEvents events;
  for (const auto& [event, thread] : seen.All()) events.emplace_back(event.sent, event.total, event.ended);
  return events;
}

TEST_F(SendFileTest, ProgressIsTheBytesThatTheDeviceHasTaken) {
  const FileDevice device;
  const SentFile file(20000);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  EXPECT_EQ(EventsIn(seen),
            (SentEvents{{0, 20000, 0}, {8192, 20000, 0}, {16384, 20000, 0}, {20000, 20000, 1}}));
}

TEST_F(SendFileTest, AWholeNumberOfChunksEndsBehindTheEmptyMessage) {
  const FileDevice device;
  const SentFile file(8192);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  EXPECT_EQ(EventsIn(seen), (SentEvents{{0, 8192, 0}, {8192, 8192, 0}, {8192, 8192, 1}}));
}

TEST_F(SendFileTest, AnEmptyFileEndsAsSent) {
  const FileDevice device;
  const SentFile file(0);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  EXPECT_EQ(EventsIn(seen), (SentEvents{{0, 0, 0}, {0, 0, 1}}));
}

TEST_F(SendFileTest, EventsHaveTheirSizeAndZerosForWhatTheyDoNotTell) {
  const FileDevice device;
  const SentFile file(20000);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  for (const auto& [event, thread] : seen.All()) {
    EXPECT_EQ(event.size, sizeof(libzelx_FileEvent));
    EXPECT_EQ(event.result, 0);
    EXPECT_EQ(event.deviceError, 0U);
    EXPECT_EQ(event.reserved, 0U);
    EXPECT_EQ(event.readOffset, 0U);
  }
}

TEST_F(SendFileTest, NoCallIsOnTheCallersThread) {
  const FileDevice device;
  const SentFile file(20000);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  for (const auto& [event, thread] : seen.All()) EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(SendFileTest, OtherResultsThanMinus1LetItGoOn) {
  const FileDevice device;
  const SentFile file(20000);
  FileEventRecorder seen([](const libzelx_FileEvent&, size_t number) { return number == 0 ? 1 : -2; });
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
}

TEST_F(SendFileTest, TheEndIsLogged) {
  const CapturedLog log;
  const FileDevice device;
  const SentFile file(10);
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  EXPECT_TRUE(log.HasStart("INFO", "file:" + file.path() + " to:"));
}

// ---- Several ----------------------------------------------------------------------------------------------

TEST_F(SendFileTest, FilesToOneDeviceGoInOrderOverOneConnection) {
  const FileDevice device;
  const SentFile file(9000);
  FileEventRecorder seen;
  std::vector<uint64_t> tickets(10);
  for (uint64_t& ticket : tickets) ASSERT_EQ(SendFile(device.Target(), file.path(), seen, &ticket), 0);
  ASSERT_TRUE(seen.AwaitEnds(10, 30000));
  std::vector<uint64_t> ended;
  for (const libzelx_FileEvent& end : seen.EndEvents()) ended.push_back(end.ticket);
  EXPECT_EQ(ended, tickets);
  uint64_t last = 0;
  for (const auto& [event, thread] : seen.All()) {
    EXPECT_GE(event.ticket, last);
    last = event.ticket;
  }
  EXPECT_EQ(device.connections(), 1);
}

TEST_F(SendFileTest, ThreadsThatSendAtTheSameTimeGetTicketsOfTheirOwn) {
  const FileDevice devices[3];
  const SentFile file(9000);
  FileEventRecorder seen;
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&, i] {
      for (int j = 0; j < 2; ++j) EXPECT_EQ(SendFile(devices[i % 3].Target(), file.path(), seen), 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(seen.AwaitEnds(12, 30000));
  std::vector<uint64_t> ended;
  for (const libzelx_FileEvent& end : seen.EndEvents()) {
    EXPECT_EQ(end.result, 0);
    ended.push_back(end.ticket);
  }
  std::sort(ended.begin(), ended.end());
  EXPECT_EQ(std::unique(ended.begin(), ended.end()), ended.end());
  EXPECT_EQ(ended.size(), 12U);
}

TEST_F(SendFileTest, ACallbackMaySendTheNextFile) {
  const FileDevice device;
  const SentFile file(10);
  FileEventRecorder* again = nullptr;
  FileEventRecorder seen([&](const libzelx_FileEvent& event, size_t) {
    if (event.ended != 0 && event.ticket != 0 && again->Ends() == 0) {
      EXPECT_EQ(SendFile(device.Target(), file.path(), *again), 0);
    }
    return 0;
  });
  again = &seen;
  ASSERT_EQ(SendFile(device.Target(), file.path(), seen), 0);
  EXPECT_TRUE(seen.AwaitEnds(2));
}

}  // namespace
}  // namespace zeltest
