#include "zelclient/FileSending.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/BrokenFile.h"
#include "support/ElapsedTime.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelclient/ZelTcpclient.h"

namespace libzel {
namespace {

using zeltest::Be;
using zeltest::Bytes;
using zeltest::Text;
using zeltest::operator+;

constexpr uint16_t kSendingPort = 600;
constexpr int32_t kNotEnded = -1;

Bytes Taken(uint8_t type, uint32_t error = 0) { return Bytes{type} + Be(5, 4) + Be(error, 4); }

class FileSendingTest : public testing::Test {
 protected:
  void SetUp() override {
    connection_ = CPeerConnMgr::Instance().CreateInstance(&server_.device(), 0);
    ASSERT_TRUE(connection_->Connect(kCreateTimeoutMs));
    peer_ = server_.Accept();
  }
  void TearDown() override { CPeerConnMgr::Instance().ReleaseInstance(CPeerConnMgr::HandleOf(connection_)); }

  static int32_t Callback(const libzelx_FileEvent* event, void* user) {
    auto& test = *static_cast<FileSendingTest*>(user);
    test.events_.push_back(*event);
    return test.verdict_;
  }

  std::unique_ptr<FileSending> MakeFor(RegularFile file, const std::string& name) {
    auto sending = std::make_unique<FileSending>(
        FileOrder{{server_.device(), kSendingPort}, name, "/to", Callback, this}, std::move(file));
    sending->SetTicket(3);
    sending->Begin(connection_, end_);
    return sending;
  }
  std::unique_ptr<FileSending> Make(const std::string& content, const std::string& name = "") {
    path_ = folder_.Write("file", content);
    RegularFile file;
    EXPECT_EQ(file.Open(path_.c_str()), 0);
    return MakeFor(std::move(file), name);
  }
  // Runs one step against the server's answer and gives the payload that it got.
  Bytes Step(FileSending& sending, const Bytes& answer, uint32_t error = 0) {
    std::thread step([&] { sending.Step(); });
    const zeltest::Request request = peer_.Serve(answer, error);
    step.join();
    EXPECT_TRUE(request.whole);
    return request.payload;
  }
  int32_t Result() const {
    return events_.empty() || events_.back().ended == 0 ? kNotEnded : events_.back().result;
  }

