#include <gtest/gtest.h>

#include <vector>

#include "support/CapturedLog.h"
#include "utils/ObjectPoolBase.h"

namespace libzel {
namespace {

using Pool = CObjectPool<int, 100>;

TEST(ObjectPoolTest, CreationIsLogged) {
  const zeltest::CapturedLog log;
  const Pool pool;
  EXPECT_TRUE(log.Has("INFO", "ObjectPool init pool"));
}

TEST(ObjectPoolTest, SecondCreationIsRefused) {
  Pool pool;
  Pool::Slot* const first = pool.Take();
  const zeltest::CapturedLog log;
  pool.initPool();
  EXPECT_TRUE(log.Has("ERROR", "ObjectPool Memory already init"));
  EXPECT_EQ(pool.Take()->index, first->index + 1);
}

TEST(ObjectPoolTest, GivesItsSlotsInOrder) {
  Pool pool;
  for (int32_t index = 0; index < 100; ++index) {
    const Pool::Slot* slot = pool.Take();
    EXPECT_EQ(slot->index, index);
    EXPECT_TRUE(slot->pooled);
    EXPECT_TRUE(slot->inUse);
  }
}

TEST(ObjectPoolTest, TakesFromTheHeapWhenItIsEmpty) {
  Pool pool;
  for (int i = 0; i < 100; ++i) (void)pool.Take();
  const Pool::Slot* slot = pool.Take();
  EXPECT_EQ(slot->index, -1);
  EXPECT_FALSE(slot->pooled);
  EXPECT_TRUE(slot->inUse);
}

TEST(ObjectPoolTest, GivesTheSlotReturnedLastFirst) {
  Pool pool;
  Pool::Slot* first = pool.Take();
  Pool::Slot* second = pool.Take();
  pool.Return(first);
  pool.Return(second);
  EXPECT_EQ(pool.Take(), second);
  EXPECT_EQ(pool.Take(), first);
}

TEST(ObjectPoolTest, SecondReturnChangesNothing) {
  Pool pool;
  Pool::Slot* slot = pool.Take();
  pool.Return(slot);
  pool.Return(slot);
  EXPECT_EQ(pool.Take(), slot);
  EXPECT_NE(pool.Take(), slot);
}

TEST(ObjectPoolTest, SecondReturnOfAHeapSlotChangesNothing) {
  Pool pool;
  for (int i = 0; i < 100; ++i) (void)pool.Take();
  Pool::Slot* slot = pool.Take();
  pool.Return(slot);
  pool.Return(slot);
  EXPECT_EQ(pool.Take()->index, -1);
}

}  // namespace
}  // namespace libzel
