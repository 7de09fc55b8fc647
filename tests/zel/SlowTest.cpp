// A device behind a link of 2 Mbit/s: nothing is lost in silence.
#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

std::string BigFile() {
  const std::string path = ScratchFile("big");
  WriteWhole(path, std::string(1000000, 'x'));
  return path;
}

}  // namespace

TEST(SlowTest, PubWaitsUntilAllHasLeft) {
  ZelProcess subscriber({"sub", kDevice, "big", "-c", "1", "-F", "%l\\n"});
  // Nothing else shows that the subscription is there.
  for (int i = 0; i < 5 && subscriber.Output().empty(); ++i) {
    const ZelResult result = RunZel({"pub", kDevice, "big", "--file", BigFile()});
    EXPECT_EQ(result.status, 0) << result.errors;
  }
  EXPECT_EQ(subscriber.Wait(), 0);
  EXPECT_EQ(subscriber.Output(), "1000000\n");
}

TEST(SlowTest, PubFailsWhenNotAllHasLeftInTime) {
  const ZelResult result = RunZel({"pub", kDevice, "big", "--file", BigFile(), "-t", "500"});
  EXPECT_EQ(result.status, 27) << result.errors;
  EXPECT_TRUE(Contains(result.errors, "may be lost")) << result.errors;
}
