// The calls of a connection that end in time, whatever the peer does: requests from any thread, and publications. They
// leave the last invoke identifier alone, by which a synchronous receive knows its answer.
//
// Any thread may make them. Results are codes; the thread's error number is left to the exports. Nothing is ever sent
// twice.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "libzel/libzelx.h"
#include "zelclient/ZelTcpclient.h"
#include "zelcomm/RequestFrame.h"

namespace libzel {

class BoundedCalls {
 public:
  // For calls that end within `timeoutMs` from now, and answers that come within `answerMs` from when the request is
  // written.
  BoundedCalls(CTcpclient& connection, uint32_t timeoutMs, uint32_t answerMs = UINT32_MAX);

  // Fills what `out` tells of the answer and of whether bytes may have left; the rest of it is the caller's.
  int32_t Request(const libzelx_Request& request, std::span<uint8_t> answer, libzelx_Outcome& out);
  int32_t RequestAsync(const libzelx_Request& request, libzelx_AnswerCallback callback, void* user,
                       uint64_t& ticket);
  int32_t Publish(const TopicRecord& record);
  // `sent` counts on: the messages that left whole.
  int32_t PublishMany(std::span<const TopicRecord> records, size_t& sent);
  int32_t Flush();

 private:
  using Link = std::shared_ptr<SocketLink>;
  using Written = SocketLink::Written;

  class Batch;
  class Borrowed;
  class Entered;

  bool IsTooLong(uint64_t payloadSize);
  int32_t Prepare(const libzelx_Request& request, Link& link);
  template <typename Pending>
  bool EnterUnderFreeId(RequestTable& table, Pending& request, uint32_t& invokeId);
  Written SendRequest(const Link& link, const libzelx_Request& request, uint32_t invokeId);
  Written SendFrame(const Link& link, const RequestFrame& frame);
  Written Send(const Link& link, std::span<const platform::ConstBytes> pieces);
  void Settle(const Link& link, const Written& written) { Settle(link, written, written.bytes != 0); }
  void Settle(const Link& link, const Written& written, bool isCut);
  void ReadInTurn(SocketLink& link, const PendingRequest& request);
  bool ReadAnswers(SocketLink& link, const PendingRequest& request);
  bool IsLongAnswer(const FrameView& frame, const PendingRequest& request) const;
  bool ReadAnswer(SocketLink& link, const PendingRequest& request);
  bool ReadLongAnswer(SocketLink& link);
  static int32_t ResultOf(const Written& written);

  CTcpclient& connection_;
  const uint32_t timeoutMs_;
  const uint32_t answerMs_;
  const CondVar::Clock::time_point end_;
};

}  // namespace libzel
