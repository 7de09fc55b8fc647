#include "Frame.h"

#include <algorithm>

namespace zelsim {

Header ReadHeader(ByteView bytes) {
  return {.version = bytes[1], .port = GetLe<uint16_t>(&bytes[2]), .bodyLength = GetLe<uint32_t>(&bytes[4])};
}

void WriteHeader(uint8_t* at, const Header& header) {
  at[0] = 0;
  at[1] = header.version;
  PutLe(at + 2, header.port);
  PutLe(at + 4, header.bodyLength);
}

std::optional<Request> ParseRequest(const Header& header, ByteView body) {
  if (header.version != 1 || body.size() < kZoeSize + kAddressSize) return std::nullopt;
  return Request{.version = header.version,
                 .port = header.port,
                 .bodyLength = header.bodyLength,
                 .error = GetBe<uint32_t>(&body[0]),
                 .invokeId = GetBe<uint32_t>(&body[4]),
                 .cmd = GetBe<uint16_t>(&body[8]),
                 .idGroup = GetBe<uint32_t>(&body[13]),
                 .idOffset = GetBe<uint32_t>(&body[17]),
                 .payload = body.subspan(kZoeSize + kAddressSize)};
}

AnswerHead AnswerTo(const Request& request, uint32_t error) {
  return {.port = request.port, .error = error, .invokeId = request.invokeId, .cmd = request.cmd};
}

AnswerHeadBytes EncodeAnswerHead(const AnswerHead& head, size_t payloadSize) {
  AnswerHeadBytes bytes{};
  WriteHeader(bytes.data(),
              {.version = 1, .port = head.port, .bodyLength = static_cast<uint32_t>(kZoeSize + payloadSize)});
  PutBe(&bytes[8], head.error);
  PutBe(&bytes[12], head.invokeId);
  PutBe(&bytes[16], head.cmd);
  return bytes;
}

Bytes EncodeAnswer(const AnswerHead& head, ByteView payload) {
  const AnswerHeadBytes front = EncodeAnswerHead(head, payload.size());
  Bytes bytes(front.size() + payload.size());
  std::copy(front.begin(), front.end(), bytes.begin());
  std::copy(payload.begin(), payload.end(), bytes.begin() + kAnswerOverhead);
  return bytes;
}

Bytes EncodeBare(uint16_t port, ByteView payload) {
  Bytes bytes(kHeaderSize + payload.size());
  WriteHeader(bytes.data(),
              {.version = 0, .port = port, .bodyLength = static_cast<uint32_t>(payload.size())});
  std::copy(payload.begin(), payload.end(), bytes.begin() + kHeaderSize);
  return bytes;
}

}  // namespace zelsim
