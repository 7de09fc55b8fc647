// LIBZELX_CLOSE_WAIT_MS: what becomes of unsent data when an instance is released.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include "support/Asking.h"
#include "support/OngoingCall.h"
#include "support/OptionLink.h"
#include "support/OwnProcess.h"

namespace zeltest {
namespace {

constexpr int64_t kLongMs = 30000;

// An instance whose peer takes in little before it reads.
struct UnsentLink {
  UnsentLink() {
    server.LimitReceiveBuffer(4096);
    instance = std::make_unique<Instance>(server.device());
    handle = *instance;
    peer = server.Accept();
  }
  void Set(int64_t closeWaitMs) const {
    EXPECT_EQ(libzelx_setOption(*instance, LIBZELX_CLOSE_WAIT_MS, closeWaitMs), ZEL_OK);
  }
  // Hands more to the system than the peer's takes in.
  void SendSome() const { EXPECT_EQ(instance->Send(600, payload), static_cast<int32_t>(kSize)); }
  OngoingCall Release() const {
    return OngoingCall([this] {
      instance->Release();
      return 0;
    });
  }
  // True as soon as the release has begun.
  bool AwaitRelease() const {
    int64_t value = 0;
    return Eventually(
        [&] { return libzelx_getOption(handle, LIBZELX_CLOSE_WAIT_MS, &value) == ZEL_E_HANDLE; });
  }

  static constexpr size_t kSize = 40029;  // the least that every system takes in at once
  const Bytes payload = Bytes(kSize - 29, 'x');
  ScriptedServer server;
  std::unique_ptr<Instance> instance;
  ZelInstance handle = 0;
  Peer peer;
};

class CloseWaitTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(StartLibrary().result, 0);
    UseFreshProcesses();
  }

  const Deadline deadline{60};
  UnsentLink link;
};

TEST_F(CloseWaitTest, ByTheLetterUnsentDataAreDropped) {
  link.SendSome();
  link.instance->Release();
  EXPECT_LT(link.peer.Read(UnsentLink::kSize).size(), UnsentLink::kSize);
}

TEST_F(CloseWaitTest, UnsentDataGetOut) {
  link.Set(kLongMs);
  link.SendSome();
  const OngoingCall release = link.Release();
  EXPECT_TRUE(link.AwaitRelease());
  EXPECT_EQ(link.peer.Read(UnsentLink::kSize).size(), UnsentLink::kSize);
#ifdef _WIN32
  link.peer.Close();  // nothing tells there that the peer has all
#endif
  EXPECT_TRUE(release.Await());
}

TEST_F(CloseWaitTest, AFrameThatIsBeingWrittenGetsOutWhole) {
  link.Set(kLongMs);
  const OngoingCall send([this] { return link.instance->Send(600, Huge()); });
  EXPECT_TRUE(link.peer.HasInput(kPatienceMs));
  const OngoingCall release = link.Release();
  EXPECT_TRUE(link.AwaitRelease());
  EXPECT_EQ(link.peer.Read(Huge().size() + 29).size(), Huge().size() + 29);
  link.peer.Close();
  EXPECT_TRUE(release.Await());
  EXPECT_TRUE(send.Await());
}

TEST_F(CloseWaitTest, AReceiveThreadThatRunsIsNoMatter) {
  link.Set(kLongMs);
  EXPECT_EQ(libzel_loop_start(*link.instance), 0);
  link.SendSome();
  const OngoingCall release = link.Release();
  EXPECT_TRUE(link.AwaitRelease());
  EXPECT_EQ(link.peer.Read(UnsentLink::kSize).size(), UnsentLink::kSize);
  link.peer.Close();
  EXPECT_TRUE(release.Await());
  EXPECT_EQ(link.instance->events.Numbers(), (EventNumbers{2, 1}));
}

TEST_F(CloseWaitTest, APeerThatStillSendsIsNoMatter) {
  link.Set(kLongMs);
  EXPECT_TRUE(link.peer.Send(Message(0, 600, Bytes(100000))));
  link.SendSome();
  const OngoingCall release = link.Release();
  EXPECT_TRUE(link.AwaitRelease());
  EXPECT_EQ(link.peer.Read(UnsentLink::kSize).size(), UnsentLink::kSize);
  link.peer.Close();
  EXPECT_TRUE(release.Await());
}

TEST_F(CloseWaitTest, ItLastsNoLongerThanItMay) {
  link.Set(300);
  link.SendSome();
  const ElapsedTime time;
  link.instance->Release();
  EXPECT_GE(time.Ms(), 300);
  EXPECT_LT(time.AwakeMs(), 3000);
}

TEST_F(CloseWaitTest, WhatIsReleasedIsSilentMeanwhile) {
  link.Set(300);
  EXPECT_EQ(libzel_loop_start(*link.instance), 0);
  link.SendSome();
  const OngoingCall release = link.Release();
  EXPECT_TRUE(link.AwaitRelease());
  EXPECT_TRUE(release.Await());
  EXPECT_EQ(link.instance->events.Numbers(), (EventNumbers{2, 1}));
}

// The end of the library, while it waits for one instance, and the other, whose link is lost at that moment.
void ExpectNoNewLink(int64_t closeWaitMs) {
  EXPECT_EQ(libzel_init(), 0);
  const UnsentLink waiting;
  waiting.Set(1500);
  waiting.SendSome();
  ScriptedServer server;
  Link lost(server);
  const ZelInstance instance = lost.instance;
  EXPECT_EQ(libzelx_setOption(instance, LIBZELX_CLOSE_WAIT_MS, closeWaitMs), ZEL_OK);
  EXPECT_EQ(libzel_reconnect_delay_set(instance, 0), 0);
  EXPECT_EQ(libzel_loop_start(instance), 0);
  const OngoingCall end([] { return libzel_destory(); });
  EXPECT_TRUE(Eventually([&] { return libzel_loop_start(instance) == ZEL_E_HANDLE; }));
  lost.peer.Close();
  EXPECT_FALSE(server.IsCalled(700));
  EXPECT_FALSE(end.Await(0));
  EXPECT_TRUE(end.Await());
}

TEST_F(CloseWaitTest, WhatIsReleasedMakesNoNewLinkMeanwhile) {
  IN_OWN_PROCESS({ ExpectNoNewLink(1500); });
}

TEST_F(CloseWaitTest, WhatIsReleasedByTheLetterMakesNoNewLinkMeanwhile) {
  IN_OWN_PROCESS({ ExpectNoNewLink(0); });
}

TEST_F(CloseWaitTest, TheEndOfTheLibraryWaitsForAllAtOnce) {
  IN_OWN_PROCESS({
    EXPECT_EQ(libzel_init(), 0);
    const UnsentLink links[5];
    for (const UnsentLink& one : links) {
      one.Set(1000);
      one.SendSome();
    }
    const ElapsedTime time;
    EXPECT_EQ(libzel_destory(), 0);
    EXPECT_GE(time.Ms(), 1000);
    EXPECT_LT(time.AwakeMs(), 3000);
  });
}

}  // namespace
}  // namespace zeltest
