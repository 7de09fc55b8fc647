// How often the library starts and ends the system's sockets. (Where the system has no such start, these
// tests show that nothing else ends with the library.)
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <memory>
#include <string>

#include "support/CapturedLog.h"
#include "support/OwnProcess.h"
#include "support/ScanAnswer.h"
#include "support/ScriptedServer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

struct Calls {
  int inits;
  int destroys;
};

std::ostream& operator<<(std::ostream& out, const Calls& calls) {
  return out << calls.inits << " to " << calls.destroys;
}

class SocketStartTest : public testing::TestWithParam<Calls> {
 protected:
  void SetUp() override { UseFreshProcesses(); }

  static void StartAndEnd(const CapturedLog& log) {
    for (int i = 0; i < GetParam().inits; ++i) EXPECT_EQ(libzel_init(), 0);
    // Discovery has made its sockets.
    EXPECT_TRUE(log.Await("DEBUG", "Init Zel Scan Finish,MutilCast Ip:239.255.0.3,port:38897"));
    for (int i = 0; i < GetParam().destroys; ++i) EXPECT_EQ(libzel_destory(), 0);
  }
};

TEST_P(SocketStartTest, DiscoveryGoesOn) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    StartAndEnd(log);
    ScanRecorder devices;
    EXPECT_EQ(libzel_registerZelScanEvent(ScanRecorder::Callback, &devices), 0);
    EXPECT_EQ(libzel_startZelScan(), 0);
    const TestDatagram device("127.0.0.1", 0);
    EXPECT_TRUE(Eventually([&] {
      (void)device.Send("127.0.0.1", kScanPort, ScanDatagram(DeviceDocument("1.2.3.4.5.6")));
      return devices.Await(1, 50);
    }));
    EXPECT_FALSE(log.Has("ERROR", "Select error!"));
    EXPECT_EQ(libzel_stopZelScan(), 0);
    EXPECT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0);
  });
}

TEST_P(SocketStartTest, TheHostsOwnSocketsGoOn) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    // Each of them starts the system's sockets for the test.
    const TestDatagram sender("127.0.0.1", 0);
    const TestDatagram receiver("127.0.0.1", 0);
    const uint16_t port = receiver.port();
    StartAndEnd(log);
    EXPECT_TRUE(sender.Send("127.0.0.1", port, Text("x")));
    EXPECT_TRUE(receiver.Receive(5000).has_value());
  });
}

TEST_P(SocketStartTest, TheLibraryMayBeStartedAgain) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    StartAndEnd(log);
    EXPECT_EQ(libzel_init(), 0);
    const ZelDeviceId device = DeviceWithoutServer();
    const ZelInstance instance = libzel_createInstance(&device, 0);
    EXPECT_NE(instance, 0U);
    EXPECT_EQ(libzel_loop_start(instance), 0);
    EXPECT_EQ(libzel_destory(), 0);
    EXPECT_EQ(libzel_loop_start(instance), ZEL_E_HANDLE);
  });
}

INSTANTIATE_TEST_SUITE_P(Calls, SocketStartTest,
                         testing::Values(Calls{1, 2}, Calls{2, 1}, Calls{2, 2}, Calls{1, 5}));

}  // namespace
}  // namespace zeltest
