// The message frame as the server sees it.
//
// Every message is an 8-byte header (little-endian) and a body. A body of version 1 begins with 13 bytes of
// result, invoke identifier and command (big-endian); a request has 8 more bytes of addressing words
// (big-endian) before its payload, while answers and server messages have their payload right behind the 13
// bytes. Nothing here knows a socket; the parsers never look outside the span that they are given.
#pragma once

#include <array>
#include <optional>

#include "Bytes.h"

namespace zelsim {

inline constexpr size_t kHeaderSize = 8;
inline constexpr size_t kZoeSize = 13;
inline constexpr size_t kAddressSize = 8;
inline constexpr size_t kAnswerOverhead = kHeaderSize + kZoeSize;
inline constexpr size_t kRequestOverhead = kHeaderSize + kZoeSize + kAddressSize;
// Longest body taken from a peer; a longer announcement is a broken stream.
inline constexpr uint32_t kMaxBody = 10'485'760;
inline constexpr uint16_t kTopicPort = 103;
inline constexpr uint16_t kApplicationCmd = 9;
// Messages that answer nothing carry this identifier. Clients count from 1, so a client that waits for an
// answer never takes a topic message or a tick for it.
inline constexpr uint32_t kNoInvokeId = 0;

struct Header {
  uint8_t version = 1;
  uint16_t port = 0;
  uint32_t bodyLength = 0;
};

struct Request {
  uint8_t version = 1;
  uint16_t port = 0;
  uint32_t bodyLength = 0;
  uint32_t error = 0;
  uint32_t invokeId = 0;
  uint16_t cmd = 0;
  uint32_t idGroup = 0;
  uint32_t idOffset = 0;
  ByteView payload;  // points into the bytes that were parsed
};

struct AnswerHead {
  uint16_t port = 0;
  uint32_t error = 0;
  uint32_t invokeId = kNoInvokeId;
  uint16_t cmd = kApplicationCmd;
};

using AnswerHeadBytes = std::array<uint8_t, kAnswerOverhead>;

// `bytes` holds at least kHeaderSize bytes.
Header ReadHeader(ByteView bytes);
void WriteHeader(uint8_t* at, const Header& header);

// Reads the body of a request; nothing when the version is not 1 or the body is shorter than its fixed part.
std::optional<Request> ParseRequest(const Header& header, ByteView body);

// Answers a request: same port, identifier and command, `error` as given.
AnswerHead AnswerTo(const Request& request, uint32_t error);

// The 21 bytes in front of an answer's payload of `payloadSize` bytes.
AnswerHeadBytes EncodeAnswerHead(const AnswerHead& head, size_t payloadSize);
Bytes EncodeAnswer(const AnswerHead& head, ByteView payload);

// A version 0 message: header and bare payload.
Bytes EncodeBare(uint16_t port, ByteView payload);

}  // namespace zelsim
