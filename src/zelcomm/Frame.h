// The bytes of a message: outer header, inner header, address block and topic record. Readers and writers here know no
// socket and no log.
//
// The outer header and the topic record are little-endian, the inner header and the address block big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace libzel {

inline constexpr size_t kZelHeaderSize = 8;
inline constexpr size_t kZoeHeaderSize = 13;
inline constexpr size_t kAddressBlockSize = 8;
inline constexpr size_t kRequestOverhead = kZelHeaderSize + kZoeHeaderSize + kAddressBlockSize;

inline constexpr uint8_t kVersionBare = 0;
inline constexpr uint8_t kVersionZoe = 1;

inline constexpr uint32_t kMaxReceivedBody = 10485759;  // of the receive thread
inline constexpr uint32_t kMaxSentFrame = 10485760;

inline constexpr uint16_t kCmdApplication = 9;
inline constexpr uint16_t kTopicPort = 103;
inline constexpr uint16_t kLastReservedPort = 500;

void PutBe16(uint8_t* at, uint16_t value);
void PutBe32(uint8_t* at, uint32_t value);
void PutLe16(uint8_t* at, uint16_t value);
void PutLe32(uint8_t* at, uint32_t value);
void PutLe64(uint8_t* at, uint64_t value);

// Reading is inline: every message that arrives is read field by field.
template <typename T>
T GetBe(const uint8_t* at) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>(value | static_cast<T>(T{at[i]} << (8 * (sizeof(T) - 1 - i))));
  }
  return value;
}
template <typename T>
T GetLe(const uint8_t* at) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) value = static_cast<T>(value | static_cast<T>(T{at[i]} << (8 * i)));
  return value;
}
inline uint16_t GetBe16(const uint8_t* at) { return GetBe<uint16_t>(at); }
inline uint32_t GetBe32(const uint8_t* at) { return GetBe<uint32_t>(at); }
inline uint16_t GetLe16(const uint8_t* at) { return GetLe<uint16_t>(at); }
inline uint32_t GetLe32(const uint8_t* at) { return GetLe<uint32_t>(at); }
inline uint64_t GetLe64(const uint8_t* at) { return GetLe<uint64_t>(at); }

// The outer header, 8 bytes.
struct ZelHeader {
  uint8_t reserved = 0;
  uint8_t version = kVersionZoe;
  uint16_t port = 0;
  uint32_t nMsgLen = 0;  // body bytes that follow

  void Write(uint8_t* at) const;
  static ZelHeader Read(const uint8_t* at) { return {at[0], at[1], GetLe16(at + 2), GetLe32(at + 4)}; }
};

// The whole size of the frame that begins with these bytes; 0 when its header is not complete, or announces a length
// that the receive thread refuses.
inline size_t ReceivedFrameSize(std::span<const uint8_t> bytes) {
  if (bytes.size() < kZelHeaderSize) return 0;
  const uint32_t length = ZelHeader::Read(bytes.data()).nMsgLen;
  return length == 0 || length > kMaxReceivedBody ? 0 : kZelHeaderSize + length;
}

// The inner header, 13 bytes, at the start of a version 1 body.
struct ZoeHeader {
  uint32_t error = 0;
  uint32_t invokeId = 0;
  uint16_t Cmd = 0;

  void Write(uint8_t* at) const;
  // Nothing when the body is too short.
  static std::optional<ZoeHeader> Read(std::span<const uint8_t> body) {
    if (body.size() < kZoeHeaderSize) return std::nullopt;
    return ZoeHeader{GetBe32(body.data()), GetBe32(body.data() + 4), GetBe16(body.data() + 8)};
  }
};

// Two words that every request carries behind its inner header.
struct AddressBlock {
  uint32_t IdGroup = 0;
  uint32_t IdOffset = 0;

  void Write(uint8_t* at) const;
};

// Writes the 29 bytes in front of a request's payload.
void WriteRequestHead(uint8_t* at, uint16_t port, uint32_t invokeId, const AddressBlock& address,
                      uint32_t payloadSize, uint16_t command = kCmdApplication);

// ---- Topic record -----------------------------------------------------------------------------------------

// verb, topic and data each with a NUL behind, their lengths in front, the publisher's two words at the end.
struct TopicRecord {
  std::string_view verb;
  std::string_view topic;
  std::span<const uint8_t> data;
  uint32_t IdGroup = 0;
  uint32_t IdOffset = 0;
};

inline constexpr size_t kTopicRecordTailSize = 9;  // the data's NUL and the two words

size_t TopicRecordSize(const TopicRecord& record);
// What stands in front of the data: three lengths, verb, topic.
size_t TopicRecordHeadSize(const TopicRecord& record);
void WriteTopicRecordHead(uint8_t* at, const TopicRecord& record);
void WriteTopicRecordTail(uint8_t* at, const TopicRecord& record);

// Reads a record; its texts and data point into `message`. A field that does not start inside the message stays empty
// or 0. Nothing when a field starts inside and ends outside, whatever its length claims.
std::optional<TopicRecord> ReadTopicRecord(std::span<const uint8_t> message);

}  // namespace libzel
