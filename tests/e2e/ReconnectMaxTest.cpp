// LIBZELX_RECONNECT_MAX_SEC: how often a server that is away is called.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include "support/OptionLink.h"

namespace zeltest {
namespace {

class ReconnectMaxTest : public OptionLinkTest {
 protected:
  ReconnectMaxTest() {
    chosen.Set(LIBZELX_RECONNECT_MAX_SEC, 60);
    for (OptionLink* link : {&letter, &chosen}) {
      EXPECT_EQ(libzel_reconnect_delay_set(link->instance, 0), 0);
      link->server.StopListening();
      link->Start();
      link->peer.Close();
    }
  }
  static int64_t Failures(const OptionLink& link) {
    const EventNumbers events = link.events();
    return std::count(events.begin(), events.end(), ZEL_EVENT_FAILED);
  }
};

TEST_F(ReconnectMaxTest, ByTheLetterItIsCalledAllTheTimeWherePausesDoubleMoreAndMoreSeldom) {
  EXPECT_TRUE(chosen.link.instance.events.AwaitEvent(ZEL_EVENT_FAILED, 2));
  EXPECT_TRUE(Eventually([&] { return Failures(letter) > Failures(chosen) + 3; }));
  const auto all = chosen.link.instance.events.All();
  EXPECT_GE(all.back().when - all[all.size() - 3].when, std::chrono::milliseconds(900));
}

TEST_F(ReconnectMaxTest, AServerThatComesBackIsFound) {
  EXPECT_TRUE(chosen.link.instance.events.AwaitEvent(ZEL_EVENT_FAILED));
  chosen.server.Listen();
  EXPECT_TRUE(chosen.server.Accept().IsOpen());
}

}  // namespace
}  // namespace zeltest
