// Options as such: their numbers, ranges, defaults, and when they can be set. What each
// does stands elsewhere.
#include "support/Options.h"

#include <gtest/gtest.h>

#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OwnProcess.h"

namespace zeltest {
namespace {

struct Option {
  int32_t number;
  int64_t letter;
  int64_t protective;
  int64_t least;
  int64_t most;
};

constexpr Option kOfProcess[] = {
    {LIBZELX_DISCOVERY, 1, 0, 0, 1},
    {LIBZELX_CHECK_XML, 0, 1, 0, 1},
    {LIBZELX_DROP_BAD_ANSWERS, 0, 1, 0, 1},
    {LIBZELX_CHECK_SENDER, 0, 1, 0, 1},
    {LIBZELX_MAX_ROUTES, 0, 100000, 0, INT32_MAX},
    {LIBZELX_KEEP_ROUTES, 0, 1, 0, 1},
    {LIBZELX_ALL_ADAPTERS, 0, 0, 0, 1},
    {LIBZELX_DISCOVERY_RETRY_MS, 0, 5000, 0, INT32_MAX},
    {LIBZELX_FILE_DROP_UNOPENED, 0, 1, 0, 1},
    {LIBZELX_FILE_TOTAL_MS, 0, 3600000, 0, INT32_MAX},
    {LIBZELX_FILE_WORKERS, 1, 1, 1, 64},
};
constexpr Option kOfInstance[] = {
    {LIBZELX_WRITE_STALL_MS, 0, 5000, 0, INT32_MAX},
    {LIBZELX_CLOSE_WAIT_MS, 0, 1000, 0, INT32_MAX},
    {LIBZELX_HEADER_WAIT_MS, 20, 30000, 1, INT32_MAX},
    {LIBZELX_BODY_WAIT_MS, 0, 30000, 0, INT32_MAX},
    {LIBZELX_JITTER_PERCENT, 0, 50, 0, 100},
    {LIBZELX_RECONNECT_MAX_SEC, 0, 60, 0, INT32_MAX},
    {LIBZELX_MAX_BODY, 0, 10485759, 0, 10485759},
    {LIBZELX_DEAD_PEER_MS, 0, 30000, 0, INT32_MAX},
    {LIBZELX_FOLLOW_ROUTE, 0, 1, 0, 1},
};
constexpr int32_t kEarly[] = {LIBZELX_DISCOVERY, LIBZELX_CHECK_XML};
constexpr int32_t kNone[] = {0, -1, 12, 31, 41, INT32_MAX, INT32_MIN};

template <typename Test>
void ForEach(Test test) {
  for (const Option& option : kOfProcess) test(option);
  for (const Option& option : kOfInstance) test(option);
}

bool IsEarly(int32_t number) { return number == kEarly[0] || number == kEarly[1]; }

// What is set in a test must not be what the next one begins with.
class OptionsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { UseFreshProcesses(); }
};

TEST_F(OptionsTest, EveryOneBeginsByTheLetter) {
  IN_OWN_PROCESS(
      { ForEach([](const Option& option) { EXPECT_EQ(OptionOf(0, option.number), option.letter); }); });
}

TEST_F(OptionsTest, TheStartOfTheLibraryChangesNone) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    ForEach([](const Option& option) { EXPECT_EQ(OptionOf(0, option.number), option.letter); });
  });
}

TEST_F(OptionsTest, ProtectSetsEveryOne) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzelx_protect(), ZEL_OK);
    ForEach([](const Option& option) { EXPECT_EQ(OptionOf(0, option.number), option.protective); });
  });
}

TEST_F(OptionsTest, WhatIsSetBehindProtectHolds) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzelx_protect(), ZEL_OK);
    EXPECT_EQ(libzelx_setOption(0, LIBZELX_DISCOVERY, 1), ZEL_OK);
    EXPECT_EQ(OptionOf(0, LIBZELX_DISCOVERY), 1);
  });
}

TEST_F(OptionsTest, ProtectIsTooLateBehindTheStartAndSetsNothing) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    EXPECT_EQ(libzelx_protect(), LIBZELX_E_TOO_LATE);
    EXPECT_EQ(libzel_get_errno(), LIBZELX_E_TOO_LATE);
    ForEach([](const Option& option) { EXPECT_EQ(OptionOf(0, option.number), option.letter); });
  });
}

TEST_F(OptionsTest, ValuesWithinTheRangeAreTaken) {
  IN_OWN_PROCESS({
    ForEach([](const Option& option) {
      for (const int64_t value : {option.least, option.most}) {
        EXPECT_EQ(libzelx_setOption(0, option.number, value), ZEL_OK) << option.number;
        EXPECT_EQ(OptionOf(0, option.number), value);
      }
    });
  });
}

