// LIBZELX_DEAD_PEER_MS: a host that is gone without a word. The simulator's, 10.77.0.2, whose hardware
// address is made to be nobody's.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <cstdlib>

#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Options.h"

namespace zeltest {
namespace {

constexpr ZelDeviceId kDevice{{10, 77, 0, 2, 0, 1}};

class DeadPeerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  DeadPeerTest() {
    for (const Instance* instance : {&letter, &chosen}) {
      EXPECT_EQ(instance->events.Numbers(), (Events{2, 1}));
      EXPECT_EQ(libzel_reconnect_delay_set(*instance, 3600), 0);
      EXPECT_EQ(libzel_loop_start(*instance), 0);
    }
  }
  ~DeadPeerTest() override { EXPECT_EQ(std::system("ip neigh flush dev eth0 nud permanent"), 0); }

  static void Die() {
    EXPECT_EQ(std::system("ip neigh replace 10.77.0.2 lladdr 02:00:00:00:00:99 dev eth0 nud permanent"), 0);
  }
  static int32_t Publish(ZelInstance instance) {
    const uint8_t byte = 0;
    return libzel_publish(instance, 0, 0, "topic", &byte, 1);
  }
  void ExpectNoticedByOne() {
    EXPECT_TRUE(chosen.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
    EXPECT_EQ(letter.events.Numbers(), (Events{2, 1}));
  }

  using Events = std::vector<int32_t>;
  const Deadline deadline{60};
  const Instance letter{kDevice};
  const Instance chosen{kDevice};
};

TEST_F(DeadPeerTest, ByTheLetterAQuietLinkStaysUpWhereItIsNoticed) {
  EXPECT_EQ(libzelx_setOption(chosen, LIBZELX_DEAD_PEER_MS, 2000), ZEL_OK);
  Die();
  ExpectNoticedByOne();
}

TEST_F(DeadPeerTest, ByTheLetterALinkWithDataUnderWayStaysUpWhereItIsNoticed) {
  EXPECT_EQ(libzelx_setOption(chosen, LIBZELX_DEAD_PEER_MS, 2000), ZEL_OK);
  Die();
  EXPECT_EQ(Publish(letter), ZEL_OK);
  EXPECT_EQ(Publish(chosen), ZEL_OK);
  ExpectNoticedByOne();
}

TEST_F(DeadPeerTest, WhatNewInstancesBeginWithHoldsFromTheFirstConnect) {
  const OptionSet set(LIBZELX_DEAD_PEER_MS, 2000);
  const Instance later(kDevice);
  EXPECT_EQ(libzel_loop_start(later), 0);
  Die();
  EXPECT_TRUE(later.events.AwaitEvent(ZEL_EVENT_DISCONNECTED));
}

TEST_F(DeadPeerTest, WhatIsSetBackIsByTheLetter) {
  EXPECT_EQ(libzelx_setOption(letter, LIBZELX_DEAD_PEER_MS, 2000), ZEL_OK);
  EXPECT_EQ(libzelx_setOption(letter, LIBZELX_DEAD_PEER_MS, 0), ZEL_OK);
  EXPECT_EQ(libzelx_setOption(chosen, LIBZELX_DEAD_PEER_MS, 2000), ZEL_OK);
  Die();
  ExpectNoticedByOne();
}

}  // namespace
}  // namespace zeltest
