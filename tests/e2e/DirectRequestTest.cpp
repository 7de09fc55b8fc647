// Asking and setting a device's identifier with single datagrams. The devices are sockets of the test on
// loopback addresses.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OwnProcess.h"
#include "support/ScanAnswer.h"
#include "support/TestDatagram.h"

namespace zeltest {
namespace {

constexpr uint16_t kDirectPort = 38898;
constexpr int kShortMs = 200;
constexpr int kTurnMs = 20;

uint32_t InvokeIdOf(const Bytes& request) { return static_cast<uint32_t>(ReadBe(request, 12, 4)); }

// A device that makes its answer from the request; an empty answer is none.
class DirectDevice {
 public:
  using Reaction = std::function<Bytes(const Bytes& request)>;

  explicit DirectDevice(Reaction reaction)
      : reaction_(std::move(reaction)), thread_([this] {
          while (!ended_) Turn();
        }) {}
  ~DirectDevice() {
    ended_ = true;
    thread_.join();
  }
  DirectDevice(const DirectDevice&) = delete;
  DirectDevice& operator=(const DirectDevice&) = delete;

  const char* host() const { return server_.host().c_str(); }
  ScriptedServer& server() { return server_; }

  Recorder<Bytes> requests;

 private:
  void Turn() {
    const auto request = socket_.Receive(kTurnMs);
    if (!request) return;
    requests.Add(request->bytes);
    const Bytes answer = reaction_(request->bytes);
    if (!answer.empty()) (void)socket_.Send(request->host, request->port, answer);
  }

  const Reaction reaction_;
  ScriptedServer server_;
  TestDatagram socket_{server_.host(), kDirectPort};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

const Bytes kIdentifier{9, 8, 7, 6, 5, 4};

Bytes Good(const Bytes& request) { return Answer(101, InvokeIdOf(request), kIdentifier); }
Bytes Silent(const Bytes&) { return {}; }

bool operator==(const ZelDeviceId& id, const Bytes& bytes) {
  return std::equal(bytes.begin(), bytes.end(), id.bytes);
}

class DirectRequestTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // The result of asking a device that answers so.
  int32_t Ask(const DirectDevice::Reaction& reaction, int32_t timeoutMs = kPatienceMs) {
    const DirectDevice device(reaction);
    return libzel_getRemoteZelDeviceId(device.host(), timeoutMs, &out_);
  }

