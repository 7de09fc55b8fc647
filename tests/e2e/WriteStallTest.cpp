// LIBZELX_WRITE_STALL_MS: what becomes of a write to a peer that does not read.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "support/Asking.h"
#include "support/OngoingCall.h"
#include "support/OptionLink.h"

namespace zeltest {
namespace {

constexpr int64_t kStallMs = 300;
// Long enough that a busy machine makes no pause of the peer's a stall, shorter than all pauses together.
constexpr int64_t kPatientStallMs = 1500;
constexpr int64_t kPauseMs = 80;

class WriteStallTest : public OptionLinkTest {
 protected:
  WriteStallTest() { chosen.Set(LIBZELX_WRITE_STALL_MS, kStallMs); }

  static int64_t SendHuge(const OptionLink& link) { return link.link.instance.Send(600, Huge()); }
  static int64_t PublishHuge(const OptionLink& link) {
    return libzel_publish(link.instance, 1, 2, "topic", Huge().data(), static_cast<uint32_t>(Huge().size()));
  }
};

TEST_F(WriteStallTest, ByTheLetterAWriteToASilentPeerGoesOnWhereItEndsWithIt) {
  const OngoingCall waiting([this] { return SendHuge(letter); });
  const OngoingCall ended([this] { return SendHuge(chosen); });
  EXPECT_TRUE(ended.Await());
  EXPECT_FALSE(waiting.Await(0));
  letter.link.instance.Release();
}

TEST_F(WriteStallTest, ItFailsWith5) {
  const ElapsedTime time;
  EXPECT_EQ(SendHuge(chosen), -1);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DISCONNECTED);
  EXPECT_GE(time.Ms(), kStallMs);
}

TEST_F(WriteStallTest, APublicationFailsWith5) { EXPECT_EQ(PublishHuge(chosen), ZEL_E_DISCONNECTED); }

TEST_F(WriteStallTest, TheLinkIsDropped) {
  EXPECT_EQ(SendHuge(chosen), -1);
  EXPECT_EQ(StatsOf(chosen.instance).connected, 0);
  EXPECT_TRUE(chosen.peer.AwaitEnd());
}

TEST_F(WriteStallTest, ItIsCountedAndTold) {
  EXPECT_EQ(SendHuge(chosen), -1);
  EXPECT_EQ(StatsOf(chosen.instance).stalledWrites, 1U);
  EXPECT_EQ(FailureOf(chosen.instance),
            "send to " + chosen.server.host() + ":9999: peer did not read for 300 ms");
}

TEST_F(WriteStallTest, AWriteBehindItEndsToo) {
  const OngoingCall first([this] { return SendHuge(chosen); });
  EXPECT_TRUE(chosen.peer.HasInput(kPatienceMs));
  const OngoingCall second([this] { return chosen.link.instance.Send(600, Text("small")); });
  for (const OngoingCall* call : {&first, &second}) {
    EXPECT_TRUE(call->Await());
    EXPECT_EQ(call->end().result, -1);
    EXPECT_EQ(call->end().error, ZEL_E_DISCONNECTED);
  }
}

TEST_F(WriteStallTest, APeerThatReadsSlowlyIsWaitedFor) {
  chosen.Set(LIBZELX_WRITE_STALL_MS, kPatientStallMs);
  // The second one waits for the first one's bytes, too.
  const OngoingCall call([this] { return std::min(SendHuge(chosen), SendHuge(chosen)); });
  const ElapsedTime time;
  constexpr size_t kPart = 500000;
  for (size_t got = 0; got < 2 * Huge().size(); got += kPart) {
    std::this_thread::sleep_for(std::chrono::milliseconds(kPauseMs));
    EXPECT_EQ(chosen.peer.Read(kPart).size(), kPart);
  }
  EXPECT_TRUE(call.Await());
  EXPECT_EQ(call.end().result, static_cast<int64_t>(Huge().size()) + 29);
  EXPECT_GT(time.Ms(), kPatientStallMs);
}

}  // namespace
}  // namespace zeltest
