#include "zelclient/msgrouter/MsgRouter.h"

#include <gtest/gtest.h>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::CapturedLog;
using zeltest::MessageRecorder;

struct SeenComponentMessage {
  ZelHeader header;
  Bytes body;
  IZelPeerConnection* connection;
};

void RememberComponentMessage(const ZelHeader* header, const uint8_t* body, uint32_t length,
                              IZelPeerConnection* connection, void* user) {
  static_cast<std::vector<SeenComponentMessage>*>(user)->push_back(
      {*header, Bytes(body, body + length), connection});
}

class MsgRouterTest : public testing::Test {
 protected:
  int32_t Call(uint8_t version, uint16_t port, const Bytes& body) {
    const auto size = static_cast<uint32_t>(body.size());
    return router.call({0, version, port, size}, body.data(), size, nullptr);
  }

  CMsgRouter router;
  MessageRecorder seen;
  std::vector<SeenComponentMessage> components;
};

TEST_F(MsgRouterTest, UserRegistrationSaysNothing) {
  const CapturedLog log;
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(MsgRouterTest, ComponentRegistrationIsLogged) {
  const CapturedLog log;
  EXPECT_EQ(router.addCmpMessageRouter(600, RememberComponentMessage, &components), 0);
  EXPECT_TRUE(log.Has("INFO", "Cmp port:600 router register..."));
}

TEST_F(MsgRouterTest, PortTakesOneEntryOfEitherKind) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(router.addCmpMessageRouter(601, RememberComponentMessage, &components), 0);
  const CapturedLog log;
  EXPECT_EQ(router.addCmpMessageRouter(600, RememberComponentMessage, &components), 4103);
  EXPECT_EQ(router.addUserMessaggeRouter(601, MessageRecorder::Callback, &seen), 4103);
  EXPECT_TRUE(log.Has("ERROR", "port:600 router is already register..."));
  EXPECT_TRUE(log.Has("ERROR", "port:601 router is already register..."));
}

TEST_F(MsgRouterTest, RefusedRegistrationKeepsTheFirstHandler) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(router.addCmpMessageRouter(600, RememberComponentMessage, &components), 4103);
  EXPECT_EQ(Call(0, 600, {1}), 0);
  EXPECT_EQ(seen.Count(), 1U);
}

TEST_F(MsgRouterTest, LimitsNoPort) {
  for (const uint16_t port : std::initializer_list<uint16_t>{0, 1, 103, 500, 65535}) {
    EXPECT_EQ(router.addUserMessaggeRouter(port, MessageRecorder::Callback, &seen), 0);
  }
}

TEST_F(MsgRouterTest, RemovalOfAFreePortFails) {
  SetErrno(0);
  const CapturedLog log;
  EXPECT_EQ(router.delMessageRouter(600), 4103);
  EXPECT_EQ(GetErrno(), 4103);
  EXPECT_TRUE(log.Has("ERROR", "port:600 router is not register..."));
}

TEST_F(MsgRouterTest, MessageOnAFreePortFails) {
  SetErrno(0);
  EXPECT_EQ(Call(0, 600, {1}), 4101);
  EXPECT_EQ(GetErrno(), 4101);
}

TEST_F(MsgRouterTest, ShortBodyLeavesTheErrorNumber) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  SetErrno(7);
  EXPECT_EQ(Call(1, 600, Bytes(12)), 4108);
  EXPECT_EQ(GetErrno(), 7);
  EXPECT_EQ(seen.Count(), 0U);
}

TEST_F(MsgRouterTest, BodyOf13BytesGivesAnEmptyPayload) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(Call(1, 600, Bytes(13)), 0);
  ASSERT_EQ(seen.Count(), 1U);
  EXPECT_TRUE(seen.All()[0].payload.empty());
}

TEST_F(MsgRouterTest, UserHandlerSeesVersions0And1Only) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  for (int version = 0; version < 256; ++version) {
    EXPECT_EQ(Call(static_cast<uint8_t>(version), 600, Bytes(14, 9)), 0);
  }
  ASSERT_EQ(seen.Count(), 2U);
  EXPECT_EQ(seen.All()[0].payload, Bytes(14, 9));
  EXPECT_EQ(seen.All()[1].payload, Bytes{9});
}

TEST_F(MsgRouterTest, ComponentHandlerSeesEveryVersionRaw) {
  EXPECT_EQ(router.addCmpMessageRouter(600, RememberComponentMessage, &components), 0);
  for (const uint8_t version : std::initializer_list<uint8_t>{0, 1, 2, 7})
    EXPECT_EQ(Call(version, 600, {1, 2}), 0);
  ASSERT_EQ(components.size(), 4U);
  EXPECT_EQ(components[3].header.version, 7);
  EXPECT_EQ(components[3].header.port, 600);
  EXPECT_EQ(components[3].header.nMsgLen, 2U);
  EXPECT_EQ(components[1].body, (Bytes{1, 2}));
}

TEST_F(MsgRouterTest, InnerHeaderIsLogged) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, MessageRecorder::Callback, &seen), 0);
  const CapturedLog log;
  EXPECT_EQ(Call(1, 600, zeltest::InnerHeader(1, 0x01020304, 9)), 0);
  EXPECT_TRUE(log.Has("DEBUG", "ZoeHeader:error:1,invokeId:16909060,Cmd:9"));
}

TEST_F(MsgRouterTest, NullHandlersAreSkipped) {
  EXPECT_EQ(router.addUserMessaggeRouter(600, nullptr, nullptr), 0);
  EXPECT_EQ(router.addCmpMessageRouter(601, nullptr, nullptr), 0);
  EXPECT_EQ(Call(1, 600, Bytes(3)), 0);
  EXPECT_EQ(Call(1, 601, Bytes(3)), 0);
}

}  // namespace
}  // namespace libzel
