// What tests of requests have in common.
#pragma once

#include <gtest/gtest.h>

#include <utility>

#include "support/Asking.h"
#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/LibraryStart.h"
#include "support/OngoingCall.h"
#include "support/ScriptedServer.h"

namespace zeltest {

// An instance and its server, to be asked.
class AskFixture : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const Deadline deadline{100};
  const CapturedLog log;
  ScriptedServer server;
  Link link{server};
  Peer& peer = link.peer;
  ZelInstance instance = link.instance;
};

// A request on a thread of its own, and what it gave.
class OngoingAsk {
 public:
  OngoingAsk(ZelInstance instance, const libzelx_Request& request, uint32_t room = 64)
      : call_([this, instance, request, room] {
          asked_ = Ask(instance, request, room);
          return asked_.result;
        }) {}
  OngoingAsk(ZelInstance instance, uint16_t port, Bytes data)
      : data_(std::move(data)), call_([this, instance, port] {
          asked_ = Ask(instance, port, data_);
          return asked_.result;
        }) {}

  bool Await(int timeoutMs = kRecorderPatienceMs) const { return call_.Await(timeoutMs); }
  const Asked& Get() const {
    EXPECT_TRUE(Await());
    return asked_;
  }
  OngoingCall::End end() const { return call_.end(); }

 private:
  Bytes data_;
  Asked asked_;
  OngoingCall call_;
};

}  // namespace zeltest
