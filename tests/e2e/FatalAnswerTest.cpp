// Discovery answers that end the process of whoever hears them.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>

#include "support/OwnProcess.h"
#include "support/Recorders.h"
#include "support/ScanAnswer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

class FatalAnswerTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override { UseFreshProcesses(); }

  // In a fresh process: sends until something comes of it. The process is still there when the wait runs out.
  static void Hear(const std::string& document) {
    ScanRecorder devices;
    ASSERT_EQ(libzel_init(), 0);
    ASSERT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices), 0);
    ASSERT_EQ(libzel_startZelScan(), 0);
    const TestDatagram device("127.0.0.1", 0);
    for (int i = 0; i < 200 && devices.Count() == 0; ++i) {
      (void)device.Send("127.0.0.1", kScanPort, ScanDatagram(document));
      (void)devices.Await(1, 50);
    }
    ASSERT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0);
    ASSERT_EQ(devices.Count(), 0U);
  }
};

TEST_P(FatalAnswerTest, EndsTheProcess) {
  EXPECT_ENDS_PROCESS({ Hear(GetParam()); });
}

INSTANTIATE_TEST_SUITE_P(Documents, FatalAnswerTest,
                         testing::Values("", "not json", "{", R"({"device":{"zelDeviceId":7}})",
                                         R"({"device":{"hostName":null}})", R"({"device":{"sn":{}}})",
                                         R"({"frames":[{"frameIp":"10.0.0.1"}]})",
                                         R"({"frames":[{"frameIp":1,"frameMacAddr":"m"}]})",
                                         R"({"frames":[{"frameIp":"1.2.3.4","frameMacAddr":2}]})",
                                         R"({"frames":{"frameIp":"1.2.3.4"}})"));

}  // namespace
}  // namespace zeltest
