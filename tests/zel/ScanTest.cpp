#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

TEST(ScanTest, FindsTheDevicesOnce) {
  const ZelResult result = RunZel({"scan", "--seconds", "4"});
  EXPECT_EQ(result.status, 0);
  const auto lines = Lines(result.output);
  ASSERT_EQ(lines.size(), 3U) << result.output;
  EXPECT_TRUE(lines[0].starts_with("IDENTIFIER"));
  for (const char* part : {kDevice, "press-1", "1.2.3", "serial-1", "02:00:0A:4D:00:02"}) {
    EXPECT_TRUE(Contains(result.output, part)) << part << " in\n" << result.output;
  }
  EXPECT_TRUE(Contains(result.output, "10.77.0.2.0.2"));
}

TEST(ScanTest, ASecondIsEnough) {
  const ZelResult result = RunZel({"scan", "-s", "1"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(Lines(result.output).size(), 3U) << result.output;
}

TEST(ScanTest, WritesObjectsWithEveryField) {
  const ZelResult result = RunZel({"--json", "scan", "-s", "4"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.output,
                       "{\"identifier\":\"10.77.0.2.0.1\",\"address\":\"10.77.0.2\",\"hostName\":\"press-1\","
                       "\"hardwareAddress\":\"02:00:0A:4D:00:02\",\"zelVersion\":\"1.2.3\","))
      << result.output;
  for (const char* name : {"rteVersion", "vorlinVersion", "serialNo", "\"sn\":"}) {
    EXPECT_TRUE(Contains(result.output, name)) << name;
  }
  EXPECT_EQ(Lines(result.output).size(), 2U);
}

TEST(ScanTest, WatchSaysWhoWasFoundAndGoesOn) {
  ZelProcess process({"scan", "--watch", "--seconds", "20"});
  EXPECT_TRUE(process.SaysOutput("found"));
  EXPECT_TRUE(process.SaysOutput("10.77.0.2.0.2"));
}
