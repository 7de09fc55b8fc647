#include "libzel/Structures.h"

#include <gtest/gtest.h>

#include <array>

namespace libzel {
namespace {

// As a program of the first release has it, as the library has it, and as a later program has it.
struct First {
  size_t size;
  uint64_t number;
};
struct Known {
  size_t size;
  uint64_t number;
  uint64_t added;
};
struct Later {
  size_t size;
  uint64_t number;
  uint64_t added;
  uint64_t unknown;
};

template <typename Structure>
const Known* AsKnown(const Structure& given) {
  return reinterpret_cast<const Known*>(&given);
}

TEST(StructuresTest, ReadsThatOfAnEarlierProgramWithTheRest0) {
  const First given{sizeof(First), 7};
  Known out{1, 1, 1};
  EXPECT_TRUE(ReadStructure(AsKnown(given), sizeof(First), out));
  EXPECT_EQ(out.number, 7U);
  EXPECT_EQ(out.added, 0U);
}

TEST(StructuresTest, ReadsThatOfALaterProgramWhoseRestIs0) {
  const Later given{sizeof(Later), 7, 8, 0};
  Known out{};
  EXPECT_TRUE(ReadStructure(AsKnown(given), sizeof(First), out));
  EXPECT_EQ(out.added, 8U);
}

TEST(StructuresTest, RefusesWhatItDoesNotKnow) {
  const Later given{sizeof(Later), 7, 8, 9};
  Known out{};
  EXPECT_FALSE(ReadStructure(AsKnown(given), sizeof(First), out));
}

TEST(StructuresTest, RefusesNone) {
  Known out{};
  EXPECT_FALSE(ReadStructure(static_cast<const Known*>(nullptr), sizeof(First), out));
  EXPECT_FALSE(FillStructure(Known{}, sizeof(First), static_cast<Known*>(nullptr)));
}

TEST(StructuresTest, RefusesSizesThatNoReleaseHas) {
  for (const size_t size :
       {size_t{0}, sizeof(First) - 8, sizeof(First) + 1, kLargestStructure + 8, SIZE_MAX}) {
    Known given{size, 7, 8};
    Known out{};
    EXPECT_FALSE(ReadStructure(&given, sizeof(First), out)) << size;
    EXPECT_FALSE(FillStructure(Known{1, 2, 3}, sizeof(First), &given)) << size;
    EXPECT_EQ(given.number, 7U) << size;
  }
}

TEST(StructuresTest, FillsThatOfAnEarlierProgramAsFarAsItReaches) {
  struct {
    First first{sizeof(First), 0};
    uint64_t behind = 0x5555;
  } given;
  EXPECT_TRUE(FillStructure(Known{0, 7, 8}, sizeof(First), reinterpret_cast<Known*>(&given.first)));
  EXPECT_EQ(given.first.number, 7U);
  EXPECT_EQ(given.first.size, sizeof(First));
  EXPECT_EQ(given.behind, 0x5555U);
}

TEST(StructuresTest, FillsThatOfALaterProgramWith0) {
  Later given{sizeof(Later), 1, 1, 1};
  EXPECT_TRUE(FillStructure(Known{0, 7, 8}, sizeof(First), reinterpret_cast<Known*>(&given)));
  EXPECT_EQ(given.size, sizeof(Later));
  EXPECT_EQ(given.added, 8U);
  EXPECT_EQ(given.unknown, 0U);
}

}  // namespace
}  // namespace libzel
