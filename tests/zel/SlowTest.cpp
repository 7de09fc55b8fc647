// A device behind a link of 2 Mbit/s: nothing is lost in silence.
#include <gtest/gtest.h>

#include "Devices.h"
#include "Subscriber.h"
#include "ZelProcess.h"

namespace {

std::string BigFile() {
  const std::string path = ScratchFile("big");
  WriteWhole(path, std::string(1000000, 'x'));
  return path;
}

}  // namespace

TEST(SlowTest, PubWaitsUntilAllHasLeft) {
  ZelProcess subscriber({"sub", kDevice, "big", "ready", "-c", "10000", "-F", "%t %l\\n"});
  ASSERT_TRUE(IsReady(subscriber));
  const ZelResult result = RunZel({"pub", kDevice, "big", "--file", BigFile()});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_TRUE(subscriber.SaysOutput("big 1000000\n"));
}

TEST(SlowTest, PubFailsWhenNotAllHasLeftInTime) {
  const ZelResult result = RunZel({"pub", kDevice, "big", "--file", BigFile(), "-t", "500"});
  EXPECT_EQ(result.status, 27) << result.errors;
  EXPECT_TRUE(Contains(result.errors, "may be lost")) << result.errors;
}
