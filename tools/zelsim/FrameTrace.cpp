#include "FrameTrace.h"

#include "TopicRecord.h"

namespace zelsim {
namespace {

void DescribeRecord(TraceLine& line, ByteView payload) {
  const auto record = ParseTopicRecord(payload);
  if (!record) return;
  line.Text("verb", record->verb).Text("topic", record->topic).Number("data", record->data.size());
  line.Hex("recordGroup", record->idGroup).Hex("recordOffset", record->idOffset);
}

}  // namespace

void DescribeRequest(TraceLine& line, const Request& request) {
  line.Number("port", request.port).Number("version", unsigned{request.version}).Number("cmd", request.cmd);
  line.Number("invokeId", request.invokeId).Number("error", request.error);
  line.Hex("idGroup", request.idGroup).Hex("idOffset", request.idOffset);
  line.Number("length", request.bodyLength).Number("payload", request.payload.size());
  if (request.port == kTopicPort) DescribeRecord(line, request.payload);
}

void DescribeSent(TraceLine& line, ByteView frame) {
  if (frame.size() < kHeaderSize) {
    line.Number("bytes", frame.size());
    return;
  }
  const Header header = ReadHeader(frame);
  line.Number("port", header.port).Number("version", unsigned{header.version});
  const ByteView body = frame.subspan(kHeaderSize);
  const bool zoe = header.version != 0 && body.size() >= kZoeSize;
  if (zoe) {
    line.Number("cmd", GetBe<uint16_t>(&body[8])).Number("invokeId", GetBe<uint32_t>(&body[4]));
    line.Number("error", GetBe<uint32_t>(&body[0]));
  }
  line.Number("length", header.bodyLength).Number("payload", zoe ? body.size() - kZoeSize : body.size());
  if (zoe && header.port == kTopicPort) DescribeRecord(line, body.subspan(kZoeSize));
}

}  // namespace zelsim
