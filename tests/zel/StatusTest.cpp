// The table of exit statuses, for every command. 130 is InterruptTest's.
#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

struct Case {
  int status;
  std::vector<std::string> arguments;
};

const std::vector<Case>& Cases() {
  static const std::string file = ScratchFile("status");
  static const std::vector<Case> cases = {
      {0, {"scan", "-s", "1"}},
      {2, {"scan", "-s", "0"}},
      {2, {"scan", "-s", "nan"}},
      {2, {"id", "--log", "/nowhere/at/all"}},
      {0, {"id"}},
      {0, {"id", "local"}},
      {0, {"id", "get", kAddress}},
      {27, {"id", "get", kAbsentAddress, "-t", "50"}},
      {2, {"id", "get", "1.2.3"}},
      {27, {"id", "set", kAbsentAddress, "1.2.3.4.5.6", "-t", "50"}},
      {2, {"id", "set", kAddress, "1.2.3"}},
      {0, {"request", kDevice, "-p", "600", "x"}},
      {1, {"request", kDevice, "-p", "601", "x"}},
      {1, {"request", kAbsentAddress, "-p", "600", "x"}},
      {2, {"request", kDevice, "-p", "600", "--file", "/nowhere/at/all"}},
      {27, {"request", kDevice, "-p", "602", "x", "-t", "100"}},
      {27, {"request", kDevice, "-p", "602", "x", "-t", "100", "-c", "2"}},
      {0, {"pub", kDevice, "t", "x"}},
      {1, {"pub", kAbsentAddress, "t", "x"}},
      {2, {"pub", kDevice}},
      {1, {"sub", kAbsentAddress, "t"}},
      {2, {"sub", kDevice}},
      {27, {"sub", kDevice, "t", "-w", "0.1"}},
      {0, {"listen", kDevice, "700", "-c", "1"}},
      {1, {"listen", kAbsentAddress, "700"}},
      {2, {"listen", kDevice, "500"}},
      {27, {"listen", kDevice, "700", "-c", "1000000", "-w", "0.3"}},
      {27, {"record", kDevice, "t", "-w", "0.1"}},
      {1, {"record", kAbsentAddress, "t"}},
      {2, {"record", kDevice}},
      {0, {"replay", kDevice}},
      {1, {"replay", kAbsentAddress}},
      {2, {"replay", kDevice, "/nowhere/at/all"}},
      {2, {"replay", kAbsentAddress, "/nowhere/at/all"}},
      {2, {"replay", kDevice, ScratchFile(".")}},
      {0, {"send", kDevice, "710", file}},
      {2, {"send", kDevice, "710", "/nowhere/at/all"}},
      {1, {"send", kAbsentAddress, "710", file}},
      {2, {"send", kDevice}},
      {27, {"send", kDevice, "602", file}},
      {0, {"watch", kDevice, "-s", "0.2"}},
      {2, {"watch"}},
      {0, {"doctor", kAddress}},
      {1, {"doctor", kAbsentAddress}},
      {2, {"doctor", "1.2.3"}},
      {0, {"errors"}},
      {2, {"errors", "many"}},
      {0, {"version"}},
      {2, {"version", "more"}},
  };
  WriteWhole(file, "x");
  return cases;
}

}  // namespace

class StatusTest : public testing::TestWithParam<size_t> {};

TEST_P(StatusTest, IsAsTheTableSays) {
  const Case& one = Cases()[GetParam()];
  const ZelResult result = RunZel(one.arguments);
  std::string line = "zel";
  for (const std::string& argument : one.arguments) line += " " + argument;
  EXPECT_EQ(result.status, one.status) << line << "\n" << result.errors;
}

INSTANTIATE_TEST_SUITE_P(EveryCommand, StatusTest, testing::Range(size_t{0}, Cases().size()));
