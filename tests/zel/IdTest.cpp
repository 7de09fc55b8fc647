#include <gtest/gtest.h>

#include <algorithm>

#include "Devices.h"
#include "ZelProcess.h"

TEST(IdTest, LocalHasSixNumbers) {
  const ZelResult result = RunZel({"id", "local"});
  EXPECT_EQ(result.status, 0);
  ASSERT_EQ(Lines(result.output).size(), 1U) << result.output;
  EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '.'), 5);
}

TEST(IdTest, AloneShowsTheLocalOne) { EXPECT_EQ(RunZel({"id"}).output, RunZel({"id", "local"}).output); }

// 127.0.0.9 does not answer the first question.
TEST(IdTest, ALostDatagramIsAskedAgain) {
  const ZelResult result = RunZel({"id", "get", "127.0.0.9"});
  EXPECT_EQ(result.output, "127.0.0.9.0.1\n") << result.errors;
}

TEST(IdTest, GetAsksTheDevice) {
  EXPECT_EQ(RunZel({"id", "get", "127.0.0.5"}).output, "127.0.0.5.0.1\n");
  EXPECT_EQ(RunZel({"id", "get", "127.0.0.5", "--json"}).output,
            "{\"host\":\"127.0.0.5\",\"identifier\":\"127.0.0.5.0.1\"}\n");
}

TEST(IdTest, SetChangesWhatGetShows) {
  const ZelResult result = RunZel({"id", "set", "127.0.0.6", "1.2.3.4.5.6"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "127.0.0.6 is now 1.2.3.4.5.6\n");
  EXPECT_EQ(RunZel({"id", "get", "127.0.0.6"}).output, "1.2.3.4.5.6\n");
}

TEST(IdTest, SilenceIsNothingArrived) {
  const ZelResult result = RunZel({"id", "get", "127.0.0.7", "--timeout", "100"});
  EXPECT_EQ(result.status, 27);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(Contains(result.errors, "error 4104: recv message timeout"));
}

TEST(IdTest, TheDevicesErrorIsShown) {
  const ZelResult result = RunZel({"id", "get", "127.0.0.8", "--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.output, "{\"error\":16388,\"errorText\":\"component is offline\""));
  EXPECT_TRUE(Contains(result.errors, "error 16388: component is offline"));
}
