// Many requests on one instance, beside topics, on a link that is cut now and then, to a server that
// publishes under the identifiers of requests that wait:
//   many_askers ask THREADS REQUESTS CUT   of each thread; a cut each CUT answers
//   many_askers cancel REQUESTS            each cancelled at a random moment
//   many_askers release REQUESTS           the instance released by another thread while they are in flight
// No answer may reach the wrong caller, and every request has one outcome.
#include <libzel/libzelx.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

#include "support/Asking.h"
#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/Instance.h"
#include "support/ScriptedServer.h"

namespace {

using namespace zeltest;
using Clock = std::chrono::steady_clock;

constexpr uint16_t kPort = 600;
constexpr uint32_t kTimeoutMs = 20000;

[[noreturn]] void Fail(const char* what, int64_t number = 0) {
  (void)std::fprintf(stderr, "many_askers: %s (%lld)\n", what, static_cast<long long>(number));
  std::_Exit(1);
}

void Require(bool condition, const char* what, int64_t number = 0) {
  if (!condition) Fail(what, number);
}

// Answers each request with its own data, two at a time in the wrong order, and publishes under their
// identifiers.
class Echo {
 public:
  // A cut after so many answers; 0 for none.
  explicit Echo(int cutAfter) : cutAfter_(cutAfter), thread_([this] { Serve(); }) {}
  ~Echo() {
    done_ = true;
    thread_.join();
  }
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  const ZelDeviceId& device() const { return server_.device(); }
  int cuts() const { return cuts_; }

 private:
  void Serve() {
    while (!done_) {
      if (!server_.IsCalled(20)) continue;
      Peer peer = server_.Accept();
      answered_ = 0;
      while (!done_ && (cutAfter_ == 0 || answered_ < cutAfter_) && Answer(peer)) {
      }
      if (done_) return;
      if (cuts_++ % 2 == 0) {
        peer.Reset();
      } else {
        peer.Close();
      }
    }
  }

  // False when the connection has ended.
  bool Answer(Peer& peer) {
    if (!peer.HasInput(20)) return true;
    const Request first = peer.ReadRequest();
    if (!first.whole) return false;
    if (first.port != kPort) return true;
    Bytes bytes = AnswerTo(first);
    ++answered_;
    if (peer.HasInput(0)) {
      const Request second = peer.ReadRequest();
      if (!second.whole) return false;
      if (second.port == kPort) bytes = AnswerTo(second) + bytes;
      ++answered_;
    }
    return peer.Send(bytes);
  }

  static Bytes AnswerTo(const Request& request) {
    return zeltest::Answer(103, request.invokeId, Record("pub", "topic", request.payload)) +
           zeltest::Answer(kPort, request.invokeId, request.payload);
  }

  const int cutAfter_;
  int answered_ = 0;  // on this connection
  ScriptedServer server_;
  std::atomic<bool> done_{false};
  std::atomic<int> cuts_{0};
  std::thread thread_;
};

// What the data of a request are.
struct Question {
  uint32_t thread;
  uint32_t number;
};

std::atomic<int64_t> g_topics{0};

void OnTopic(uint32_t, uint32_t, const char*, const uint8_t*, uint32_t length, void*) {
  Require(length == sizeof(Question), "a topic's length", length);
  ++g_topics;
}

std::unique_ptr<Instance> Connect(const Echo& server) {
  auto instance = std::make_unique<Instance>(server.device());
  Require(libzel_reconnect_delay_set(*instance, 0) == 0, "reconnect delay");
  Require(libzel_subscribe(*instance, "topic", OnTopic, nullptr) == 0, "subscribe");
  return instance;
}

libzelx_Request RequestWith(const Question& question) {
  return {sizeof(libzelx_Request), kPort, 0, 0, 0, &question, sizeof question, kTimeoutMs};
}

// ---- Ask --------------------------------------------------------------------------------------------------

struct Tally {
  std::atomic<int64_t> answered{0};
  std::atomic<int64_t> sent{0};
  std::atomic<int64_t> ended{0};

  void Add(const libzelx_Outcome& out) {
    ++ended;
    sent += out.maySent;
    answered += out.result == 0 ? 1 : 0;
    const bool isKnown = out.result == 0 || out.result == ZEL_E_DISCONNECTED;
    Require(isKnown, "an outcome's result", out.result);
  }
};

void AskAndWait(ZelInstance instance, const Question& question, Tally& tally) {
  const libzelx_Request request = RequestWith(question);
  Question answer{};
  libzelx_Outcome out{sizeof out, -1, 0, 0, 0};
  (void)libzelx_requestEx(instance, &request, &answer, sizeof answer, &out);
  const bool isOwn = std::memcmp(&answer, &question, sizeof answer) == 0;
  Require(out.result != 0 || (out.answerLength == sizeof answer && isOwn), "somebody else's answer",
          answer.number);
  tally.Add(out);
}

// A request with a callback, which may run once.
struct Pending {
  Question question{};
  Tally* tally = nullptr;
  std::atomic<int> left{0};  // callbacks still to come

  static void Callback(uint64_t, const libzelx_Outcome* out, const void* answer, void* user) {
    auto& pending = *static_cast<Pending*>(user);
    const bool isOwn = answer != nullptr && out->answerLength == sizeof(Question) &&
                       std::memcmp(answer, &pending.question, sizeof(Question)) == 0;
    Require(out->result != 0 || isOwn, "somebody else's answer for a callback", pending.question.number);
    pending.tally->Add(*out);
    const uint32_t number = pending.question.number;
    Require(pending.left.fetch_sub(1) == 1, "two outcomes of one request", number);
  }

