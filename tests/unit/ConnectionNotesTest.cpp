#include "zelclient/ConnectionNotes.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace libzel {
namespace {

class ConnectionNotesTest : public testing::Test {
 protected:
  ConnectionNotesTest() { notes.SetPeer("10.0.0.9:9999"); }

  ConnectionNotes notes;
  SocketLink link{platform::kNoSocket};
};

TEST_F(ConnectionNotesTest, SaysNothingAtFirst) { EXPECT_EQ(notes.Failure(), ""); }

TEST_F(ConnectionNotesTest, NamesThePeerOfAFailedConnect) {
  notes.FailedConnect(0);
  EXPECT_EQ(notes.Failure(), "connect 10.0.0.9:9999: timed out");
  EXPECT_EQ(notes.Read().Of(Count::kFailedConnects), 1U);
}

TEST_F(ConnectionNotesTest, NamesThePeerThatItHasNow) {
  notes.SetPeer("10.0.0.8:9999");
  notes.FailedConnect(0);
  EXPECT_EQ(notes.Failure(), "connect 10.0.0.8:9999: timed out");
}

TEST_F(ConnectionNotesTest, TellsALossOnce) {
  notes.Lost(link, "send to", "reset");
  notes.Lost(link, "receive from", "closed by the peer");
  EXPECT_EQ(notes.Failure(), "send to 10.0.0.9:9999: reset");
  EXPECT_EQ(notes.Read().Of(Count::kLosses), 1U);
}

TEST_F(ConnectionNotesTest, LinkThatEndedWithoutAnErrorWasClosedByThePeer) {
  notes.Lost(link, "receive from");
  EXPECT_EQ(notes.Failure(), "receive from 10.0.0.9:9999: closed by the peer");
}

TEST_F(ConnectionNotesTest, AddsUpWhatAllThreadsCount) {
  const std::vector<uint8_t> body(100);
  const FrameView frame{{0, 1, 600, 100}, body};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 1000; ++k) notes.AddFrameIn(frame);
    });
  }
  for (int k = 0; k < 1000; ++k) notes.AddFrameOfLoop(frame);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(notes.Read().Of(Count::kFramesIn), 5000U);
  EXPECT_EQ(notes.Read().Of(Count::kBytesIn), 5000U * 108);
}

TEST_F(ConnectionNotesTest, ThoseThatAreGoneCountForTheProcess) {
  const uint64_t before = ConnectionNotes::ReadAll().Of(Count::kTooLong);
  {
    ConnectionNotes gone;
    gone.Add(Count::kTooLong, 3);
    EXPECT_EQ(ConnectionNotes::ReadAll().Of(Count::kTooLong), before + 3);
  }
  notes.Add(Count::kTooLong);
  EXPECT_EQ(ConnectionNotes::ReadAll().Of(Count::kTooLong), before + 4);
}

}  // namespace
}  // namespace libzel
