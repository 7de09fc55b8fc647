// LIBZELX_CHECK_SENDER: whose answer a direct request takes. The devices are sockets of the test.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include "support/Deadline.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/Options.h"
#include "support/ScanAnswer.h"
#include "support/ScriptedServer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

class SenderCheckTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  static Bytes AnswerTo(const Datagram& request, const Bytes& identifier) {
    return Answer(101, static_cast<uint32_t>(ReadBe(request.bytes, 12, 4)), identifier);
  }
  // The identifier that was taken, empty without one. A stranger answers first.
  std::string Ask(const Bytes& extra = {}) {
    ZelDeviceId id{};
    const OngoingCall call([&] { return libzel_getRemoteZelDeviceId(kHost, 5000, &id); });
    const auto request = device.Receive(kPatienceMs);
    if (!request) return "no request";
    if (!extra.empty()) (void)stranger.Send(request->host, request->port, extra);
    (void)stranger.Send(request->host, request->port, AnswerTo(*request, {6, 6, 6, 6, 6, 6}));
    (void)device.Send(request->host, request->port, AnswerTo(*request, {1, 2, 3, 4, 5, 6}));
    EXPECT_TRUE(call.Await());
    return call.end().result == 0 ? IdText(id) : "";
  }

  // This host's in the lab: not every system sends from a loopback address of one's own.
  static constexpr const char* kHost = "10.77.0.1";
  const TestDatagram device{kHost, 38898};
  const TestDatagram stranger{"127.0.0.1", 0};
};

TEST_F(SenderCheckTest, ByTheLetterAStrangersAnswerIsTaken) { EXPECT_EQ(Ask(), "6.6.6.6.6.6"); }

TEST_F(SenderCheckTest, AStrangersAnswerIsPassedOver) {
  const OptionSet set(LIBZELX_CHECK_SENDER, 1);
  EXPECT_EQ(Ask(), "1.2.3.4.5.6");
}

TEST_F(SenderCheckTest, AStrangersAnswerThatIsTooLongIsPassedOver) {
  const OptionSet set(LIBZELX_CHECK_SENDER, 1);
  EXPECT_EQ(Ask(Bytes(5000)), "1.2.3.4.5.6");
}

TEST_F(SenderCheckTest, StrangersDoNotMakeTheRequestLonger) {
  const OptionSet set(LIBZELX_CHECK_SENDER, 1);
  const Deadline deadline{60};
  const ElapsedTime time;
  ZelDeviceId id{};
  const OngoingCall call([&] { return libzel_getRemoteZelDeviceId(kHost, 300, &id); });
  const auto request = device.Receive(kPatienceMs);
  ASSERT_TRUE(request);
  while (!call.Await(50) && time.Ms() < 20000) {
    (void)stranger.Send(request->host, request->port, AnswerTo(*request, {6, 6, 6, 6, 6, 6}));
  }
  EXPECT_GE(time.Ms(), 299);
  EXPECT_LT(time.AwakeMs(), 3000);
  EXPECT_TRUE(call.Await());
  EXPECT_NE(call.end().result, 0);
}

}  // namespace
}  // namespace zeltest