TEST_F(OptionsTest, ValuesOutOfRangeGive8196AndChangeNothing) {
  IN_OWN_PROCESS({
    ForEach([](const Option& option) {
      for (const int64_t value : {option.least - 1, option.most + 1, INT64_MIN, INT64_MAX}) {
        EXPECT_EQ(libzelx_setOption(0, option.number, value), ZEL_E_PARAM) << option.number;
        EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
      }
      EXPECT_EQ(OptionOf(0, option.number), option.letter);
    });
  });
}

TEST_F(OptionsTest, BehindTheStartOnlyEarlyOnesAreTooLate) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    ForEach([](const Option& option) {
      const int32_t expected = IsEarly(option.number) ? LIBZELX_E_TOO_LATE : ZEL_OK;
      EXPECT_EQ(libzelx_setOption(0, option.number, option.most), expected) << option.number;
      EXPECT_EQ(libzel_get_errno(), expected);
    });
    for (const int32_t early : kEarly) EXPECT_EQ(OptionOf(0, early), early == LIBZELX_DISCOVERY ? 1 : 0);
  });
}

TEST_F(OptionsTest, WhatIsNoOptionGives8196) {
  int64_t value = 7;
  for (const int32_t number : kNone) {
    EXPECT_EQ(libzelx_setOption(0, number, 0), ZEL_E_PARAM) << number;
    EXPECT_EQ(libzelx_getOption(0, number, &value), ZEL_E_PARAM) << number;
  }
  EXPECT_EQ(value, 7);
}

TEST_F(OptionsTest, ANullValueGives8196) {
  EXPECT_EQ(libzelx_getOption(0, LIBZELX_DISCOVERY, nullptr), ZEL_E_PARAM);
  EXPECT_EQ(libzelx_getOption(0, LIBZELX_CLOSE_WAIT_MS, nullptr), ZEL_E_PARAM);
}

// ---- Of one instance --------------------------------------------------------------------------------------

class InstanceOptionsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const Instance instance{DeviceWithoutServer()};
};

TEST_F(InstanceOptionsTest, ItBeginsWithWhatIsSetForNewOnes) {
  for (const Option& option : kOfInstance) {
    const OptionSet set(option.number, option.protective);
    const Instance later(DeviceWithoutServer());
    EXPECT_EQ(OptionOf(later, option.number), option.protective);
  }
}

TEST_F(InstanceOptionsTest, WhatIsSetForNewOnesLeavesItAlone) {
  for (const Option& option : kOfInstance) {
    const OptionSet set(option.number, option.protective);
    EXPECT_EQ(OptionOf(instance, option.number), option.letter);
  }
}

TEST_F(InstanceOptionsTest, ItsOwnIsNobodyElses) {
  const Instance other(DeviceWithoutServer());
  for (const Option& option : kOfInstance) {
    EXPECT_EQ(libzelx_setOption(instance, option.number, option.protective), ZEL_OK);
    EXPECT_EQ(OptionOf(instance, option.number), option.protective);
    EXPECT_EQ(OptionOf(other, option.number), option.letter);
    EXPECT_EQ(OptionOf(0, option.number), option.letter);
  }
}

TEST_F(InstanceOptionsTest, AnOptionOfTheProcessGives8193) {
  int64_t value = 7;
  for (const Option& option : kOfProcess) {
    EXPECT_EQ(libzelx_setOption(instance, option.number, option.letter), ZEL_E_HANDLE) << option.number;
    EXPECT_EQ(libzelx_getOption(instance, option.number, &value), ZEL_E_HANDLE) << option.number;
  }
  EXPECT_EQ(value, 7);
}

TEST_F(InstanceOptionsTest, AnInstanceThatIsNotLiveGives8193) {
  EXPECT_EQ(libzelx_setOption(1, LIBZELX_CLOSE_WAIT_MS, 1), ZEL_E_HANDLE);
  EXPECT_EQ(OptionOf(1, LIBZELX_CLOSE_WAIT_MS), std::nullopt);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

TEST_F(InstanceOptionsTest, AValueOutOfRangeGives8196) {
  EXPECT_EQ(libzelx_setOption(instance, LIBZELX_HEADER_WAIT_MS, 0), ZEL_E_PARAM);
  EXPECT_EQ(OptionOf(instance, LIBZELX_HEADER_WAIT_MS), 20);
}

}  // namespace
}  // namespace zeltest
