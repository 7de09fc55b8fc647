// A peer's bytes against a table of requests that wait: the first bytes say who waits for what, the rest is
// the stream. Each caller gets one outcome at most, in its own room, and nobody's identifier is taken for
// another's.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "zelclient/RequestTable.h"
#include "zelcomm/FrameDecoder.h"

namespace {

using namespace libzel;

constexpr size_t kCallers = 6;
constexpr size_t kSetUp = 2 * kCallers + 1;
constexpr uint8_t kUntouched = 0xA5;

struct Caller {
  std::array<uint8_t, 16> room;
  PendingRequest request;
};

int g_callbacks = 0;

void OnAnswer(uint64_t /*ticket*/, const libzelx_Outcome* out, const void* answer, void* user) {
  ++g_callbacks;
  if ((answer == nullptr) != (out->result != 0)) std::abort();
  int& calls = *static_cast<int*>(user);
  if (++calls > 1) std::abort();
  // Looks at every byte that it is given.
  const auto* const bytes = static_cast<const uint8_t*>(answer);
  if (bytes != nullptr) (void)std::vector<uint8_t>(bytes, bytes + out->answerLength);
}

void Feed(RequestTable& table, const uint8_t* data, size_t size, RequestTable::Reader reader) {
  while (const auto frame = FrameDecoder::Whole({data, size}, kMaxReceivedBody)) {
    (void)table.Take(*frame, reader);
    const size_t whole = kZelHeaderSize + frame->body.size();
    data += whole;
    size -= whole;
  }
  table.WakeAnswered();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kSetUp) return 0;
  const auto link = std::make_shared<SocketLink>(platform::kNoSocket);
  link->setConnected(true);
  RequestTable table;
  std::array<Caller, kCallers> callers;
  std::array<int, kCallers> calls{};
  int withCallback = 0;
  g_callbacks = 0;
  const auto end = RequestTable::Clock::now() + std::chrono::hours(1);
  for (size_t i = 0; i < kCallers; ++i) {
    const uint32_t invokeId = data[2 * i] % 8;
    const uint16_t port = data[2 * i + 1] % 2 != 0 ? kTopicPort : 600;
    if (data[2 * i + 1] % 4 >= 2) {
      auto request = std::make_unique<PendingRequest>();
      request->port = port;
      request->end = end;
      request->link = link;
      request->callback = OnAnswer;
      request->user = &calls[i];
      const uint64_t ticket = request->ticket = RequestTable::NextTicket();
      if (table.Enter(request, invokeId) != RequestTable::Entry::kDone) continue;
      (void)table.NoteSent(ticket);
      ++withCallback;
    } else {
      Caller& caller = callers[i];
      caller.room.fill(kUntouched);
      caller.request.port = port;
      caller.request.end = end;
      caller.request.link = link;
      caller.request.room = std::span(caller.room).first(8);
      (void)table.Enter(caller.request, invokeId);
    }
  }
  const auto reader = static_cast<RequestTable::Reader>(data[kSetUp - 1] % 3);
  Feed(table, data + kSetUp, size - kSetUp, reader);
  table.RunDue();
  table.Close(LIBZELX_E_CANCELLED);
  table.RunDue();
  for (Caller& caller : callers) {
    if (caller.request.ended == nullptr) continue;
    table.Await(caller.request);
    const int32_t result = caller.request.result;
    if (result != 0 && result != LIBZELX_E_CANCELLED) std::abort();
    for (size_t i = 8; i < caller.room.size(); ++i) {
      if (caller.room[i] != kUntouched) std::abort();
    }
  }
  if (g_callbacks != withCallback || table.InFlight() != 0) std::abort();
  return 0;
}
