// Many devices at once. The lab's simulator plays 1,000 of them on one host.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <set>
#include <string>

#include "support/LibraryStart.h"
#include "support/ScanAnswer.h"
#include "support/TraceFile.h"

namespace zeltest {
namespace {

constexpr size_t kDevices = 1000;

class DiscoveryFleetTest : public testing::Test {
 protected:
  // The request cycles until every device has been told of, or 0 when that takes too long.
  static size_t CyclesToFindAll() {
    // A call may still be under way at the process's end.
    static auto& devices = *new ScanRecorder;
    EXPECT_EQ(StartLibrary().result, 0);
    EXPECT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices), 0);
    EXPECT_EQ(libzel_startZelScan(), 0);
    const bool found = Eventually([&] { return Distinct(devices) == kDevices; });
    const auto cycles =
        TraceFile(1).Lines({{"service", "scan"}, {"dir", "in"}, {"type", "0"}, {"peer", "10.77.0.1:38897"}});
    EXPECT_EQ(libzel_stopZelScan(), 0);
    EXPECT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0);
    return found ? cycles.size() : 0;
  }

 private:
  static size_t Distinct(const ScanRecorder& devices) {
    std::set<std::string> ids;
    for (const SeenDevice& seen : devices.All()) ids.insert(seen.record.zelDeviceId);
    return ids.size();
  }
};

TEST_F(DiscoveryFleetTest, AnswersSpreadOver100MsAreAllHeardInOneCycle) { EXPECT_EQ(CyclesToFindAll(), 1U); }

TEST_F(DiscoveryFleetTest, AnswersInTheSameInstantAreAllHeardWithinThreeCycles) {
  const size_t cycles = CyclesToFindAll();
  EXPECT_GE(cycles, 1U);
  EXPECT_LE(cycles, 3U);
}

}  // namespace
}  // namespace zeltest
