// Pointers that are null.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <functional>
#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/FileDevice.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

namespace zeltest {
namespace {

constexpr ZelInstance kNone = 0;

struct NullRow {
  const char* name;
  // Gives the call's result.
  int64_t (*call)(ZelInstance instance);
  int64_t result;
};

std::ostream& operator<<(std::ostream& out, const NullRow& row) { return out << row.name; }

constexpr uint8_t kByte = 1;

constexpr NullRow kWithInstance[] = {
    {"SyncSendsData",
     [](ZelInstance i) -> int64_t { return libzel_sync_send(i, 600, 1, 2, nullptr, 1, 100); }, -1},
    {"SyncRecvsBuffer",
     [](ZelInstance i) -> int64_t { return libzel_sync_recv(i, nullptr, nullptr, 1, 100); }, -1},
    {"PublishsTopic", [](ZelInstance i) -> int64_t { return libzel_publish(i, 1, 2, nullptr, &kByte, 1); },
     ZEL_E_PARAM},
    {"PublishsData", [](ZelInstance i) -> int64_t { return libzel_publish(i, 1, 2, "t", nullptr, 1); },
     ZEL_E_PARAM},
    {"SubscribesTopic",
     [](ZelInstance i) -> int64_t { return libzel_subscribe(i, nullptr, TopicRecorder::Callback, nullptr); },
     ZEL_E_PARAM},
    {"UnsubscribesTopic", [](ZelInstance i) -> int64_t { return libzel_unsubscribe(i, nullptr); },
     ZEL_E_PARAM},
};

constexpr NullRow kWithoutInstance[] = {
    {"MakeDeviceIdsText",
     [](ZelInstance) -> int64_t {
       ZelDeviceId id;
       return libzel_makeZelDeviceId(nullptr, &id);
     },
     ZEL_E_PARAM},
    {"ZelMakeDeviceIdsText", [](ZelInstance) -> int64_t { return ZelMakeDeviceId(nullptr, nullptr); },
     ZEL_E_PARAM},
    {"MakeDeviceAddrsText",
     [](ZelInstance) -> int64_t { return libzel_makeZelDeviceAddr(nullptr, 600, nullptr); }, ZEL_E_PARAM},
    {"GetLocalsOut", [](ZelInstance) -> int64_t { return libzel_getLocalZelDeviceId(nullptr); }, ZEL_E_PARAM},
    {"ZelGetLocalsOut", [](ZelInstance) -> int64_t { return ZelGetLocalDeviceId(nullptr); }, ZEL_E_PARAM},
    {"GetRemotesHost",
     [](ZelInstance) -> int64_t {
       ZelDeviceId id;
       return libzel_getRemoteZelDeviceId(nullptr, 100, &id);
     },
     ZEL_E_PARAM},
    {"GetRemotesOut",
     [](ZelInstance) -> int64_t { return libzel_getRemoteZelDeviceId("127.0.0.1", 100, nullptr); },
     ZEL_E_PARAM},
    {"ZelGetRemotesHost",
     [](ZelInstance) -> int64_t {
       ZelDeviceId id;
       return ZelGetRemoteDeviceId(nullptr, &id, 100);
     },
     ZEL_E_PARAM},
    {"SetRemotesHost",
     [](ZelInstance) -> int64_t { return libzel_setRemoteZelDeviceId(nullptr, "1.2.3.4.5.6", 100); },
     ZEL_E_PARAM},
    {"SetRemotesText",
     [](ZelInstance) -> int64_t { return libzel_setRemoteZelDeviceId("127.0.0.1", nullptr, 100); },
     ZEL_E_PARAM},
    {"ReadRequestsTarget",
     [](ZelInstance) -> int64_t { return ZelSyncReadReq(nullptr, 1, 2, 0, nullptr, nullptr, 100); },
     0xFFFFFFFF},
};

std::string NullRowName(const testing::TestParamInfo<NullRow>& row) { return row.param.name; }

class NullTest : public testing::TestWithParam<NullRow> {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const CapturedLog log;
};

TEST_P(NullTest, Is8196) {
  ScriptedServer server;
  const Link link(server);
  EXPECT_EQ(GetParam().call(link.instance), GetParam().result);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

TEST_P(NullTest, SendsNothing) {
  ScriptedServer server;
  Link link(server);
  (void)GetParam().call(link.instance);
  EXPECT_FALSE(link.peer.HasInput(20));
}

INSTANTIATE_TEST_SUITE_P(WithInstance, NullTest, testing::ValuesIn(kWithInstance), NullRowName);
INSTANTIATE_TEST_SUITE_P(WithoutInstance, NullTest, testing::ValuesIn(kWithoutInstance), NullRowName);

class NullOrderTest : public NullTest {};

TEST_P(NullOrderTest, TheInstanceIsLookedAtFirst) {
  (void)GetParam().call(kNone);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_HANDLE);
}

INSTANTIATE_TEST_SUITE_P(WithInstance, NullOrderTest, testing::ValuesIn(kWithInstance), NullRowName);

// ---- What may be null -------------------------------------------------------------------------------------

class AllowedNullTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const CapturedLog log;
  ScriptedServer server;
};

TEST_F(AllowedNullTest, ReservedPortsAreRefusedBeforeTheInstanceIsLookedAt) {
  EXPECT_EQ(libzel__registerRouterEvent(kNone, 500, nullptr, nullptr), ZEL_E_RESERVED_PORT);
  EXPECT_EQ(libzel__registerRouterEvent(kNone, 501, nullptr, nullptr), ZEL_E_HANDLE);
}

TEST_F(AllowedNullTest, ANullIdentifierStays4097) {
  EXPECT_EQ(libzel_createInstance(nullptr, 0), kNone);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DEVICE_ID);
  EXPECT_EQ(libzel_createInstanceEx(nullptr, 0, 100, nullptr, nullptr), kNone);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_DEVICE_ID);
}

