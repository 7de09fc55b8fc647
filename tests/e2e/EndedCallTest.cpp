// Calls that wait for their server when their instance is released, or the library ended.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "support/Wire.h"

namespace zeltest {
namespace {

constexpr uint32_t kLongMs = 10000;

// More than the system takes in for a peer that does not read.
const Bytes& HugeData() {
  static const Bytes data(10000000, 'd');
  return data;
}
const std::string& HugeTopic() {
  static const std::string topic(10000000, 't');
  return topic;
}

enum class Ending { kRelease, kDestroy };

std::ostream& operator<<(std::ostream& out, Ending ending) {
  return out << (ending == Ending::kRelease ? "release" : "destroy");
}

// Gives the time that it took, in ms.
int64_t End(Ending ending, ZelInstance instance) {
  const ElapsedTime time;
  if (ending == Ending::kRelease) {
    (void)libzel_releaseInstance(instance);
  } else {
    (void)libzel_destory();
  }
  const int64_t elapsedMs = time.Ms();
  if (ending == Ending::kDestroy) (void)libzel_init();  // the later tests' start
  return elapsedMs;
}

struct Scene {
  explicit Scene(bool hasServer) {
    instance = std::make_unique<Instance>(hasServer ? server.device() : UnreachableDevice(0),
                                          hasServer ? 1500 : 100);
    if (hasServer) peer = server.Accept();
    (void)libzel_reconnect_delay_set(*instance, hasServer ? 3600 : 0);
  }

  ScriptedServer server;
  std::unique_ptr<Instance> instance;
  Peer peer;
  CapturedLog log;
};

// Somebody else's answer shows that the call reads, as it is logged.
bool IsReading(Scene& scene, const Bytes& more) {
  constexpr uint32_t kOthers = 77;
  return scene.peer.Send(Answer(600, kOthers, Text("x")) + more) &&
         scene.log.Await("ERROR", "LastinvokeId:0 !=recv invokeId:77");
}
bool IsReceiving(Scene& scene) { return IsReading(scene, {}); }
bool IsInABody(Scene& scene) { return IsReading(scene, OuterHeader(1, 600, 100000) + Bytes(20)); }
bool IsSending(Scene& scene) { return scene.peer.HasInput(kPatienceMs); }
bool IsConnecting(Scene& scene) { return scene.instance->events.AwaitEvent(ZEL_EVENT_PENDING, 2); }

int64_t Receive(ZelInstance instance) {
  uint8_t buffer[8];
  return libzel_sync_recv(instance, nullptr, buffer, sizeof buffer, kLongMs);
}
int64_t Send(ZelInstance instance) {
  return libzel_sync_send(instance, 600, 1, 2, HugeData().data(), static_cast<uint32_t>(HugeData().size()),
                          kLongMs);
}
int64_t Publish(ZelInstance instance) {
  return libzel_publish(instance, 1, 2, "topic", HugeData().data(), static_cast<uint32_t>(HugeData().size()));
}
int64_t Subscribe(ZelInstance instance) {
  return libzel_subscribe(instance, HugeTopic().c_str(), TopicRecorder::Callback, nullptr);
}
int64_t SubscribeShort(ZelInstance instance) {
  return libzel_subscribe(instance, "topic", TopicRecorder::Callback, nullptr);
}
int64_t UnsubscribeShort(ZelInstance instance) {
  // The subscription is kept although its turn to reconnect does not come.
  (void)libzel_reconnect_delay_set(instance, 3600);
  (void)SubscribeShort(instance);
  (void)libzel_reconnect_delay_set(instance, 0);
  return libzel_unsubscribe(instance, "topic");
}
int64_t Reconnect(ZelInstance instance) { return libzel_reconnect(instance, kLongMs) ? 1 : 0; }

struct Case {
  const char* name;
  bool hasServer;
  int64_t (*call)(ZelInstance instance);
  bool (*isUnderWay)(Scene& scene);
  int64_t failure;
};

std::ostream& operator<<(std::ostream& out, const Case& row) { return out << row.name; }

constexpr Case kOnALink[] = {
    {"Receive", true, Receive, IsReceiving, -1},
    {"ReceiveInsideABody", true, Receive, IsInABody, -1},
    {"Send", true, Send, IsSending, -1},
    {"Publish", true, Publish, IsSending, ZEL_E_DISCONNECTED},
    {"Subscribe", true, Subscribe, IsSending, ZEL_E_DISCONNECTED},
};

constexpr Case kConnecting[] = {
    {"Reconnect", false, Reconnect, IsConnecting, 0},
    {"ReceiveThatReconnects", false, Receive, IsConnecting, -1},
    {"SendThatReconnects", false, Send, IsConnecting, -1},
    {"PublishThatReconnects", false, Publish, IsConnecting, ZEL_E_DISCONNECTED},
    {"SubscribeThatReconnects", false, SubscribeShort, IsConnecting, ZEL_E_DISCONNECTED},
    {"UnsubscribeThatReconnects", false, UnsubscribeShort, IsConnecting, ZEL_E_DISCONNECTED},
};

struct Outcome {
  OngoingCall::End end;
  int64_t callMs = 0;
  int64_t enderMs = 0;
  bool peerSawTheEnd = false;
  std::vector<int32_t> eventsBefore;
  std::vector<int32_t> events;
  std::vector<std::string> errors;
};

std::vector<std::string> Errors(const CapturedLog& log, size_t from) {
  std::vector<std::string> errors;
  const auto lines = log.Lines();
  for (size_t i = from; i < lines.size(); ++i) {
    if (lines[i].level == "ERROR") errors.push_back(lines[i].message);
  }
  return errors;
}

class EndedCallTest : public testing::TestWithParam<std::tuple<Case, Ending>> {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  static const Case& Row() { return std::get<0>(GetParam()); }

