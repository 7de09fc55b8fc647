#include "zelclient/CFileThread.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"
#include "zelclient/ZelCreateFactory.h"

namespace libzel {
namespace {

using zeltest::Be;
using zeltest::Bytes;
using zeltest::operator+;

// The process's own thread sends the files; the test is their device.
class CFileThreadTest : public testing::Test {
 protected:
  using Ends = zeltest::Recorder<std::pair<uint32_t, uint8_t>>;

  static void SetUpTestSuite() { ASSERT_EQ(platform::StartSockets(), 0); }
  void TearDown() override { CPeerConnMgr::Instance().ReleaseAll(); }

  static int32_t Callback(const ZelDeviceId*, uint32_t transfer, float, uint32_t, uint8_t state, void* user) {
    if (state >= 2) static_cast<Ends*>(user)->Add({transfer, state});
    return 0;
  }

  void Submit(uint32_t id) {
    CFileThread::Instance().Submit(std::make_unique<CFileTransfer>(id, ZelDeviceAddr{server.device(), 600},
                                                                   path.c_str(), "/file", Callback, &ends));
  }
  // The device's side of a file of one chunk: takes its description and the chunk.
  static void Take(zeltest::Peer& peer) {
    EXPECT_EQ(peer.Serve(Bytes{1} + Be(9, 4) + Be(0, 4)).payload.at(0), 1);
    EXPECT_EQ(peer.Serve(Bytes{0x82} + Be(9, 4) + Be(0, 4)).payload.at(0), 0x82);
  }

  zeltest::ScriptedServer server;
  zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("file.bin", "content");
  Ends ends;
};

TEST_F(CFileThreadTest, FilesToOneDeviceShareAConnectionAndGoInOrder) {
  Submit(1);
  zeltest::Peer peer = server.Accept();
  Submit(2);
  Take(peer);
  Take(peer);
  ASSERT_TRUE(ends.AwaitThat([](const auto& all) { return !all.empty() && all.back().first == 2; }));
  EXPECT_EQ(ends.All().front().first, 1U);
  EXPECT_FALSE(server.IsCalled(20));
}

TEST_F(CFileThreadTest, ThreadsThatMeetANewDeviceShareItsConnection) {
  const zeltest::CapturedLog log;
  std::vector<std::thread> threads;
  for (uint32_t id = 10; id < 14; ++id) threads.emplace_back([this, id] { Submit(id); });
  zeltest::Peer peer = server.Accept();
  for (int i = 0; i < 4; ++i) Take(peer);
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(log.Await("INFO", "transfer over", 4));
  EXPECT_FALSE(server.IsCalled(0));
}

TEST_F(CFileThreadTest, AConnectionThatWasReleasedIsMadeAnew) {
  Submit(3);
  zeltest::Peer first = server.Accept();
  Take(first);
  ASSERT_TRUE(ends.Await(1));
  CPeerConnMgr::Instance().ReleaseAll();
  Submit(4);
  zeltest::Peer second = server.Accept();
  Take(second);
  ASSERT_TRUE(ends.AwaitThat([](const auto& all) { return all.back().first == 4; }));
}

TEST_F(CFileThreadTest, ARefusedDeviceFailsItsFile) {
  server.StopListening();
  Submit(5);
  ASSERT_TRUE(ends.Await(1));
  EXPECT_EQ(ends.All().front(), (std::pair<uint32_t, uint8_t>{5, 3}));
}

}  // namespace
}  // namespace libzel