TEST_F(AllowedNullTest, DataOfNoLength) {
  Link link(server);
  EXPECT_EQ(libzel_sync_send(link.instance, 600, 1, 2, nullptr, 0, 1000), 29);
  EXPECT_EQ(libzel_publish(link.instance, 1, 2, "t", nullptr, 0), 0);
}

TEST_F(AllowedNullTest, ABufferOfNoSize) {
  Link link(server);
  EXPECT_EQ(libzel_sync_send(link.instance, 600, 1, 2, nullptr, 0, 1000), 29);
  EXPECT_TRUE(link.peer.Serve(Text("answer")).whole);
  EXPECT_EQ(libzel_sync_recv(link.instance, nullptr, nullptr, 0, kPatienceMs), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(AllowedNullTest, Callbacks) {
  MessageRecorder seen;
  Link link(server);
  EXPECT_EQ(libzel_subscribe(link.instance, "t", nullptr, nullptr), 0);
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 600, nullptr, nullptr), 0);
  EXPECT_EQ(libzel__registerRouterEvent(link.instance, 601, MessageRecorder::Callback, &seen), 0);
  EXPECT_EQ(libzel_loop_start(link.instance), 0);
  EXPECT_TRUE(
      link.peer.Send(TopicMessage("t", Text("x")) + Message(0, 600, Text("x")) + Message(0, 601, Text("x"))));
  EXPECT_TRUE(seen.Await(1));
  link.instance.Release();
}

TEST_F(AllowedNullTest, TheScanCallback) { EXPECT_EQ(libzel_registerZelScanEvent(nullptr, nullptr), 0); }

TEST_F(AllowedNullTest, TheIdentifierThatIsMade) {
  EXPECT_EQ(libzel_makeZelDeviceId("1.2.3.4.5.6", nullptr), 0);
  EXPECT_EQ(libzel_makeZelDeviceAddr("1.2.3.4.5.6", 600, nullptr), 0);
}

TEST_F(AllowedNullTest, AReadRequestWithoutATargetStillClearsItsLength) {
  uint32_t length = 7;
  EXPECT_EQ(ZelSyncReadReq(nullptr, 1, 2, 0, nullptr, &length, 100), 0xFFFFFFFFU);
  EXPECT_EQ(length, 0U);
}

// ---- File transfers ---------------------------------------------------------------------------------------

class NullPathTest : public AllowedNullTest {
 protected:
  uint32_t Transfer(const char* localPath, const char* remotePath) {
    return ZelFileTransfer(device.Target(), 0, 0, localPath, remotePath, ProgressRecorder::Callback,
                           &progress());
  }
  // Lives on: the library may hold it a little longer than the test.
  static ProgressRecorder& progress() {
    static ProgressRecorder recorder;
    return recorder;
  }
  void SetUp() override { before = progress().Count(); }
  SeenProgress Last() const { return progress().All().back(); }

  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  FileDevice device;
  size_t before = 0;
};

TEST_F(NullPathTest, Is8196) {
  (void)Transfer(nullptr, "to");
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
  (void)Transfer(path.c_str(), nullptr);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

TEST_F(NullPathTest, IsToldOnce) {
  const uint32_t number = Transfer(nullptr, "to");
  ASSERT_EQ(progress().Count(), before + 1);
  EXPECT_EQ(Last().transfer, number);
  EXPECT_EQ(Last().error, static_cast<uint32_t>(ZEL_E_PARAM));
  EXPECT_EQ(Last().state, 3);
  EXPECT_EQ(Last().progress, 0.0F);
  EXPECT_EQ(Last().thread, std::this_thread::get_id());
}

TEST_F(NullPathTest, TakesANumber) {
  const uint32_t number = Transfer(path.c_str(), nullptr);
  EXPECT_EQ(Transfer(nullptr, nullptr), number + 1);
}

TEST_F(NullPathTest, HoldsUpNoOtherTransfer) {
  (void)Transfer(nullptr, "to");
  (void)Transfer(path.c_str(), "to");
  EXPECT_TRUE(progress().AwaitThat([&](const auto& steps) { return steps.back().state == 2; }));
  EXPECT_EQ(device.messages.Count(), 2U);
}

TEST_F(NullPathTest, NeedsNoCallback) {
  (void)ZelFileTransfer(device.Target(), 0, 0, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

}  // namespace
}  // namespace zeltest