  zeltest::ScriptedServer server_;
  zeltest::Peer peer_;
  CPeerConnMgr::Connection connection_;
  zeltest::TemporaryFolder folder_;
  std::string path_;
  FileLink::TimePoint end_ = SocketLink::kNoEnd;
  std::vector<libzelx_FileEvent> events_;
  int32_t verdict_ = 0;
};

TEST_F(FileSendingTest, EveryStepIsAMessageAndAnEvent) {
  const auto sending = Make(std::string(9000, 'x'));
  const Bytes wanted = Bytes{1, 0, 3} + Be(9000, 4) + Be(8192, 4) + Be(2, 4) + Text("/to");
  EXPECT_EQ(Step(*sending, Taken(1)), wanted);
  EXPECT_EQ(Step(*sending, Taken(2)), Bytes{2} + Be(1, 4) + Be(5, 4) + Bytes(8192, 'x'));
  EXPECT_FALSE(sending->HasEnded());
  EXPECT_EQ(Step(*sending, Taken(0x82)), Bytes{130} + Be(2, 4) + Be(5, 4) + Bytes(808, 'x'));
  EXPECT_TRUE(sending->HasEnded());
  ASSERT_EQ(events_.size(), 3U);
  EXPECT_EQ(events_[0].sent, 0U);
  EXPECT_EQ(events_[1].sent, 8192U);
  EXPECT_EQ(events_[2].sent, 9000U);
  EXPECT_EQ(events_[1].ticket, 3U);
  EXPECT_EQ(Result(), 0);
}

TEST_F(FileSendingTest, ANameIsCutToWholeCharactersOf255Bytes) {
  std::string name;
  for (int i = 0; i < 100; ++i) name += "\xE2\x82\xAC";
  const auto sending = Make("x", "folder\\" + name);
  const Bytes message = Step(*sending, Taken(1));
  EXPECT_EQ(message.at(1), 255);
  EXPECT_EQ(Bytes(message.begin() + 15, message.begin() + 15 + 255), Text(name.substr(0, 255)));

  const auto other = Make("x", "folder\\x" + name);
  EXPECT_EQ(Step(*other, Taken(1)).at(1), 253);
}

TEST_F(FileSendingTest, AFileThatShrinksEndsBeforeTheChunkThatIsMissing) {
  const auto sending = Make(std::string(20000, 'x'));
  (void)Step(*sending, Taken(1));
  (void)Step(*sending, Taken(2));
  std::filesystem::resize_file(path_, 10000);
  sending->Step();
  EXPECT_EQ(Result(), LIBZELX_E_FILE_CHANGED);
  EXPECT_EQ(events_.back().sent, 8192U);
  EXPECT_FALSE(peer_.HasInput(0));
}

TEST_F(FileSendingTest, AReadErrorEndsWithItsOffset) {
  RegularFile file;
  ASSERT_EQ(file.Adopt(zeltest::OpenUnreadable(folder_.Write("file", std::string(100, 'x')))), 0);
  const auto sending = MakeFor(std::move(file), "");
  (void)Step(*sending, Taken(1));
  sending->Step();
  EXPECT_EQ(Result(), ZEL_E_FILE_READ);
  EXPECT_EQ(events_.back().readOffset, 0U);
  EXPECT_EQ(events_.back().total, 100U);
  EXPECT_FALSE(peer_.HasInput(0));
}

TEST_F(FileSendingTest, ADevicesErrorEndsWithItsWord) {
  const auto sending = Make("content");
  (void)Step(*sending, Taken(1, 8201));
  EXPECT_EQ(Result(), LIBZELX_E_DEVICE);
  EXPECT_EQ(events_.back().deviceError, 8201U);
}

TEST_F(FileSendingTest, AnErrorWordInTheHeaderIsADevicesToo) {
  for (const Bytes& payload : {Bytes{}, Taken(1)}) {
    const auto sending = Make("content");
    (void)Step(*sending, payload, 4104);
    EXPECT_EQ(Result(), LIBZELX_E_DEVICE);
    EXPECT_EQ(events_.back().deviceError, 4104U);
  }
}

TEST_F(FileSendingTest, AnAnswerWithNothingInItIsTheNetworks) {
  const auto sending = Make("content");
  (void)Step(*sending, {});
  EXPECT_EQ(Result(), ZEL_E_FILE_TRANSFER);
  EXPECT_EQ(events_.back().deviceError, 0U);
}

TEST_F(FileSendingTest, SilenceIsTheNetworksAfterASecond) {
  const auto sending = Make("content");
  const zeltest::ElapsedTime time;
  sending->Step();
  EXPECT_EQ(Result(), ZEL_E_FILE_TRANSFER);
  EXPECT_GE(time.Ms(), 900);
  EXPECT_LT(time.AwakeMs(), 5000);
}

TEST_F(FileSendingTest, TheTimeEndsAWaitForAnAnswer) {
  end_ = CondVar::Clock::now() + std::chrono::milliseconds(200);
  const auto sending = Make("content");
  sending->Step();
  EXPECT_EQ(Result(), ZEL_E_TIMEOUT);
}

TEST_F(FileSendingTest, WithoutTimeNothingIsSent) {
  end_ = CondVar::Clock::now();
  const auto sending = Make("content");
  sending->Step();
  EXPECT_EQ(Result(), ZEL_E_TIMEOUT);
  EXPECT_FALSE(peer_.HasInput(0));
}

TEST_F(FileSendingTest, ACancelledOneSendsNothingMore) {
  const auto sending = Make("content");
  (void)Step(*sending, Taken(1));
  sending->Cancel();
  sending->Step();
  EXPECT_EQ(Result(), LIBZELX_E_CANCELLED);
  EXPECT_FALSE(peer_.HasInput(0));
}

TEST_F(FileSendingTest, AnEndOnItsWayComesInPlaceOfACancel) {
  const auto sending = Make("content");
  (void)Step(*sending, Taken(1));
  std::thread step([&] { sending->Step(); });
  const zeltest::Request request = peer_.ReadRequest();
  sending->Cancel();
  EXPECT_TRUE(peer_.Send(zeltest::Answer(request.port, request.invokeId, Taken(0x82))));
  step.join();
  EXPECT_EQ(Result(), 0);
}

TEST_F(FileSendingTest, Minus1IsACancel) {
  verdict_ = -1;
  const auto sending = Make("content");
  (void)Step(*sending, Taken(1));
  EXPECT_FALSE(sending->HasEnded());
  sending->Step();
  EXPECT_EQ(Result(), LIBZELX_E_CANCELLED);
}

TEST_F(FileSendingTest, ItEndsOnce) {
  const auto sending = Make("content");
  sending->End(ZEL_E_FILE_TRANSFER);
  sending->End(LIBZELX_E_CANCELLED);
  EXPECT_EQ(events_.size(), 1U);
  EXPECT_EQ(Result(), ZEL_E_FILE_TRANSFER);
}

TEST_F(FileSendingTest, AConnectionThatWasReleasedIsTheNetworks) {
  const auto sending = Make("content");
  CPeerConnMgr::Instance().ReleaseInstance(CPeerConnMgr::HandleOf(connection_));
  sending->Step();
  EXPECT_EQ(Result(), ZEL_E_FILE_TRANSFER);
}

TEST_F(FileSendingTest, APeerThatDoesNotReadEndsItInTime) {
  end_ = CondVar::Clock::now() + std::chrono::milliseconds(300);
  const auto sending = Make("content");
  const Bytes huge(10000000, 'h');  // more than the systems take in
  std::thread stuck(
      [&] { (void)connection_->Send(1, 2, 3, huge.data(), static_cast<uint32_t>(huge.size()), 1000); });
  ASSERT_TRUE(peer_.HasInput(zeltest::kPatienceMs));
  sending->Step();
  EXPECT_EQ(Result(), ZEL_E_TIMEOUT);
  CPeerConnMgr::Instance().ReleaseInstance(CPeerConnMgr::HandleOf(connection_));
  stuck.join();
}

// By a receive each would cost all the time so far, and the answer would come too late.
TEST_F(FileSendingTest, WhatADeviceSaysByItselfDoesNotDelayIt) {
  static_cast<CTcpclient&>(*connection_).KeepForRequests();
  const auto sending = Make("content");
  const Bytes unasked = zeltest::Answer(700, 0, Text("tick"));
  for (int i = 0; i < 3000; ++i) EXPECT_TRUE(peer_.Send(unasked));
  std::thread step([&] { sending->Step(); });
  const zeltest::Request request = peer_.ReadRequest();
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(peer_.Send(unasked));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(peer_.Send(zeltest::Answer(kSendingPort, request.invokeId, Taken(1))));
  step.join();
  EXPECT_FALSE(sending->HasEnded());
  EXPECT_EQ(events_.size(), 1U);
}

}  // namespace
}  // namespace libzel
