// The hosts of identifiers: set, asked, bounded, kept from discovery, and followed.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <string>

#include "support/DiscoveryState.h"
#include "support/OptionLink.h"
#include "support/Options.h"

namespace zeltest {
namespace {

constexpr ZelDeviceId kDevice{{1, 2, 3, 4, 5, 6}};

std::string RouteOf(const ZelDeviceId& device) {
  char host[16] = "";
  EXPECT_EQ(libzelx_getRoute(&device, host, sizeof host), ZEL_OK);
  return host;
}

class RouteTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  ~RouteTest() override { EXPECT_EQ(libzelx_setRoute(&kDevice, nullptr), ZEL_OK); }

  const Deadline deadline{60};
};

TEST_F(RouteTest, AnUnknownOneIsTheIdentifiersFirstFourBytes) { EXPECT_EQ(RouteOf(kDevice), "1.2.3.4"); }

TEST_F(RouteTest, OneThatIsSetIsKnown) {
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.9"), ZEL_OK);
  EXPECT_EQ(RouteOf(kDevice), "10.0.0.9");
}

TEST_F(RouteTest, OneThatIsForgottenIsUnknown) {
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.9"), ZEL_OK);
  EXPECT_EQ(libzelx_setRoute(&kDevice, nullptr), ZEL_OK);
  EXPECT_EQ(RouteOf(kDevice), "1.2.3.4");
}

TEST_F(RouteTest, LaterInstancesTakeIt) {
  ScriptedServer server;
  EXPECT_EQ(libzelx_setRoute(&kDevice, server.host().c_str()), ZEL_OK);
  const Instance instance(kDevice);
  EXPECT_TRUE(server.Accept().IsOpen());
}

TEST_F(RouteTest, WhatIsNoAddressGives8196AndChangesNothing) {
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.9"), ZEL_OK);
  for (const char* bad : {"", "host", "10.0.0", "10.0.0.9.1", "10.0.0.256", "10.0.0.9 ", " 10.0.0.9",
                          "10.0.0.-1", "10..0.9", "0010.0.0.9", "10.0.0.0x9"}) {
    EXPECT_EQ(libzelx_setRoute(&kDevice, bad), ZEL_E_PARAM) << bad;
  }
  EXPECT_EQ(RouteOf(kDevice), "10.0.0.9");
}

TEST_F(RouteTest, NullGivesItsCode) {
  char host[16];
  EXPECT_EQ(libzelx_setRoute(nullptr, "10.0.0.9"), ZEL_E_DEVICE_ID);
  EXPECT_EQ(libzelx_getRoute(nullptr, host, sizeof host), ZEL_E_DEVICE_ID);
  EXPECT_EQ(libzelx_getRoute(&kDevice, nullptr, 16), ZEL_E_PARAM);
}

TEST_F(RouteTest, RoomThatIsTooSmallGives8196) {
  char host[16] = "x";
  EXPECT_EQ(libzelx_getRoute(&kDevice, host, 7), ZEL_E_PARAM);
  EXPECT_STREQ(host, "x");
  EXPECT_EQ(libzelx_getRoute(&kDevice, host, 8), ZEL_OK);
}

// ---- Beside discovery: devices on 127.0.0.1 answer -------------------------------------------------------

class LearnedRouteTest : public RouteTest {
 protected:
  LearnedRouteTest() { EXPECT_TRUE(device.Settle()); }
  // Answers in the name of an identifier, and waits until that has been taken in.
  void Answer(const ZelDeviceId& id) {
    device.Answer(IdText(id));
    EXPECT_TRUE(device.Settle());
  }