  void AwaitEnd() const {
    while (left != 0) std::this_thread::yield();
  }
};

void AskWithCallback(ZelInstance instance, Pending& pending) {
  pending.AwaitEnd();
  pending.left = 1;
  const libzelx_Request request = RequestWith(pending.question);
  const int32_t result = libzelx_requestAsync(instance, &request, Pending::Callback, &pending, nullptr);
  if (result == 0) return;
  Require(result == ZEL_E_DISCONNECTED, "a request without a wait", result);
  pending.left = 0;
  ++pending.tally->ended;
}

// Even threads wait for each answer, odd ones have several requests under way.
void AskFrom(ZelInstance instance, uint32_t thread, uint32_t requests, Tally& tally) {
  std::array<Pending, 8> pending;
  for (uint32_t number = 0; number < requests; ++number) {
    const Question question{thread, number};
    if (thread % 2 == 0) {
      AskAndWait(instance, question, tally);
      continue;
    }
    Pending& next = pending[number % pending.size()];
    next.AwaitEnd();
    next.question = question;
    next.tally = &tally;
    AskWithCallback(instance, next);
  }
  for (const Pending& one : pending) one.AwaitEnd();
}

void Ask(uint32_t threads, uint32_t requests, int cutAfter) {
  const Echo server(cutAfter);
  const auto instance = Connect(server);
  Tally tally;
  std::vector<std::thread> askers;
  for (uint32_t thread = 0; thread < threads; ++thread) {
    askers.emplace_back([&, thread] { AskFrom(*instance, thread, requests, tally); });
  }
  for (std::thread& asker : askers) asker.join();
  const auto all = static_cast<int64_t>(threads) * requests;
  (void)std::fprintf(stderr, "%lld requests, %lld sent, %lld answered, %lld topics, %d cuts\n",
                     static_cast<long long>(all), static_cast<long long>(tally.sent),
                     static_cast<long long>(tally.answered), static_cast<long long>(g_topics), server.cuts());
  Require(tally.ended == all, "outcomes", tally.ended);
  Require(server.cuts() > 0, "no cut");
  Require(tally.answered * 10 >= tally.sent * 9, "answered of those sent", tally.answered);
  Require(tally.answered > 0, "nothing answered");
  Require(g_topics > 0, "no topics");
}

// ---- Cancel -----------------------------------------------------------------------------------------------

void Cancel(uint32_t requests) {
  const Echo server(0);
  const auto instance = Connect(server);
  Tally tally;
  std::mt19937 random(20261121);
  int64_t cancelled = 0;
  for (uint32_t number = 0; number < requests; ++number) {
    Pending pending;
    pending.question = {0, number};
    pending.tally = &tally;
    pending.left = 1;
    const libzelx_Request request = RequestWith(pending.question);
    uint64_t ticket = 0;
    Require(libzelx_requestAsync(*instance, &request, Pending::Callback, &pending, &ticket) == 0, "request");
    const auto until = Clock::now() + std::chrono::microseconds(random() % 60);
    while (Clock::now() < until) std::this_thread::yield();
    const int32_t result = libzelx_cancel(*instance, ticket);
    Require(result == 0 || result == 1, "cancel", result);
    Require(pending.left == (result == 0 ? 1 : 0), "a callback after a cancel, or none before", result);
    cancelled += result == 0 ? 1 : 0;
  }
  (void)std::fprintf(stderr, "%u requests, %lld cancelled in time\n", requests,
                     static_cast<long long>(cancelled));
  Require(tally.ended == requests - cancelled, "outcomes", tally.ended);
}

// ---- Release ----------------------------------------------------------------------------------------------

void Release(uint32_t requests) {
  ScriptedServer silent;
  Instance instance(silent.device());
  Peer peer = silent.Accept();
  std::atomic<uint32_t> told{0};
  static std::atomic<bool> isReleased{false};
  const auto callback = [](uint64_t, const libzelx_Outcome* out, const void*, void* user) {
    Require(!isReleased, "a callback after the release");
    Require(out->result == LIBZELX_E_CANCELLED && out->maySent == 1, "an outcome of the release",
            out->result);
    ++*static_cast<std::atomic<uint32_t>*>(user);
  };
  for (uint32_t number = 0; number < requests; ++number) {
    const Question question{0, number};
    const libzelx_Request request = RequestWith(question);
    Require(libzelx_requestAsync(instance, &request, callback, &told, nullptr) == 0, "request");
  }
  std::thread([&] { instance.Release(); }).join();
  isReleased = true;
  Require(told == requests, "outcomes told", told);
}

}  // namespace

int main(int argc, char** argv) {
  const Deadline deadline(argc > 4 ? 3600 : 280);
  const CapturedLog log;
  const auto number = [&](int i) { return argc > i ? std::atoi(argv[i]) : 0; };
  const std::string_view mode = argc > 1 ? argv[1] : "";
  libzelx_setLogSink(nullptr, nullptr);
  if (libzel_init() != 0) return 1;
  if (mode == "ask" && argc > 4) {
    Ask(static_cast<uint32_t>(number(2)), static_cast<uint32_t>(number(3)), number(4));
  } else if (mode == "cancel" && argc > 2) {
    Cancel(static_cast<uint32_t>(number(2)));
  } else if (mode == "release" && argc > 2) {
    Release(static_cast<uint32_t>(number(2)));
  } else {
    Fail("usage: many_askers ask THREADS REQUESTS CUT | cancel REQUESTS | release REQUESTS");
  }
  return libzel_destory() == 0 ? 0 : 1;
}
