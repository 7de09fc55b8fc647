#include "zelclient/CFileTransfer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"
#include "utils/Log.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

using zeltest::Be;
using zeltest::Bytes;
using zeltest::Request;
using zeltest::Text;
using zeltest::operator+;

constexpr uint16_t kPort = 600;
constexpr size_t kChunkBytes = 8192;

Bytes Answer(uint8_t type, uint32_t handle = 0, uint32_t error = 0) {
  return Bytes{type} + Be(handle, 4) + Be(error, 4);
}

struct Report {
  uint32_t transfer;
  float progress;
  uint32_t error;
  uint8_t state;

  bool operator==(const Report&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Report& report) {
  return out << report.transfer << " " << report.progress << " " << report.error << " " << int{report.state};
}

class CFileTransferTest : public testing::Test {
 protected:
  void SetUp() override {
    // A path with a backslash that works on every system.
    std::filesystem::create_directories(folder_.Path("sub"));
    connection_ = CPeerConnMgr::Instance().CreateInstance(&server_.device(), 0);
    ASSERT_TRUE(connection_->Connect(kCreateTimeoutMs));
    peer_ = server_.Accept();
  }
  void TearDown() override { CPeerConnMgr::Instance().ReleaseInstance(CPeerConnMgr::HandleOf(connection_)); }

  static int32_t Callback(const ZelDeviceId* device, uint32_t transfer, float progress, uint32_t error,
                          uint8_t state, void* user) {
    auto& test = *static_cast<CFileTransferTest*>(user);
    EXPECT_EQ(zeltest::HostOf(*device), test.server_.host());
    test.reports_.push_back({transfer, progress, error, state});
    return test.verdict_;
  }

  std::unique_ptr<CFileTransfer> Make(const std::string& content, const char* remotePath = "/data/file.bin") {
    path_ = folder_.Path("sub\\log.bin");
    std::ofstream(path_, std::ios::binary) << content;
    return MakeFor(path_.c_str(), remotePath);
  }
  std::unique_ptr<CFileTransfer> MakeFor(const char* path, const char* remotePath = "/data/file.bin") {
    auto transfer = std::make_unique<CFileTransfer>(7, ZelDeviceAddr{server_.device(), kPort}, path,
                                                    remotePath, Callback, this);
    transfer->SetConnection(connection_);
    return transfer;
  }
  // Runs one step against the server's answer and gives the payload that it got.
  Bytes Step(CFileTransfer& transfer, const Bytes& answer) {
    std::thread step([&] { transfer.Step(); });
    const Request request = peer_.Serve(answer);
    step.join();
    EXPECT_TRUE(request.whole);
    EXPECT_EQ(request.port, kPort);
    EXPECT_EQ(request.idGroup, 0x1002U);
    EXPECT_EQ(request.idOffset, 1U);
    return request.payload;
  }

