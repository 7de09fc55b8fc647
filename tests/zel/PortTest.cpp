// UDP ports that other programs hold. A device on another host answers.
#include <gtest/gtest.h>

#include "ZelProcess.h"

TEST(PortTest, TheDoctorFindsWhoHasTakenThePortOfAnswers) {
  const HeldUdpPort port(38897);
  ASSERT_TRUE(port.IsHeld());
  const ZelResult result = RunZel({"doctor"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(Unwrapped(result.output),
                       "FAULT  UDP port 38897, which answers come to, is taken by " + HeldUdpPort::Holder()))
      << result.output;
  EXPECT_TRUE(Contains(result.output, "       End that program.")) << result.output;
}

TEST(PortTest, AScanSaysThatItsPortIsTaken) {
  const HeldUdpPort port(38897);
  ASSERT_TRUE(port.IsHeld());
  const ZelResult result = RunZel({"scan", "-s", "1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors, "zel: devices cannot be looked for: ")) << result.errors;
  EXPECT_TRUE(Contains(result.errors, "zel doctor says more")) << result.errors;
}

TEST(PortTest, ADeviceIsReachedAllTheSame) {
  const HeldUdpPort port(38897);
  ASSERT_TRUE(port.IsHeld());
  EXPECT_EQ(RunZel({"request", "10.77.0.2", "-p", "600", "hello"}).output, "hello\n");
}

TEST(PortTest, TheDoctorFindsWhoSharesThePortOfAnswers) {
  ZelProcess other({"scan", "--watch"});
  ASSERT_TRUE(other.SaysOutput("found"));
  const ZelResult result = RunZel({"doctor"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(
      Contains(Unwrapped(result.output), "FAULT  UDP port 38897, which answers come to, is shared with "))
      << result.output;
}

TEST(PortTest, TheDoctorTellsWhoHoldsADevicesPorts) {
  const HeldUdpPort port(38898);
  ASSERT_TRUE(port.IsHeld());
  const ZelResult result = RunZel({"doctor"});
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_TRUE(
      Contains(Unwrapped(result.output),
               "ok     UDP port 38898, where a device hears questions, is held by " + HeldUdpPort::Holder()))
      << result.output;
}

TEST(PortTest, TheDoctorSaysThatThePortsAreFree) {
  EXPECT_TRUE(Contains(RunZel({"doctor"}).output, "ok     UDP ports 38896 to 38898 are free.\n"));
}
