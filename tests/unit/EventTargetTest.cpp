#include "zelclient/EventTarget.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/Recorders.h"

namespace libzel {
namespace {

using zeltest::EventRecorder;

constexpr ZelDeviceId kDevice{{1, 2, 3, 4, 5, 6}};

// A callback that stays until it is let go.
struct Held {
  std::atomic<bool> entered{false};
  std::atomic<bool> goOn{false};
  std::atomic<bool> left{false};

  static void Callback(const ZelDeviceId*, void* user, int32_t) {
    auto& mine = *static_cast<Held*>(user);
    mine.entered = true;
    (void)zeltest::Eventually([&] { return mine.goOn.load(); });
    mine.left = true;
  }
};

TEST(EventTargetTest, TellsOnTheCallingThread) {
  EventTarget target;
  EventRecorder events;
  target.Set(EventRecorder::Callback, &events);
  target.Fire(kDevice, 5);
  ASSERT_EQ(events.Numbers(), std::vector<int32_t>{5});
  EXPECT_EQ(events.All()[0].thread, std::this_thread::get_id());
}

TEST(EventTargetTest, NobodyIsToldWithoutACallback) {
  EventTarget target;
  target.Fire(kDevice, 5);
}

TEST(EventTargetTest, NobodyIsToldOnceClosed) {
  EventTarget target;
  EventRecorder events;
  target.Set(EventRecorder::Callback, &events);
  target.Close();
  target.Set(EventRecorder::Callback, &events);
  target.Fire(kDevice, 5);
  EXPECT_EQ(events.Count(), 0U);
}

TEST(EventTargetTest, CallbackOfAnotherThreadIsWaitedFor) {
  EventTarget target;
  Held held;
  target.Set(Held::Callback, &held);
  std::thread firing([&] { target.Fire(kDevice, 5); });
  ASSERT_TRUE(zeltest::Eventually([&] { return held.entered.load(); }));
  target.Close();
  std::thread waiter([&] {
    target.AwaitOthers();
    EXPECT_TRUE(held.left);
  });
  held.goOn = true;
  waiter.join();
  firing.join();
}

TEST(EventTargetTest, OwnCallbackIsNotWaitedFor) {
  EventTarget target;
  const auto callback = [](const ZelDeviceId*, void* user, int32_t) {
    static_cast<EventTarget*>(user)->Close();
    static_cast<EventTarget*>(user)->AwaitOthers();
  };
  target.Set(callback, &target);
  target.Fire(kDevice, 5);
}

TEST(EventTargetTest, CallbackMayFireAnotherEvent) {
  struct State {
    EventTarget target;
    int depth = 0;
  } state;
  const auto callback = [](const ZelDeviceId* device, void* user, int32_t event) {
    auto& mine = *static_cast<State*>(user);
    if (++mine.depth < 3) mine.target.Fire(*device, event + 1);
  };
  state.target.Set(callback, &state);
  state.target.Fire(kDevice, 1);
  EXPECT_EQ(state.depth, 3);
  state.target.AwaitOthers();
}

}  // namespace
}  // namespace libzel
