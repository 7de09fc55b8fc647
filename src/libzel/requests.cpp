// Beyond the letter: requests from any thread, publishing in bounded time.
#include <algorithm>
#include <vector>

#include "libzel/CodeGuard.h"
#include "libzel/Structures.h"
#include "libzel/libzelx.h"
#include "zelclient/BoundedCalls.h"

using namespace libzel;

namespace {

constexpr size_t kFirstRequestSize = 40;
constexpr size_t kFirstOutcomeSize = 24;
constexpr size_t kFirstMessageSize = 40;

bool ReadRequest(const libzelx_Request* given, libzelx_Request& request) {
  return ReadStructure(given, kFirstRequestSize, request) && !IsMissing(request.data, request.length);
}

bool IsGoodOutcome(const libzelx_Outcome* out) {
  return out == nullptr || IsSizeOf<libzelx_Outcome>(out->size, kFirstOutcomeSize);
}

// True while the callback of a ticket of another instance's has not ended.
bool IsAnothers(uint64_t ticket, const CTcpclient& connection) {
  const auto all = CPeerConnMgr::Instance().AllInstances();
  return std::any_of(all.begin(), all.end(), [&](const auto& one) {
    return one.get() != &connection && static_cast<CTcpclient&>(*one).requests().Holds(ticket);
  });
}

TopicRecord RecordOf(const libzelx_Message& message) {
  return {"pub",
          message.topic,
          {static_cast<const uint8_t*>(message.data), message.length},
          message.group,
          message.offset};
}

// False when one of the messages cannot be read.
bool ReadMessages(const libzelx_Message* messages, size_t count, std::vector<TopicRecord>& records) {
  if (count == 0) return true;
  if (messages == nullptr) return false;
  const size_t step = messages->size;
  records.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const auto* const at = reinterpret_cast<const uint8_t*>(messages) + i * step;
    libzelx_Message message{};
    if (!ReadStructure(reinterpret_cast<const libzelx_Message*>(at), kFirstMessageSize, message))
      return false;
    if (message.size != step || message.topic == nullptr) return false;
    if (IsMissing(message.data, message.length) || message.reserved != 0) return false;
    records.push_back(RecordOf(message));
  }
  return true;
}

}  // namespace

ZelInstance libzelx_createInstance(const ZelDeviceId* device, ZelConnEventCallback callback, void* user) {
  return Guard(Always(ZelInstance{0}), [&]() -> ZelInstance {
    const auto connection = CPeerConnMgr::Instance().CreateInstance(device, 0);
    if (connection == nullptr) return 0;
    connection->SetEventCallback(callback, user);
    const ZelInstance instance = CPeerConnMgr::HandleOf(connection);
    try {
      static_cast<CTcpclient&>(*connection).ConnectInBackground();
    } catch (const std::exception&) {  // no thread is to be had
      CPeerConnMgr::Instance().ReleaseInstance(instance);
      throw;
    }
    return instance;
  });
}

int32_t libzelx_requestEx(ZelInstance instance, const libzelx_Request* request, void* answer, uint32_t size,
                          libzelx_Outcome* out) {
  libzelx_Outcome outcome{};
  outcome.result = WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    libzelx_Request read{};
    if (!ReadRequest(request, read) || IsMissing(answer, size) || !IsGoodOutcome(out)) {
      return ZEL_E_PARAM;
    }
    return BoundedCalls(connection, read.timeoutMs)
        .Request(read, {static_cast<uint8_t*>(answer), size}, outcome);
  });
  (void)FillStructure(outcome, kFirstOutcomeSize, out);
  return outcome.result;
}

int32_t libzelx_request(ZelInstance instance, uint16_t port, uint32_t group, uint32_t offset,
                        const void* data, uint32_t length, void* answer, uint32_t size, uint32_t timeoutMs,
                        libzelx_Outcome* out) {
  const libzelx_Request request{sizeof request, port, 0, group, offset, data, length, timeoutMs};
  return libzelx_requestEx(instance, &request, answer, size, out);
}

int32_t libzelx_requestAsync(ZelInstance instance, const libzelx_Request* request,
                             libzelx_AnswerCallback callback, void* user, uint64_t* ticket) {
  uint64_t unused = 0;
  const int32_t result = WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    libzelx_Request read{};
    if (!ReadRequest(request, read) || callback == nullptr) return ZEL_E_PARAM;
    return BoundedCalls(connection, read.timeoutMs)
        .RequestAsync(read, callback, user, ticket != nullptr ? *ticket : unused);
  });
  if (result != ZEL_OK && ticket != nullptr) *ticket = 0;
  return result;
}

int32_t libzelx_cancel(ZelInstance instance, uint64_t ticket) {
  int32_t hasRun = 0;
  const int32_t result = WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    if (!RequestTable::WasGiven(ticket)) return ZEL_E_PARAM;
    hasRun = connection.requests().Cancel(ticket);
    return hasRun != 0 && IsAnothers(ticket, connection) ? ZEL_E_PARAM : ZEL_OK;
  });
  return result == ZEL_OK ? hasRun : result;
}

int32_t libzelx_publish(ZelInstance instance, uint32_t group, uint32_t offset, const char* topic,
                        const void* data, uint32_t length, uint32_t timeoutMs) {
  return WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    if (topic == nullptr || IsMissing(data, length)) return ZEL_E_PARAM;
    const libzelx_Message message{sizeof message, topic, group, offset, data, length, 0};
    return BoundedCalls(connection, timeoutMs).Publish(RecordOf(message));
  });
}

int32_t libzelx_publishMany(ZelInstance instance, const libzelx_Message* messages, size_t count,
                            uint32_t timeoutMs, size_t* sent) {
  size_t whole = 0;
  const int32_t result = WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    std::vector<TopicRecord> records;
    if (!ReadMessages(messages, count, records)) return ZEL_E_PARAM;
    return BoundedCalls(connection, timeoutMs).PublishMany(records, whole);
  });
  if (sent != nullptr) *sent = whole;
  return result;
}

int32_t libzelx_flush(ZelInstance instance, uint32_t timeoutMs) {
  return WithConnection(instance,
                        [&](CTcpclient& connection) { return BoundedCalls(connection, timeoutMs).Flush(); });
}
