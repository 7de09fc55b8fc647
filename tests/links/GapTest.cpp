// Frames that arrive in pieces: those that follow one another quickly enough make a whole one.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <chrono>
#include <string>
#include <thread>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

using Events = std::vector<int32_t>;

constexpr int kHeaderGapMs = 20;   // from here on a header counts as short
constexpr int kBodyMs = 1000;      // from here on a body does
constexpr int kLongPauseMs = 300;  // beyond the first, whatever the machine does
constexpr int kTries = 50;

// Whether each piece left at most `longestMs` after the one before: a machine that stands still
// makes gaps of its own.
bool SendInPieces(Peer& peer, const std::vector<Bytes>& pieces, int gapMs, int longestMs) {
  bool inTime = true;
  ElapsedTime sinceLast;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i != 0) std::this_thread::sleep_for(std::chrono::milliseconds(gapMs));
    EXPECT_TRUE(peer.Send(pieces[i]));
    inTime = inTime && (i == 0 || sinceLast.Ms() < longestMs);
    sinceLast = ElapsedTime();
  }
  return inTime;
}

std::vector<Bytes> CutAt(const Bytes& bytes, size_t at) {
  const auto middle = bytes.begin() + static_cast<ptrdiff_t>(at);
  return {Bytes(bytes.begin(), middle), Bytes(middle, bytes.end())};
}

std::vector<Bytes> ByteByByte(const Bytes& bytes) {
  std::vector<Bytes> pieces;
  for (const uint8_t byte : bytes) pieces.push_back({byte});
  return pieces;
}

// ---- The receive thread -----------------------------------------------------------------------------------

// A link whose receive thread runs.
struct ReadLink : Link {
  explicit ReadLink(ScriptedServer& server) : Link(server) {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &seen), 0);
    EXPECT_EQ(libzel_loop_start(instance), 0);
  }
  ~ReadLink() { instance.Release(); }
  ReadLink(const ReadLink&) = delete;
  ReadLink& operator=(const ReadLink&) = delete;

  bool IsUp() const { return instance.events.Numbers() == Events{2, 1}; }
  // Whether a frame gets through, now that its pieces have been sent.
  bool Delivers(const std::string& text) const {
    return seen.Await(1) && seen.All()[0].payload == Text(text) && IsUp();
  }
  void ExpectClosed(const CapturedLog& log, const std::string& message) {
    EXPECT_TRUE(instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
    EXPECT_TRUE(log.Has("ERROR", message)) << message;
    EXPECT_EQ(instance.events.Numbers(), (Events{2, 1, 5}));
    EXPECT_EQ(seen.Count(), 0U);
  }

  MessageRecorder seen;
};

class GapTest : public testing::TestWithParam<size_t> {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // Sends a frame in pieces until the machine has let it go as it should, and expects it to be delivered.
  void ExpectDelivered(const std::vector<Bytes>& pieces, int gapMs) {
    for (int i = 0; i < kTries; ++i) {
      ReadLink link(server);
      if (!SendInPieces(link.peer, pieces, gapMs, kHeaderGapMs)) continue;
      EXPECT_TRUE(link.Delivers("hello"));
      return;
    }
    ADD_FAILURE() << "the machine was never quick enough";
  }

  const Bytes frame = Message(0, 600, Text("hello"));
  ScriptedServer server;
};

TEST_P(GapTest, AHeaderInTwoPieces4MsApartIsWhole) { ExpectDelivered(CutAt(frame, GetParam()), 4); }

// As long as a full segment takes at 1 Mbit/s.
TEST_P(GapTest, AHeaderInTwoPieces12MsApartIsWhole) { ExpectDelivered(CutAt(frame, GetParam()), 12); }

INSTANTIATE_TEST_SUITE_P(Cuts, GapTest, testing::Range<size_t>(1, 8));

TEST_F(GapTest, AHeaderWhoseBytesAre4MsApartIsWhole) { ExpectDelivered(ByteByByte(frame), 4); }

TEST_F(GapTest, ABodyThatComesWithinItsSecondIsWhole) {
  for (int i = 0; i < kTries; ++i) {
    ReadLink link(server);
    const ElapsedTime time;
    (void)SendInPieces(link.peer, {OuterHeader(0, 600, 5), Text("h"), Text("e"), Text("ll"), Text("o")}, 150,
                       kBodyMs);
    if (time.Ms() >= kBodyMs - 100) continue;
    EXPECT_TRUE(link.Delivers("hello"));
    return;
  }
  ADD_FAILURE() << "the machine was never quick enough";
}

class LongGapTest : public GapTest {};

TEST_P(LongGapTest, APieceOfAHeaderThatNothingFollowsCloses) {
  const CapturedLog log;
  ReadLink link(server);
  EXPECT_TRUE(link.peer.Send(CutAt(frame, GetParam())[0]));
  link.ExpectClosed(log, "zel header len is error,nPacketLen:0");
}

INSTANTIATE_TEST_SUITE_P(OneToFour, LongGapTest, testing::Range<size_t>(1, 5));

