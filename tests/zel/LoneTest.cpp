// A machine without a network.
#include <gtest/gtest.h>

#include "ZelProcess.h"

TEST(LoneTest, TheDoctorFindsThatThereIsNoNetwork) {
  const ZelResult result = RunZel({"doctor"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.output, "FAULT  Discovery does not run: ") ||
              Contains(result.output, "FAULT  There is no network adapter"))
      << result.output;
}

TEST(LoneTest, AScanThatCannotRunIsAnError) {
  const ZelResult result = RunZel({"scan", "-s", "1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors, "devices cannot be looked for: ")) << result.errors;
  EXPECT_FALSE(Contains(result.errors, "no device answered")) << result.errors;
}