  ZelDeviceId out_{{1, 1, 1, 1, 1, 1}};
};

// ---- What is sent -----------------------------------------------------------------------------------------

TEST_F(DirectRequestTest, AskingSends29Bytes) {
  const DirectDevice device(Good);
  ASSERT_EQ(libzel_getRemoteZelDeviceId(device.host(), kPatienceMs, &out_), 0);
  const Bytes request = device.requests.All().at(0);
  EXPECT_EQ(request, (Bytes{0x00, 0x01, 0x65, 0x00, 0x15, 0x00, 0x00, 0x00, 0, 0, 0, 0} +
                      Be(InvokeIdOf(request), 4) + Bytes{0, 1, 0, 0, 0} + Be(0x1000, 4) + Be(0x1001, 4)));
}

TEST_F(DirectRequestTest, SettingSendsTheIdentifier) {
  const DirectDevice device([](const Bytes& request) { return Answer(101, InvokeIdOf(request), {}); });
  ASSERT_EQ(libzel_setRemoteZelDeviceId(device.host(), "1.2.3.4.5.256", kPatienceMs), 0);
  const Bytes request = device.requests.All().at(0);
  EXPECT_EQ(request,
            (Bytes{0x00, 0x01, 0x65, 0x00, 0x1B, 0x00, 0x00, 0x00, 0, 0, 0, 0} + Be(InvokeIdOf(request), 4) +
             Bytes{0, 5, 0, 0, 0} + Be(0x1001, 4) + Be(0x1002, 4) + Bytes{1, 2, 3, 4, 5, 0}));
}

TEST_F(DirectRequestTest, InvokeIdentifiersCountFrom0InEveryProcess) {
  UseFreshProcesses();
  IN_OWN_PROCESS({
    const DirectDevice device(Good);
    ZelDeviceId out;
    for (uint32_t expected = 0; expected < 3; ++expected) {
      EXPECT_EQ(libzel_getRemoteZelDeviceId(device.host(), kPatienceMs, &out), 0);
      EXPECT_EQ(InvokeIdOf(device.requests.All().at(expected)), expected);
    }
  });
}

TEST_F(DirectRequestTest, NoTwoThreadsShareAnInvokeIdentifier) {
  constexpr size_t kThreads = 4, kEach = 25;
  const DirectDevice device(Good);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&device] {
      ZelDeviceId out;
      for (size_t k = 0; k < kEach; ++k)
        EXPECT_EQ(libzel_getRemoteZelDeviceId(device.host(), kPatienceMs, &out), 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<uint32_t> ids;
  for (const Bytes& request : device.requests.All()) ids.push_back(InvokeIdOf(request));
  std::ranges::sort(ids);
  EXPECT_EQ(ids.size(), kThreads * kEach);
  EXPECT_EQ(std::ranges::adjacent_find(ids), ids.end());
}

TEST_F(DirectRequestTest, ARequestIsNotSentAgain) {
  const DirectDevice device(Silent);
  ASSERT_EQ(libzel_getRemoteZelDeviceId(device.host(), kShortMs, &out_), ZEL_E_TIMEOUT);
  EXPECT_EQ(device.requests.Count(), 1U);
}

// ---- Answers that are taken -------------------------------------------------------------------------------

TEST_F(DirectRequestTest, TheFirstSixBytesOfTheAnswerAreTheIdentifier) {
  EXPECT_EQ(Ask([](const Bytes& request) {
              return Answer(101, InvokeIdOf(request), kIdentifier + Bytes(20, 0xEE));
            }),
            0);
  EXPECT_TRUE(out_ == kIdentifier);
}

TEST_F(DirectRequestTest, AnAnswerOf21BytesSucceedsWithNothingInIt) {
  EXPECT_EQ(Ask([](const Bytes& request) { return Answer(101, InvokeIdOf(request), {}); }), 0);
  EXPECT_TRUE(out_ == Bytes(6, 0));
}

TEST_F(DirectRequestTest, APayloadBeyondTheBufferIsCut) {
  EXPECT_EQ(Ask([](const Bytes& request) {
              return Answer(101, InvokeIdOf(request), kIdentifier + Bytes(3000, 1));
            }),
            0);
  EXPECT_TRUE(out_ == kIdentifier);
}

TEST_F(DirectRequestTest, AnAnswerOf4096BytesIsTaken) {
  EXPECT_EQ(Ask([](const Bytes& request) { return Answer(101, InvokeIdOf(request), Bytes(4096 - 21, 7)); }),
            0);
  EXPECT_TRUE(out_ == Bytes(6, 7));
}

TEST_F(DirectRequestTest, VersionPortAndCommandOfTheAnswerDoNotMatter) {
  EXPECT_EQ(Ask([](const Bytes& request) {
              return Message(7, 9, InnerHeader(0, InvokeIdOf(request), 77) + kIdentifier);
            }),
            0);
}

TEST_F(DirectRequestTest, TheSenderOfTheAnswerDoesNotMatter) {
  const std::string host = HostOf(DeviceWithoutServer());
  const TestDatagram asked(host, kDirectPort);
  const TestDatagram elsewhere(HostOf(DeviceWithoutServer()), 0);
  std::thread device([&] {
    const auto request = asked.Receive(kPatienceMs);
    if (request) (void)elsewhere.Send(request->host, request->port, Good(request->bytes));
  });
  EXPECT_EQ(libzel_getRemoteZelDeviceId(host.c_str(), kPatienceMs, &out_), 0);
  device.join();
}

TEST_F(DirectRequestTest, SuccessClearsTheErrorNumber) {
  ASSERT_EQ(libzel_getRemoteZelDeviceId("127.0.0.1", 0, nullptr), ZEL_E_PARAM);
  ASSERT_EQ(Ask(Good), 0);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_F(DirectRequestTest, TheIdentifierIsLogged) {
  const CapturedLog log;
  const DirectDevice device(Good);
  ASSERT_EQ(libzel_getRemoteZelDeviceId(device.host(), kPatienceMs, &out_), 0);
  EXPECT_TRUE(log.Has("DEBUG", "get remote:" + std::string(device.host()) + " DeviceId:9.8.7.6.5.4"));
}

TEST_F(DirectRequestTest, TheAliasTakesTheTimeOutLast) {
  const DirectDevice device(Good);
  EXPECT_EQ(ZelGetRemoteDeviceId(device.host(), &out_, kPatienceMs), 0);
  EXPECT_TRUE(out_ == kIdentifier);
}

TEST_F(DirectRequestTest, TheAliasKeepsToItsTimeOut) {
  const DirectDevice device(Silent);
  const ElapsedTime elapsed;
  EXPECT_EQ(ZelGetRemoteDeviceId(device.host(), &out_, kShortMs), ZEL_E_TIMEOUT);
  EXPECT_GE(elapsed.Ms(), kShortMs - 5);
}

// ---- Failures ---------------------------------------------------------------------------------------------

TEST_F(DirectRequestTest, AskingIntoNothingIsRefused) {
  EXPECT_EQ(libzel_getRemoteZelDeviceId("127.0.0.1", kShortMs, nullptr), ZEL_E_PARAM);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_PARAM);
}

TEST_F(DirectRequestTest, ADatagramThatCannotBeSentIsAFailure) {
  EXPECT_EQ(libzel_getRemoteZelDeviceId("255.255.255.255", kShortMs, &out_), ZEL_E_SEND);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_SEND);
}

TEST_F(DirectRequestTest, NoAnswerIsATimeOut) {
  const ElapsedTime elapsed;
  EXPECT_EQ(Ask(Silent, kShortMs), ZEL_E_TIMEOUT);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
  EXPECT_GE(elapsed.Ms(), kShortMs - 5);
}

TEST_F(DirectRequestTest, ANegativeTimeOutHasRunOutAtOnce) {
  const DirectDevice device(Silent);
  const ElapsedTime elapsed;
  EXPECT_EQ(libzel_getRemoteZelDeviceId(device.host(), -5, &out_), ZEL_E_TIMEOUT);
  EXPECT_LT(elapsed.AwakeMs(), 1000);
}

TEST_F(DirectRequestTest, AnAnswerBeyond4096BytesCountsAsNone) {
  EXPECT_EQ(Ask([](const Bytes& request) { return Answer(101, InvokeIdOf(request), Bytes(4096 - 20, 7)); }),
            ZEL_E_TIMEOUT);
  EXPECT_EQ(libzel_get_errno(), ZEL_E_TIMEOUT);
}

struct BadAnswer {
  const char* name;
  Bytes (*make)(const Bytes& request);
  int32_t result;
};

class BadDirectAnswerTest : public DirectRequestTest, public testing::WithParamInterface<BadAnswer> {};

TEST_P(BadDirectAnswerTest, GivesItsResultAndNoErrorNumber) {
  EXPECT_EQ(Ask(GetParam().make), GetParam().result);
  EXPECT_EQ(libzel_get_errno(), 0);
}

TEST_P(BadDirectAnswerTest, LeavesTheCallersIdentifier) {
  (void)Ask(GetParam().make);
  EXPECT_TRUE(out_ == Bytes(6, 1));
}

TEST_P(BadDirectAnswerTest, SettingGivesTheSameResult) {
  const DirectDevice device(GetParam().make);
  EXPECT_EQ(libzel_setRemoteZelDeviceId(device.host(), "1.2.3.4.5.6", kPatienceMs), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, BadDirectAnswerTest,
    testing::Values(
        BadAnswer{"OneByte", [](const Bytes&) { return Bytes{0}; }, ZEL_E_LENGTH},
        BadAnswer{"HeaderCut", [](const Bytes&) { return Bytes{0, 1, 101, 0, 0, 0, 0}; }, ZEL_E_LENGTH},
        BadAnswer{"HeaderOnly", [](const Bytes&) { return Message(1, 101, {}); }, ZEL_E_TOO_SHORT},
        BadAnswer{"BodyOf12", [](const Bytes&) { return Message(1, 101, Bytes(12, 0)); }, ZEL_E_TOO_SHORT},
        BadAnswer{"BigEndianLength",
                  [](const Bytes& request) {
                    Bytes answer = Good(request);
                    std::reverse(answer.begin() + 4, answer.begin() + 8);
                    return answer;
                  },
                  ZEL_E_LENGTH},
        BadAnswer{"LengthOfOneMore", [](const Bytes& request) { return Good(request) + Bytes{0}; },
                  ZEL_E_LENGTH},
        BadAnswer{"Error5AndWrongInvokeId",
                  [](const Bytes& request) { return Answer(101, InvokeIdOf(request) + 1, kIdentifier, 5); },
                  5},
        BadAnswer{"ErrorOfAllOnes",
                  [](const Bytes& request) { return Answer(101, InvokeIdOf(request), {}, 0xFFFFFFFF); }, -1},
        BadAnswer{"WrongInvokeId",
                  [](const Bytes& request) { return Answer(101, InvokeIdOf(request) + 1, kIdentifier); },
                  ZEL_E_INVOKE_ID}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(DirectRequestTest, AWrongLengthIsLogged) {
  const CapturedLog log;
  ASSERT_EQ(Ask([](const Bytes& request) { return Good(request) + Bytes{0}; }), ZEL_E_LENGTH);
  EXPECT_TRUE(log.Has("ERROR", "zelHeader len:19 !="));
}

TEST_F(DirectRequestTest, TheDevicesErrorIsLogged) {
  const CapturedLog log;
  const DirectDevice device([](const Bytes&) { return Answer(101, 0xFFFFFFFE, {}, 0x1F); });
  ASSERT_EQ(libzel_getRemoteZelDeviceId(device.host(), kPatienceMs, &out_), 0x1F);
  const std::string asked = std::to_string(InvokeIdOf(device.requests.All().at(0)));
  EXPECT_TRUE(log.Has("ERROR", "CmdId:1 fail result:0x1f,reqInvokeId:" + asked + ",resInvokeId:-2"));
}

// ---- The way to a device ----------------------------------------------------------------------------------

TEST_F(DirectRequestTest, AskingRemembersTheHost) {
  DirectDevice device([](const Bytes& request) {
    return Answer(101, InvokeIdOf(request), Bytes{201, 1, 1, 1, 1, 1});
  });
  ASSERT_EQ(libzel_getRemoteZelDeviceId(device.host(), kPatienceMs, &out_), 0);
  const Instance instance(out_);
  EXPECT_TRUE(device.server().Accept().IsOpen());
}

TEST_F(DirectRequestTest, SettingRemembersTheHost) {
  DirectDevice device([](const Bytes& request) { return Answer(101, InvokeIdOf(request), {}); });
  ASSERT_EQ(libzel_setRemoteZelDeviceId(device.host(), "201.1.1.1.1.2", kPatienceMs), 0);
  const Instance instance(ZelDeviceId{{201, 1, 1, 1, 1, 2}});
  EXPECT_TRUE(device.server().Accept().IsOpen());
}

TEST_F(DirectRequestTest, ARefusedSettingRemembersNothing) {
  ScriptedServer own;
  const DirectDevice device([](const Bytes& request) { return Answer(101, InvokeIdOf(request), {}, 4100); });
  ASSERT_EQ(libzel_setRemoteZelDeviceId(device.host(), IdText(own.device()).c_str(), kPatienceMs), 4100);
  const Instance instance(own.device());
  EXPECT_TRUE(own.Accept().IsOpen());
}

}  // namespace
}  // namespace zeltest