  AnsweringDevice device{kLocal};
};

TEST_F(LearnedRouteTest, ByTheLetterAnAnswerChangesOneThatWasSet) {
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.9"), ZEL_OK);
  Answer(kDevice);
  EXPECT_EQ(RouteOf(kDevice), kLocal);
}

TEST_F(LearnedRouteTest, AnAnswerLeavesAPinnedOneAlone) {
  const OptionSet set(LIBZELX_KEEP_ROUTES, 1);
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.9"), ZEL_OK);
  Answer(kDevice);
  EXPECT_EQ(RouteOf(kDevice), "10.0.0.9");
}

TEST_F(LearnedRouteTest, AnAnswerChangesOneThatIsNotPinned) {
  const OptionSet set(LIBZELX_KEEP_ROUTES, 1);
  Answer(kDevice);
  EXPECT_EQ(RouteOf(kDevice), kLocal);
}

TEST_F(LearnedRouteTest, ByTheLetterAnAnswerChangesThatOfAConnectedIdentifier) {
  ScriptedServer server;
  const Instance instance(server.device());
  Answer(server.device());
  EXPECT_EQ(RouteOf(server.device()), kLocal);
}

TEST_F(LearnedRouteTest, AnAnswerLeavesThatOfAConnectedIdentifierAlone) {
  const OptionSet set(LIBZELX_KEEP_ROUTES, 1);
  ScriptedServer server;
  const Instance instance(server.device());
  Answer(server.device());
  EXPECT_EQ(RouteOf(server.device()), server.host());
}

TEST_F(LearnedRouteTest, AnAnswerChangesThatOfAnIdentifierThatIsNotConnected) {
  const OptionSet set(LIBZELX_KEEP_ROUTES, 1);
  const ZelDeviceId away = DeviceWithoutServer();
  const Instance instance(away);
  Answer(away);
  EXPECT_EQ(RouteOf(away), kLocal);
}

TEST_F(LearnedRouteTest, ByTheLetterThereIsNoLimit) {
  for (uint8_t i = 0; i < 200; ++i) Answer({{9, 9, 9, 9, 1, i}});
  EXPECT_EQ(RouteOf({{9, 9, 9, 9, 1, 199}}), kLocal);
}

TEST_F(LearnedRouteTest, AboveTheLimitNoneIsLearned) {
  const OptionSet set(LIBZELX_MAX_ROUTES, 1);  // there are more already
  const ZelDeviceId fresh{{9, 9, 9, 9, 2, 1}};
  Answer(fresh);
  EXPECT_EQ(RouteOf(fresh), "9.9.9.9");
  EXPECT_EQ(libzelx_setRoute(&fresh, "10.0.0.9"), ZEL_E_PARAM);
}

TEST_F(LearnedRouteTest, AboveTheLimitAKnownOneCanBeChanged) {
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.9"), ZEL_OK);
  const OptionSet set(LIBZELX_MAX_ROUTES, 1);
  EXPECT_EQ(libzelx_setRoute(&kDevice, "10.0.0.8"), ZEL_OK);
  EXPECT_EQ(RouteOf(kDevice), "10.0.0.8");
}

// ---- Following --------------------------------------------------------------------------------------------

class FollowRouteTest : public OptionLinkTest {
 protected:
  FollowRouteTest() { chosen.Set(LIBZELX_FOLLOW_ROUTE, 1); }
  // From here on the identifier's server is another one.
  static void Move(const OptionLink& link, const ScriptedServer& server) {
    const ZelDeviceId device = link.server.device();
    EXPECT_EQ(libzelx_setRoute(&device, server.host().c_str()), ZEL_OK);
  }
  static bool Reconnect(OptionLink& link) {
    link.peer.Close();
    EXPECT_EQ(libzel_loop_start(link.instance), 0);
    EXPECT_TRUE(link.AwaitEvent5());
    return libzel_reconnect(link.instance, 1500);
  }

  ScriptedServer other;
};

TEST_F(FollowRouteTest, ByTheLetterAnInstanceGoesBackToItsHost) {
  Move(letter, other);
  EXPECT_TRUE(Reconnect(letter));
  EXPECT_TRUE(letter.server.Accept().IsOpen());
}

TEST_F(FollowRouteTest, TheNextReconnectGoesToTheNewHost) {
  Move(chosen, other);
  EXPECT_TRUE(Reconnect(chosen));
  EXPECT_TRUE(other.Accept().IsOpen());
}

TEST_F(FollowRouteTest, ALinkThatIsUpStaysWhereItIs) {
  Move(chosen, other);
  EXPECT_TRUE(libzel_reconnect(chosen.instance, 1500));
  EXPECT_GT(chosen.link.instance.Send(600, Text("x")), 0);
  EXPECT_TRUE(chosen.peer.ReadRequest().whole);
}

TEST_F(FollowRouteTest, ALinkWhoseEndNobodyHasSeenYetIsNotUp) {
  Move(chosen, other);
  chosen.peer.Close();
  EXPECT_TRUE(libzel_reconnect(chosen.instance, 1500));
  EXPECT_TRUE(other.Accept().IsOpen());
}

TEST_F(FollowRouteTest, AFailureNamesTheNewHost) {
  Move(chosen, other);
  other.StopListening();
  EXPECT_FALSE(Reconnect(chosen));
  char text[256] = "";
  EXPECT_EQ(libzelx_lastFailure(chosen.instance, text, sizeof text), ZEL_OK);
  EXPECT_TRUE(std::string(text).starts_with("connect " + other.host() + ":9999: ")) << text;
}

}  // namespace
}  // namespace zeltest
