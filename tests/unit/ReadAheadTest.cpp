#include "zelcomm/ReadAhead.h"

#include <gtest/gtest.h>

#include <numeric>

#include "support/Wire.h"

namespace libzel {
namespace {

using zeltest::Bytes;

class ReadAheadTest : public testing::Test {
 protected:
  // Receives the numbers from 0 on.
  void Receive(size_t count) {
    const auto room = ahead.Room().first(count);
    std::iota(room.begin(), room.end(), uint8_t{0});
    ahead.Received(count);
  }

  ReadAhead ahead;
  Bytes out = Bytes(4, 0xFF);
};

TEST_F(ReadAheadTest, IsEmptyAtFirstAndHoldsNoMemory) {
  EXPECT_TRUE(ahead.IsEmpty());
  EXPECT_FALSE(ahead.HasBlock());
  EXPECT_EQ(ahead.Read(out), 0U);
}

TEST_F(ReadAheadTest, GivesWhatWasReceivedOnce) {
  Receive(6);
  EXPECT_EQ(ahead.Read(out), 4U);
  EXPECT_EQ(out, (Bytes{0, 1, 2, 3}));
  EXPECT_EQ(ahead.Read(out), 2U);
  EXPECT_EQ(out, (Bytes{4, 5, 2, 3}));
  EXPECT_TRUE(ahead.IsEmpty());
}

TEST_F(ReadAheadTest, BytesThatAreSkippedStayWhereTheyAre) {
  Receive(6);
  const auto seen = ahead.bytes();
  ahead.Skip(3);
  EXPECT_EQ(ahead.bytes().data(), seen.data() + 3);
  EXPECT_EQ(ahead.Read(out), 3U);
  EXPECT_EQ(Bytes(seen.begin(), seen.end()), (Bytes{0, 1, 2, 3, 4, 5}));
}

TEST_F(ReadAheadTest, NothingReceivedLeavesItEmpty) {
  Receive(0);
  EXPECT_TRUE(ahead.IsEmpty());
}

TEST_F(ReadAheadTest, TrimGivesTheMemoryBackWhenEmpty) {
  Receive(2);
  ahead.Trim();
  EXPECT_EQ(ahead.Read(out), 2U);
  ahead.Trim();
  EXPECT_FALSE(ahead.HasBlock());
  Receive(1);
  EXPECT_EQ(ahead.Read(out), 1U);
}

TEST_F(ReadAheadTest, NoMoreIsSkippedThanIsThere) {
  Receive(2);
  ahead.Skip(3);
  EXPECT_TRUE(ahead.IsEmpty());
  EXPECT_EQ(ahead.bytes().size(), 0U);
}

TEST_F(ReadAheadTest, HoldsAsMuchAsItsRoom) {
  Receive(ReadAhead::kSize);
  EXPECT_EQ(ahead.bytes().size(), ReadAhead::kSize);
}

}  // namespace
}  // namespace libzel
