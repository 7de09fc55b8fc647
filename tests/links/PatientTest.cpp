// With the waits for silence set nothing at all is lost, whatever the link: every frame arrives, in order,
// and the link stays up.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <string>
#include <thread>

#include "support/Asking.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Options.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

constexpr int64_t kSilenceMs = 30000;
constexpr int kLongMs = 120000;

// By the bytes of payload.
class PatientTest : public testing::TestWithParam<size_t> {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(StartLibrary().result, 0);
    ASSERT_EQ(libzelx_setOption(0, LIBZELX_HEADER_WAIT_MS, kSilenceMs), ZEL_OK);
    ASSERT_EQ(libzelx_setOption(0, LIBZELX_BODY_WAIT_MS, kSilenceMs), ZEL_OK);
  }
  ~PatientTest() override { link.instance.Release(); }

  // The last byte tells frames apart; what is taken for a header by mistake announces too much.
  Bytes Payload(uint8_t number) const { return Bytes(GetParam() - 1, 0xFF) + Bytes{number}; }
  void ExpectNothingLost(uint64_t frames) const {
    const libzelx_Stats stats = StatsOf(link.instance);
    EXPECT_EQ(stats.framesIn, frames);
    EXPECT_EQ(stats.shortHeaders + stats.badLengths + stats.shortBodies + stats.badRecords, 0U);
    EXPECT_EQ(stats.losses, 0U);
    EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
  }

  static constexpr uint8_t kFrames = 3;
  const Deadline deadline{250};
  ScriptedServer server;
  MessageRecorder seen;
  Link link{server};
};

TEST_P(PatientTest, RoutedMessagesAllArrive) {
  ASSERT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
  ASSERT_EQ(libzel_loop_start(link.instance), 0);
  for (uint8_t i = 0; i < kFrames; ++i) EXPECT_TRUE(link.peer.Send(Message(0, 600, Payload(i))));
  ASSERT_TRUE(seen.Await(kFrames, kLongMs));
  for (uint8_t i = 0; i < kFrames; ++i) EXPECT_EQ(seen.All()[i].payload, Payload(i));
  ExpectNothingLost(kFrames);
}

// Receives that end inside an answer, and others that go on with it.
TEST_P(PatientTest, AnswersAllArrive) {
  Bytes buffer(GetParam());
  for (uint8_t i = 1; i <= kFrames; ++i) {
    ASSERT_GT(link.instance.Send(600, Text("ask")), 0);
    ASSERT_TRUE(link.peer.ReadRequest(kLongMs).whole);
    std::thread sender([&] { EXPECT_TRUE(link.peer.Send(Answer(600, i, Payload(i)))); });
    int32_t size = -1;
    const ElapsedTime time;
    while (size < 0 && time.Ms() < kLongMs) {
      size = link.instance.Receive(buffer, 50);
      if (size < 0) {
        EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
      }
    }
    sender.join();
    ASSERT_EQ(size, static_cast<int32_t>(GetParam()));
    EXPECT_EQ(buffer, Payload(i));
  }
  ExpectNothingLost(kFrames);
}

TEST_P(PatientTest, RequestsFromManyThreadsAreAllAnswered) {
  std::thread device([&] {
    for (int i = 0; i < 4 * kFrames; ++i) EXPECT_TRUE(link.peer.Serve(Payload(9)).whole);
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < kFrames; ++turn) {
        const Asked asked =
            Ask(link.instance, RequestTo(600, {}, kLongMs), static_cast<uint32_t>(GetParam()));
        EXPECT_EQ(asked.result, ZEL_OK);
        EXPECT_EQ(asked.answer, Payload(9));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  device.join();
  ExpectNothingLost(uint64_t{4} * kFrames);
}

std::string PatientName(const testing::TestParamInfo<size_t>& size) {
  return std::to_string(size.param) + "Bytes";
}

INSTANTIATE_TEST_SUITE_P(Short, PatientTest, testing::Values(1, 100, 700), PatientName);
INSTANTIATE_TEST_SUITE_P(Long, PatientTest, testing::Values(1428, 8192, 20000), PatientName);
INSTANTIATE_TEST_SUITE_P(Longest, PatientTest, testing::Values(65536 - 80), PatientName);

// ---- Three seconds of silence at a byte that the relay is told: frames of 100 bytes ----------------------

class PatientSilenceTest : public PatientTest {};

TEST_P(PatientSilenceTest, LosesNothing) {
  constexpr uint8_t kMany = 20;
  ASSERT_EQ(libzel__registerRouterEvent(link.instance, 600, MessageRecorder::Callback, &seen), 0);
  ASSERT_EQ(libzel_loop_start(link.instance), 0);
  Bytes frames;
  for (uint8_t i = 0; i < kMany; ++i) frames = frames + Message(0, 600, Payload(i));
  EXPECT_TRUE(link.peer.Send(frames));
  ASSERT_TRUE(seen.Await(kMany, kLongMs));
  for (uint8_t i = 0; i < kMany; ++i) EXPECT_EQ(seen.All()[i].payload, Payload(i));
  ExpectNothingLost(kMany);
}

INSTANTIATE_TEST_SUITE_P(Silence, PatientSilenceTest, testing::Values(92), PatientName);

}  // namespace
}  // namespace zeltest
