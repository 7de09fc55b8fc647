// A slow link on which whole segments travel, so that frames begin and end anywhere in them: no frame
// is lost, and no link.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

using Clock = std::chrono::steady_clock;

// Counts messages; their data begins with their number, from 0.
struct Count {
  static void Callback(uint32_t, uint32_t, const char*, const uint8_t* data, uint32_t length, void* user) {
    auto& self = *static_cast<Count*>(user);
    const auto number = static_cast<uint32_t>(ReadLe(Bytes(data, data + length), 0, 4));
    if (number != self.messages) ++self.outOfOrder;
    ++self.messages;
  }

  std::atomic<uint32_t> messages{0};
  std::atomic<uint32_t> outOfOrder{0};
};

class SlowLinkTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  SlowLinkTest() {
    EXPECT_EQ(libzel_subscribe(link.instance, "load", Count::Callback, &count), 0);
    EXPECT_TRUE(link.peer.ReadRequest().whole);
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
  }
  ~SlowLinkTest() override { link.instance.Release(); }

  // Frames of about 700 bytes, all sizes among them, so that segments end anywhere in them.
  void SendFrames(int number) {
    Bytes frames;
    for (int i = 0; i < number; ++i, ++sent) {
      Bytes data = Le(sent, 4);
      data.resize(590 + sent * 7 % 101, 'x');
      frames = frames + TopicMessage("load", data);
    }
    EXPECT_TRUE(link.peer.Send(frames));
  }
  void ExpectAllDelivered() {
    EXPECT_TRUE(Eventually([&] { return count.messages >= sent; }, 30000));
    EXPECT_EQ(count.messages, sent);
    EXPECT_EQ(count.outOfOrder, 0U);
    EXPECT_EQ(link.instance.events.Numbers(), (std::vector<int32_t>{2, 1}));
  }

  ScriptedServer server;
  Count count;
  Link link{server};
  uint32_t sent = 0;
};

TEST_F(SlowLinkTest, FiveFramesEvery100MsForAMinuteAreAllDelivered) {
  const auto start = Clock::now();
  for (int turn = 0; turn < 600 && !HasFailure(); ++turn) {
    std::this_thread::sleep_until(start + std::chrono::milliseconds(100) * turn);
    SendFrames(5);
  }
  ExpectAllDelivered();
}

TEST_F(SlowLinkTest, ALinkThatIsAlwaysFullLosesNothing) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < end && !HasFailure()) {
    SendFrames(1);
    // So many are always under way, and no more: what the buffers between hold has to be waited for.
    EXPECT_TRUE(Eventually([&] { return sent - count.messages < 500; }));
  }
  ExpectAllDelivered();
}

}  // namespace
}  // namespace zeltest