  static Outcome Run() {
    Scene scene(Row().hasServer);
    const ZelInstance handle = *scene.instance;
    OngoingCall call([&] { return Row().call(handle); });
    EXPECT_TRUE(Row().isUnderWay(scene));
    Outcome outcome{};
    outcome.eventsBefore = scene.instance->events.Numbers();
    const size_t linesBefore = scene.log.Lines().size();
    const auto start = std::chrono::steady_clock::now();
    outcome.enderMs = End(std::get<1>(GetParam()), handle);
    (void)call.Await(2000);
    outcome.peerSawTheEnd = scene.peer.IsOpen() && scene.peer.AwaitEnd(2000);
    scene.peer.Close();  // ends what the library has not
    EXPECT_TRUE(call.Await(60000));
    outcome.end = call.end();
    outcome.callMs = outcome.end.MsSince(start);
    outcome.events = scene.instance->events.Numbers();
    outcome.errors = Errors(scene.log, linesBefore);
    return outcome;
  }

  const Deadline deadline{100};
};

TEST_P(EndedCallTest, EndsAtOnce) {
  const int64_t quickestMs = QuickestMs([] { return Run().callMs; });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_P(EndedCallTest, HoldsUpNobody) {
  const int64_t quickestMs = QuickestMs([] { return Run().enderMs; });
  EXPECT_LT(quickestMs, kPromptMs);
}

TEST_P(EndedCallTest, FailsWith5) {
  const Outcome outcome = Run();
  EXPECT_EQ(outcome.end.result, Row().failure);
  EXPECT_EQ(outcome.end.error, ZEL_E_DISCONNECTED);
}

TEST_P(EndedCallTest, IsNoEvent) {
  const Outcome outcome = Run();
  EXPECT_EQ(outcome.events, outcome.eventsBefore);
}

TEST_P(EndedCallTest, IsNoErrorInTheLog) { EXPECT_EQ(Run().errors, std::vector<std::string>{}); }

class EndedLinkTest : public EndedCallTest {};

TEST_P(EndedLinkTest, IsNoLongerThereForTheServer) { EXPECT_TRUE(Run().peerSawTheEnd); }

std::string NameOf(const testing::TestParamInfo<std::tuple<Case, Ending>>& row) {
  return std::string(std::get<0>(row.param).name) +
         (std::get<1>(row.param) == Ending::kRelease ? "Released" : "Destroyed");
}

constexpr Ending kEndings[] = {Ending::kRelease, Ending::kDestroy};

INSTANTIATE_TEST_SUITE_P(OnALink, EndedCallTest,
                         testing::Combine(testing::ValuesIn(kOnALink), testing::ValuesIn(kEndings)), NameOf);
INSTANTIATE_TEST_SUITE_P(Connecting, EndedCallTest,
                         testing::Combine(testing::ValuesIn(kConnecting), testing::ValuesIn(kEndings)),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(OnALink, EndedLinkTest,
                         testing::Combine(testing::ValuesIn(kOnALink), testing::ValuesIn(kEndings)), NameOf);

}  // namespace
}  // namespace zeltest
