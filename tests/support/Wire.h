// Protocol bytes as tests write them down: built and read here byte by byte, without the library, so that
// each checks the other.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeltest {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes Text(std::string_view text) { return Bytes(text.begin(), text.end()); }

inline Bytes Le(uint64_t value, int size) {
  Bytes bytes;
  for (int i = 0; i < size; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
  return bytes;
}

inline Bytes Be(uint64_t value, int size) {
  const Bytes little = Le(value, size);
  return Bytes(little.rbegin(), little.rend());
}

inline uint64_t ReadLe(const Bytes& bytes, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = size; i-- > 0;) value = value << 8 | bytes.at(at + i);
  return value;
}

inline uint64_t ReadBe(const Bytes& bytes, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = 0; i < size; ++i) value = value << 8 | bytes.at(at + i);
  return value;
}

inline Bytes OuterHeader(uint8_t version, uint16_t port, uint32_t bodySize) {
  return Bytes{0, version} + Le(port, 2) + Le(bodySize, 4);
}

inline Bytes Message(uint8_t version, uint16_t port, const Bytes& body) {
  return OuterHeader(version, port, static_cast<uint32_t>(body.size())) + body;
}

inline Bytes InnerHeader(uint32_t error, uint32_t invokeId, uint16_t command = 9) {
  return Be(error, 4) + Be(invokeId, 4) + Be(command, 2) + Bytes{0, 0, 0};
}

inline Bytes Answer(uint16_t port, uint32_t invokeId, const Bytes& payload, uint32_t error = 0) {
  return Message(1, port, InnerHeader(error, invokeId) + payload);
}

inline Bytes Record(std::string_view verb, std::string_view topic, const Bytes& data, uint32_t idGroup = 0,
                    uint32_t idOffset = 0) {
  return Le(verb.size(), 8) + Le(topic.size(), 8) + Le(data.size(), 8) + Text(verb) + Bytes{0} + Text(topic) +
         Bytes{0} + data + Bytes{0} + Le(idGroup, 4) + Le(idOffset, 4);
}

// What the server sends to a subscriber.
inline Bytes TopicMessage(std::string_view topic, const Bytes& data, uint32_t idGroup = 0,
                          uint32_t idOffset = 0) {
  return Answer(103, 0, Record("pub", topic, data, idGroup, idOffset));
}

// A request as it came over the wire; `whole` is false when the connection ended first.
struct Request {
  bool whole = false;
  uint8_t version = 0;
  uint16_t port = 0;
  uint32_t error = 0;
  uint32_t invokeId = 0;
  uint16_t command = 0;
  uint32_t idGroup = 0;
  uint32_t idOffset = 0;
  Bytes payload;
};

struct RecordText {
  std::string verb;
  std::string topic;
};

inline RecordText ReadRecord(const Bytes& payload) {
  const auto verbSize = static_cast<ptrdiff_t>(ReadLe(payload, 0, 8));
  const auto topicSize = static_cast<ptrdiff_t>(ReadLe(payload, 8, 8));
  const auto verb = payload.begin() + 24;
  return {std::string(verb, verb + verbSize),
          std::string(verb + verbSize + 1, verb + verbSize + 1 + topicSize)};
}

}  // namespace zeltest
