#include "zelclient/ReadTurn.h"

#include <gtest/gtest.h>

namespace libzel {
namespace {

// Lent after as many answers as it takes.
ReadTurn& Lent(ReadTurn& turn) {
  for (int i = 0; i < ReadTurn::kAnswersBeforeLending; ++i) turn.NoteAnswer();
  EXPECT_TRUE(turn.Lend());
  return turn;
}

TEST(ReadTurnTest, BelongsToTheReceiveThread) {
  ReadTurn turn;
  EXPECT_TRUE(turn.IsOwn());
  EXPECT_FALSE(turn.Borrow());
}

TEST(ReadTurnTest, IsLentAfterAnswersInARow) {
  ReadTurn turn;
  for (int i = 1; i < ReadTurn::kAnswersBeforeLending; ++i) turn.NoteAnswer();
  EXPECT_FALSE(turn.Lend());
  turn.NoteAnswer();
  EXPECT_TRUE(turn.Lend());
  EXPECT_FALSE(turn.IsOwn());
}

TEST(ReadTurnTest, AnotherMessageBeginsTheRowAnew) {
  ReadTurn turn;
  for (int i = 1; i < ReadTurn::kAnswersBeforeLending; ++i) turn.NoteAnswer();
  turn.NoteOther();
  turn.NoteAnswer();
  EXPECT_FALSE(turn.Lend());
}

TEST(ReadTurnTest, OneAtATimeBorrowsIt) {
  ReadTurn turn;
  EXPECT_TRUE(Lent(turn).Borrow());
  EXPECT_FALSE(turn.Borrow());
  turn.Return();
  EXPECT_TRUE(turn.Borrow());
}

TEST(ReadTurnTest, StaysLentWhileItIsUsed) {
  ReadTurn turn;
  EXPECT_TRUE(Lent(turn).Borrow());
  turn.Return();
  turn.Reclaim();
  EXPECT_FALSE(turn.IsOwn());
}

TEST(ReadTurnTest, ComesBackWhenNobodyUsesIt) {
  ReadTurn turn;
  Lent(turn).Reclaim();
  EXPECT_TRUE(turn.IsOwn());
}

TEST(ReadTurnTest, ComesBackWhenItIsWanted) {
  ReadTurn turn;
  EXPECT_TRUE(Lent(turn).Borrow());
  turn.Return();
  turn.Want();
  turn.Reclaim();
  EXPECT_TRUE(turn.IsOwn());
}

TEST(ReadTurnTest, IsNotTakenFromWhoeverHasIt) {
  ReadTurn turn;
  EXPECT_TRUE(Lent(turn).Borrow());
  turn.Want();
  turn.Reclaim();
  EXPECT_FALSE(turn.IsOwn());
  turn.Return();
  turn.Reclaim();  // it is still wanted
  EXPECT_TRUE(turn.IsOwn());
}

TEST(ReadTurnTest, IsLookedAtTheMoreSeldomTheLongerItIsUsed) {
  ReadTurn turn;
  int64_t lastMs = Lent(turn).LentMs();
  EXPECT_EQ(lastMs, ReadTurn::kFirstLentMs);
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(turn.Borrow());
    turn.Return();
    turn.Reclaim();
    EXPECT_GE(turn.LentMs(), lastMs);
    lastMs = turn.LentMs();
  }
  EXPECT_EQ(lastMs, ReadTurn::kMostLentMs);
}

TEST(ReadTurnTest, IsLookedAtOftenAgainWhenItIsLentAnew) {
  ReadTurn turn;
  EXPECT_TRUE(Lent(turn).Borrow());
  turn.Return();
  turn.Reclaim();
  turn.Reclaim();
  EXPECT_TRUE(turn.IsOwn());
  EXPECT_EQ(Lent(turn).LentMs(), ReadTurn::kFirstLentMs);
}

}  // namespace
}  // namespace libzel
