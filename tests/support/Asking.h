// Short forms of the calls of libzelx.h that tests make on an instance, and callbacks that remember outcomes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "libzel/libzelx.h"
#include "support/Recorders.h"
#include "support/Wire.h"

namespace zeltest {

inline constexpr uint32_t kAskPatienceMs = 10000;
inline constexpr uint32_t kShortMs = 100;

// More than the systems take in for a peer that does not read.
inline const Bytes& Huge() {
  static const Bytes data(10000000, 'd');
  return data;
}

inline libzelx_Request RequestTo(uint16_t port, const Bytes& data = {}, uint32_t timeoutMs = kAskPatienceMs) {
  return {sizeof(libzelx_Request), port, 0, 1, 2, data.data(), static_cast<uint32_t>(data.size()), timeoutMs};
}

// What a blocking request gave.
struct Asked {
  int32_t result = -1;
  int32_t error = -1;  // the thread's error number after the call
  libzelx_Outcome out{sizeof(libzelx_Outcome), -1, 0, 0, 9};
  Bytes answer;  // as much of it as there was room for
};

inline Asked Ask(ZelInstance instance, const libzelx_Request& request, uint32_t room = 64) {
  Asked asked;
  asked.answer.resize(room);
  asked.result =
      libzelx_requestEx(instance, &request, room != 0 ? asked.answer.data() : nullptr, room, &asked.out);
  asked.error = libzel_get_errno();
  if (asked.out.answerLength < room) asked.answer.resize(asked.out.answerLength);
  return asked;
}
inline Asked Ask(ZelInstance instance, uint16_t port, const Bytes& data = {},
                 uint32_t timeoutMs = kAskPatienceMs) {
  return Ask(instance, RequestTo(port, data, timeoutMs));
}

// What an answer callback was called with.
struct SeenOutcome {
  uint64_t ticket = 0;
  libzelx_Outcome out{};
  bool hasAnswer = false;
  Bytes answer;
  std::thread::id thread;
};

class OutcomeRecorder : public Recorder<SeenOutcome> {
 public:
  static void Callback(uint64_t ticket, const libzelx_Outcome* out, const void* answer, void* user) {
    SeenOutcome seen{ticket, *out, answer != nullptr, {}, std::this_thread::get_id()};
    const auto* const bytes = static_cast<const uint8_t*>(answer);
    if (seen.hasAnswer) seen.answer.assign(bytes, bytes + out->answerLength);
    static_cast<OutcomeRecorder*>(user)->Add(std::move(seen));
  }
};

inline int32_t AskAsync(ZelInstance instance, const libzelx_Request& request, OutcomeRecorder& seen,
                        uint64_t* ticket = nullptr) {
  return libzelx_requestAsync(instance, &request, OutcomeRecorder::Callback, &seen, ticket);
}
inline int32_t AskAsync(ZelInstance instance, uint16_t port, OutcomeRecorder& seen,
                        uint64_t* ticket = nullptr) {
  return AskAsync(instance, RequestTo(port), seen, ticket);
}

inline libzelx_Stats StatsOf(ZelInstance instance) {
  libzelx_Stats stats{};
  stats.size = sizeof stats;
  (void)libzelx_getStats(instance, &stats);
  return stats;
}
inline std::string FailureOf(ZelInstance instance) {
  char text[256] = "";
  (void)libzelx_lastFailure(instance, text, sizeof text);
  return text;
}

inline libzelx_Message MessageOn(const char* topic, const Bytes& data, uint32_t group = 0,
                                 uint32_t offset = 0) {
  return {sizeof(libzelx_Message), topic, group, offset, data.data(), static_cast<uint32_t>(data.size()), 0};
}

}  // namespace zeltest
