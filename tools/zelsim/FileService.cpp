#include "FileService.h"

#include <algorithm>

namespace zelsim {
namespace {

constexpr uint32_t kTransferGroup = 0x1002;
constexpr uint32_t kTransferOffset = 1;

}  // namespace

const Fault* FileService::Find(FaultKind kind, uint64_t number) const {
  return FindFault(options_.faults, kind, number);
}

FileReceiver::Step FileService::Handle(Connection& connection, const Request& request) {
  if (request.idGroup != kTransferGroup) return {.answer = {.error = kWrongGroup}};
  if (request.idOffset != kTransferOffset) return {.answer = {.error = kWrongOffset}};
  return receiver_.Handle(connection.Id(), request.payload);
}

void FileService::OnRequest(Connection& connection, const Request& request, uint64_t frame) {
  FileReceiver::Step step = Handle(connection, request);
  const uint64_t number = step.number;
  if (const Fault* error = Find(FaultKind::kTransferError, number)) {
    step.answer.error = static_cast<uint32_t>(error->first);
  }
  TraceStep(connection, request, step);
  if (Find(FaultKind::kTransferClose, number) != nullptr) return connection.CloseAfterFlush("fault");
  if (Find(FaultKind::kTransferSilent, number) != nullptr) return;
  Bytes payload = EncodeTransferAnswer(step.answer);
  if (const Fault* cut = Find(FaultKind::kTransferShort, number)) {
    payload.resize(std::min<size_t>(payload.size(), cut->first));
  }
  const AnswerHead head = AnswerTo(request, 0);
  const Fault* late = Find(FaultKind::kTransferLate, number);
  if (late == nullptr) return connection.Answer(frame, head, payload);
  connection.AnswerLater(std::chrono::milliseconds(late->first), frame, head, payload);
}

void FileService::TraceStep(const Connection& connection, const Request& request,
                            const FileReceiver::Step& step) {
  if (!trace_.On()) return;
  TraceLine line = connection.Line("transfer");
  line.Text("step", step.kind).Number("handle", step.answer.handle).Number("number", step.number);
  line.Number("size", request.payload.size()).Text("name", step.name);
  trace_.Write(line.Number("error", step.answer.error).Number("last", step.answer.last ? 1 : 0));
}

}  // namespace zelsim
