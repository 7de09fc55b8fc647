// A link to a server of its own, and one beside it that goes by the letter: what befalls the one and not the
// other is the option's doing.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/Options.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"

namespace zeltest {

using EventNumbers = std::vector<int32_t>;

struct OptionLink {
  // Port 600 is listened to; nothing reconnects by itself.
  OptionLink() {
    EXPECT_EQ(libzel_reconnect_delay_set(instance, 3600), 0);
    EXPECT_EQ(libzel__registerRouterEvent(instance, 600, MessageRecorder::Callback, &seen), 0);
  }
  ~OptionLink() { link.instance.Release(); }
  OptionLink(const OptionLink&) = delete;
  OptionLink& operator=(const OptionLink&) = delete;

  void Set(int32_t option, int64_t value) const {
    EXPECT_EQ(libzelx_setOption(instance, option, value), ZEL_OK);
  }
  void Start() const { EXPECT_EQ(libzel_loop_start(instance), 0); }
  bool AwaitEvent5() const { return link.instance.events.AwaitEvent(ZEL_EVENT_DISCONNECTED); }
  EventNumbers events() const { return link.instance.events.Numbers(); }
  // Whether the first message is this one, and the link as it was.
  bool Delivers(const Bytes& payload) const {
    return seen.Await(1) && seen.All()[0].payload == payload && events() == EventNumbers{2, 1};
  }

  ScriptedServer server;
  MessageRecorder seen;
  Link link{server};
  Peer& peer = link.peer;
  const ZelInstance instance = link.instance;
};

class OptionLinkTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const Deadline deadline{60};
  OptionLink letter;
  OptionLink chosen;
};

inline std::pair<Bytes, Bytes> SplitAt(const Bytes& bytes, size_t at) {
  const auto middle = bytes.begin() + static_cast<ptrdiff_t>(at);
  return {Bytes(bytes.begin(), middle), Bytes(middle, bytes.end())};
}

}  // namespace zeltest