class LongGapBehindLengthTest : public GapTest {};

TEST_P(LongGapBehindLengthTest, ThePieceIsDroppedSilently) {
  ReadLink link(server);
  const CapturedLog log;
  (void)SendInPieces(link.peer, {CutAt(frame, GetParam())[0], frame}, kLongPauseMs, 0);
  EXPECT_TRUE(link.Delivers("hello"));
  EXPECT_FALSE(log.HasStart("ERROR", ""));
}

// What follows is taken for a header.
TEST_P(LongGapBehindLengthTest, TheRestOfTheFrameClosesByItsLength) {
  const CapturedLog log;
  ReadLink link(server);
  (void)SendInPieces(link.peer, CutAt(Message(0, 600, Bytes(100, 0xFF)), GetParam()), kLongPauseMs, 0);
  link.ExpectClosed(log, "zel header len is error,nPacketLen:-1");
}

INSTANTIATE_TEST_SUITE_P(FiveToSeven, LongGapBehindLengthTest, testing::Range<size_t>(5, 8));

TEST_F(GapTest, ABodyThatTakesMoreThanItsSecondIsDroppedAndItsRestCloses) {
  const CapturedLog log;
  ReadLink link(server);
  (void)SendInPieces(link.peer, CutAt(Message(0, 600, Bytes(100, 0xFF)), 58), kBodyMs + kLongPauseMs, 0);
  link.ExpectClosed(log, "zel header len is error,nPacketLen:-1");
  EXPECT_TRUE(log.Has("ERROR", "recv size!=header.nMsgLen:100,but recv size:50"));
}

// ---- The synchronous receive ------------------------------------------------------------------------------

class SyncGapTest : public testing::TestWithParam<size_t> {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // Sends a frame in pieces while the library receives; `inTime` tells whether they left as they should.
  int32_t Receive(Link& link, const std::vector<Bytes>& pieces, int gapMs, bool& inTime,
                  uint32_t timeoutMs = kPatienceMs) {
    EXPECT_GT(link.instance.Send(600, Text("ask")), 0);
    EXPECT_TRUE(link.peer.ReadRequest().whole);
    std::thread sender([&] { inTime = SendInPieces(link.peer, pieces, gapMs, kHeaderGapMs); });
    const int32_t result = link.instance.Receive(buffer, timeoutMs);
    error = libzel_get_errno();
    sender.join();
    return result;
  }
  void ExpectReceived(const std::vector<Bytes>& pieces, int gapMs) {
    for (int i = 0; i < kTries; ++i) {
      Link link(server);
      bool inTime = false;
      const int32_t result = Receive(link, pieces, gapMs, inTime);
      if (!inTime) continue;
      EXPECT_EQ(result, 5);
      EXPECT_EQ(error, 0);
      return;
    }
    ADD_FAILURE() << "the machine was never quick enough";
  }

  const Bytes answer = Answer(600, 1, Text("hello"));
  ScriptedServer server;
  Bytes buffer = Bytes(64);
  int32_t error = -1;
};

TEST_P(SyncGapTest, AHeaderInTwoPieces4MsApartIsWhole) { ExpectReceived(CutAt(answer, GetParam()), 4); }
TEST_P(SyncGapTest, AHeaderInTwoPieces12MsApartIsWhole) { ExpectReceived(CutAt(answer, GetParam()), 12); }

TEST_P(SyncGapTest, APieceOfAHeaderThatNothingFollowsFailsWith4112) {
  const CapturedLog log;
  Link link(server);
  bool inTime = false;
  EXPECT_EQ(Receive(link, {CutAt(answer, GetParam())[0]}, 0, inTime), -1);
  EXPECT_EQ(error, ZEL_E_LENGTH);
  const std::string length = GetParam() < 5 ? "0" : std::to_string(answer.size() - 8);
  EXPECT_TRUE(log.Has("ERROR",
                      "recv size!=header.nMsgLen,size:" + std::to_string(GetParam()) + ",nMsgLen:" + length));
  EXPECT_EQ(link.instance.events.Numbers(), (Events{2, 1}));
}

INSTANTIATE_TEST_SUITE_P(Cuts, SyncGapTest, testing::Range<size_t>(1, 8));

TEST_F(SyncGapTest, AHeaderWhoseBytesAre4MsApartIsWhole) { ExpectReceived(ByteByByte(answer), 4); }

TEST_F(SyncGapTest, APieceOfAHeaderAtTheEndOfTheTimeOutFailsWith4112) {
  for (int i = 0; i < kTries; ++i) {
    Link link(server);
    EXPECT_TRUE(link.peer.Send({0, 1, 2}));
    EXPECT_EQ(link.instance.Receive(buffer, kHeaderGapMs / 2), -1);
    if (libzel_get_errno() == ZEL_E_TIMEOUT) continue;  // the bytes had not come yet
    EXPECT_EQ(libzel_get_errno(), ZEL_E_LENGTH);
    return;
  }
  ADD_FAILURE() << "the machine was never quick enough";
}

}  // namespace
}  // namespace zeltest