  zeltest::ScriptedServer server_;
  zeltest::Peer peer_;
  CPeerConnMgr::Connection connection_;
  zeltest::TemporaryFolder folder_;
  std::string path_;
  std::vector<Report> reports_;
  int32_t verdict_ = 0;
};

TEST(ChunkCountTest, FollowsTheSize) {
  const std::vector<std::pair<uint64_t, uint32_t>> rows = {
      {0, 0},     {1, 1},     {8191, 1},  {8192, 1},  {8193, 2},
      {16384, 2}, {16385, 3}, {20000, 3}, {65536, 8}, {2147483647, 262144}};
  for (const auto& [size, count] : rows) EXPECT_EQ(CFileTransfer::CalcChunkNum(size), count) << size;
}

TEST(ChunkCountTest, IsTraced) {
  SetLogLevel(0);
  const zeltest::CapturedLog log;
  (void)CFileTransfer::CalcChunkNum(20000);
  EXPECT_TRUE(log.Has("TRACE", "file Size:20000,chunk num:3"));
}

TEST_F(CFileTransferTest, TheFirstMessageDescribesTheFile) {
  const auto transfer = Make(std::string(20000, 'x'));
  const Bytes wanted =
      Bytes{1, 7, 14} + Be(20000, 4) + Be(8192, 4) + Be(3, 4) + Text("log.bin") + Text("/data/file.bin");
  EXPECT_EQ(Step(*transfer, Answer(1, 5)), wanted);
  EXPECT_EQ(reports_, (std::vector<Report>{{7, 0, 0, 1}}));
  EXPECT_FALSE(transfer->IsComplete());
}

TEST_F(CFileTransferTest, ChunksCarryNumberHandleAndData) {
  std::string content;
  for (int i = 0; i < 20000; ++i) content += static_cast<char>(i * 31 + i / 256);
  const auto transfer = Make(content);
  (void)Step(*transfer, Answer(1, 0xA1B2C3D4));
  EXPECT_EQ(Step(*transfer, Answer(2)),
            Bytes{2} + Be(1, 4) + Be(0xA1B2C3D4, 4) + Text(content.substr(0, kChunkBytes)));
  EXPECT_EQ(Step(*transfer, Answer(2)),
            Bytes{2} + Be(2, 4) + Be(0xA1B2C3D4, 4) + Text(content.substr(kChunkBytes, kChunkBytes)));
  EXPECT_FALSE(transfer->IsComplete());
  EXPECT_EQ(Step(*transfer, Answer(0x82)),
            Bytes{130} + Be(3, 4) + Be(0xA1B2C3D4, 4) + Text(content.substr(2 * kChunkBytes)));
  EXPECT_TRUE(transfer->IsComplete());
  const auto third = static_cast<float>(1.0 / 3);
  const auto twoThirds = static_cast<float>(2.0 / 3);
  EXPECT_EQ(reports_,
            (std::vector<Report>{{7, 0, 0, 1}, {7, third, 0, 1}, {7, twoThirds, 0, 1}, {7, 1, 0, 2}}));
}

TEST_F(CFileTransferTest, AnExactMultipleEndsWithAnEmptyMessage) {
  const auto transfer = Make(std::string(2 * kChunkBytes, 'x'));
  (void)Step(*transfer, Answer(1, 1));
  EXPECT_EQ(Step(*transfer, Answer(2))[0], 2);
  EXPECT_EQ(Step(*transfer, Answer(2))[0], 2);
  EXPECT_FALSE(transfer->IsComplete());
  EXPECT_EQ(Step(*transfer, Answer(2)), Bytes{});
  EXPECT_TRUE(transfer->IsComplete());
}

TEST_F(CFileTransferTest, AnEmptyFileIsItsDescriptionAndAnEmptyMessage) {
  const auto transfer = Make("");
  EXPECT_EQ(Bytes(Step(*transfer, Answer(1))).at(14), 0);
  EXPECT_EQ(Step(*transfer, Answer(2)), Bytes{});
  EXPECT_TRUE(transfer->IsComplete());
  EXPECT_EQ(reports_, (std::vector<Report>{{7, 0, 0, 1}, {7, 0, 0, 1}}));
}

TEST_F(CFileTransferTest, TheAnswerToAnEmptyMessageGivesNoError) {
  const auto transfer = Make("");
  (void)Step(*transfer, Answer(1));
  (void)Step(*transfer, Answer(2, 0, 99));
  EXPECT_EQ(reports_.back(), (Report{7, 0, 0, 1}));
}

TEST_F(CFileTransferTest, ADevicesErrorDoesNotStopTheTransfer) {
  const auto transfer = Make(std::string(20000, 'x'));
  (void)Step(*transfer, Answer(1, 0, 77));
  EXPECT_EQ(reports_.back(), (Report{7, 0, 77, 3}));
  EXPECT_FALSE(transfer->IsComplete());
  EXPECT_EQ(Step(*transfer, Answer(2))[0], 2);
  EXPECT_EQ(reports_.back(), (Report{7, static_cast<float>(1.0 / 3), 0, 1}));
}

TEST_F(CFileTransferTest, TheLastFlagFinishes) {
  const auto transfer = Make(std::string(20000, 'x'));
  (void)Step(*transfer, Answer(0x81, 3));
  EXPECT_EQ(reports_.back().state, 2);
  EXPECT_FALSE(transfer->IsComplete());
}

TEST_F(CFileTransferTest, AnAnswerOfAnotherTypeChangesNothing) {
  const auto transfer = Make(std::string(20000, 'x'));
  (void)Step(*transfer, Answer(5, 9, 99));
  EXPECT_EQ(reports_.back(), (Report{7, 0, 0, 1}));
  EXPECT_EQ(Bytes(Step(*transfer, Answer(2))).at(8), 0);
}

TEST_F(CFileTransferTest, AShortAnswerReadsAsZeros) {
  const auto transfer = Make("content");
  (void)Step(*transfer, Bytes{1, 0, 0, 0});
  EXPECT_EQ(reports_.back(), (Report{7, 0, 0, 1}));
}

TEST_F(CFileTransferTest, ALostConnectionFailsTheTransfer) {
  const auto transfer = Make("content");
  server_.StopListening();
  peer_.Reset();
  transfer->Step();
  EXPECT_EQ(reports_, (std::vector<Report>{{7, 0, ZEL_E_FILE_TRANSFER, 3}}));
  EXPECT_TRUE(transfer->IsComplete());
}

TEST_F(CFileTransferTest, AConnectionThatIsNotLiveFailsTheTransfer) {
  const auto transfer = Make("content");
  transfer->SetConnection({});
  transfer->Step();
  EXPECT_EQ(reports_, (std::vector<Report>{{7, 0, ZEL_E_FILE_TRANSFER, 3}}));
  EXPECT_TRUE(transfer->IsComplete());
}

// As an export would: what an earlier call left there is no news.
TEST_F(CFileTransferTest, AConnectionThatIsNotLiveLeaves8193) {
  const auto transfer = Make("content");
  transfer->SetConnection({});
  SetErrno(ZEL_E_TIMEOUT);
  transfer->Step();
  EXPECT_EQ(GetErrno(), ZEL_E_HANDLE);
}

TEST_F(CFileTransferTest, ATransferWithoutMemoryFails) {
  const auto transfer = Make("content");
  transfer->FailOnNoMemory();
  EXPECT_EQ(reports_, (std::vector<Report>{{7, 0, ZEL_E_FILE_TRANSFER, 3}}));
  EXPECT_TRUE(transfer->IsComplete());
}

TEST_F(CFileTransferTest, MinusOneStopsBehindTheStep) {
  const auto transfer = Make(std::string(20000, 'x'));
  verdict_ = -1;
  transfer->Report();
  EXPECT_TRUE(transfer->IsComplete());
  EXPECT_EQ(Step(*transfer, Answer(1))[0], 1);
  EXPECT_EQ(reports_.size(), 2U);
}

TEST_F(CFileTransferTest, OtherVerdictsLetItGoOn) {
  const auto transfer = Make("content");
  for (const int32_t verdict : {1, -2, 2147483647}) {
    verdict_ = verdict;
    transfer->Report();
    EXPECT_FALSE(transfer->IsComplete());
  }
}

TEST_F(CFileTransferTest, AFileThatCannotBeOpenedTakesNoStep) {
  const auto transfer = MakeFor(folder_.Path("none.bin").c_str());
  transfer->Report();
  transfer->Step();
  EXPECT_EQ(reports_, (std::vector<Report>{{7, 0, ZEL_E_FILE_OPEN, 0}}));
  EXPECT_TRUE(transfer->IsIdle());
  EXPECT_FALSE(transfer->IsComplete());
  verdict_ = -1;
  transfer->Report();
  EXPECT_TRUE(transfer->IsComplete());
}

TEST_F(CFileTransferTest, ALongRemotePathIsCut) {
  const auto transfer = Make("", std::string(400, 'r').c_str());
  const Bytes message = Step(*transfer, Answer(1));
  EXPECT_EQ(message.at(2), 255);
  EXPECT_EQ(message.size(), 15U + 7 + 255);
}

TEST_F(CFileTransferTest, NoCallbackIsNeeded) {
  path_ = folder_.Write("plain.bin", "content");
  CFileTransfer transfer(8, {server_.device(), kPort}, path_.c_str(), "", nullptr, nullptr);
  transfer.SetConnection(connection_);
  transfer.Report();
  EXPECT_EQ(Step(transfer, Answer(1)).at(2), 0);
  (void)Step(transfer, Answer(0x82));
  EXPECT_TRUE(transfer.IsComplete());
}

}  // namespace
}  // namespace libzel
