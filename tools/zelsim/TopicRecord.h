// The payload of publish, subscribe and unsubscribe requests, and of delivered topic messages.
//
// Three little-endian 64-bit lengths, three NUL-terminated texts, two little-endian 32-bit words. The reader
// checks every length against what is left, in 64 bits and by subtraction, before it uses it.
#pragma once

#include <optional>
#include <string_view>

#include "Bytes.h"

namespace zelsim {

inline constexpr size_t kTopicRecordOverhead = 35;

struct TopicRecord {
  std::string_view verb;
  std::string_view topic;
  ByteView data;
  uint32_t idGroup = 0;
  uint32_t idOffset = 0;
};

// Nothing when a field reaches outside the payload, a text lacks its NUL, or bytes are left over.
std::optional<TopicRecord> ParseTopicRecord(ByteView payload);

Bytes EncodeTopicRecord(const TopicRecord& record);

}  // namespace zelsim
