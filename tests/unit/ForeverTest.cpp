#include "utils/Forever.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace libzel {
namespace {

struct Noted {
  Noted(int& count, std::string words) : destructions(count), text(std::move(words)) {}
  ~Noted() { ++destructions; }

  int& destructions;
  const std::string text;
};

TEST(ForeverTest, MakesTheObjectOfItsArguments) {
  int destructions = 0;
  Forever<Noted> noted(destructions, "text");
  EXPECT_EQ(noted->text, "text");
  EXPECT_EQ((*noted).text, "text");
}

TEST(ForeverTest, NeverDestroysTheObject) {
  int destructions = 0;
  { const Forever<Noted> noted(destructions, "text"); }
  EXPECT_EQ(destructions, 0);
}

TEST(ForeverTest, PlacesTheObjectAsItsTypeWants) {
  struct alignas(64) Wide {
    int number = 7;
  };
  Forever<Wide> wide;
  EXPECT_EQ(wide->number, 7);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(&*wide) % 64, 0U);
}

}  // namespace
}  // namespace libzel
