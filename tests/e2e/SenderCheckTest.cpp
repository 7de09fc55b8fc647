// LIBZELX_CHECK_SENDER: whose answer a direct request takes. The devices are sockets of the test.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

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
  // The identifier that was taken, empty without one. A stranger answers first, the device if it does at all.
  std::string Ask(bool deviceAnswers, int32_t timeoutMs, const Bytes& extra = {}) {
    ZelDeviceId id{};
    const OngoingCall call([&] { return libzel_getRemoteZelDeviceId(kHost, timeoutMs, &id); });
    const auto request = device.Receive(kPatienceMs);
    if (!request) return "no request";
    if (!extra.empty()) (void)stranger.Send(request->host, request->port, extra);
    (void)stranger.Send(request->host, request->port, AnswerTo(*request, {6, 6, 6, 6, 6, 6}));
    if (deviceAnswers)
      (void)device.Send(request->host, request->port, AnswerTo(*request, {1, 2, 3, 4, 5, 6}));
    EXPECT_TRUE(call.Await());
    return call.end().result == 0 ? IdText(id) : "";
  }

  // This host's in the lab: not every system sends from a loopback address of one's own.
  static constexpr const char* kHost = "10.77.0.1";
  const TestDatagram device{kHost, 38898};
  const TestDatagram stranger{"127.0.0.1", 0};
};

TEST_F(SenderCheckTest, ByTheLetterAStrangersAnswerIsTaken) { EXPECT_EQ(Ask(true, 5000), "6.6.6.6.6.6"); }

TEST_F(SenderCheckTest, AStrangersAnswerIsPassedOver) {
  const OptionSet set(LIBZELX_CHECK_SENDER, 1);
  EXPECT_EQ(Ask(true, 5000), "1.2.3.4.5.6");
}

TEST_F(SenderCheckTest, AStrangersAnswerThatIsTooLongIsPassedOver) {
  const OptionSet set(LIBZELX_CHECK_SENDER, 1);
  EXPECT_EQ(Ask(true, 5000, Bytes(5000)), "1.2.3.4.5.6");
}

TEST_F(SenderCheckTest, StrangersDoNotMakeTheRequestLonger) {
  const OptionSet set(LIBZELX_CHECK_SENDER, 1);
  const ElapsedTime time;
  EXPECT_EQ(Ask(false, 300), "");
  EXPECT_GE(time.Ms(), 299);
  EXPECT_LT(time.Ms(), 3000);
}

}  // namespace
}  // namespace zeltest
