#include "TopicRecord.h"

namespace zelsim {
namespace {

constexpr size_t kLengthsSize = 24;
constexpr size_t kWordsSize = 8;

// Takes `length` bytes and their NUL off the front of `rest`.
std::optional<ByteView> TakeField(ByteView& rest, uint64_t length) {
  if (rest.empty() || length > rest.size() - 1) return std::nullopt;
  const ByteView field = rest.first(static_cast<size_t>(length));
  if (rest[field.size()] != 0) return std::nullopt;
  rest = rest.subspan(field.size() + 1);
  return field;
}

std::string_view AsText(ByteView bytes) {
  const std::string_view whole(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return whole.substr(0, whole.find('\0'));
}

void AppendField(Bytes& to, const void* data, size_t size) {
  Append(to, ByteView(static_cast<const uint8_t*>(data), size));
  to.push_back(0);
}

}  // namespace

std::optional<TopicRecord> ParseTopicRecord(ByteView payload) {
  if (payload.size() < kTopicRecordOverhead) return std::nullopt;
  ByteView rest = payload.subspan(kLengthsSize);
  const auto verb = TakeField(rest, GetLe<uint64_t>(&payload[0]));
  if (!verb) return std::nullopt;
  const auto topic = TakeField(rest, GetLe<uint64_t>(&payload[8]));
  if (!topic) return std::nullopt;
  const auto data = TakeField(rest, GetLe<uint64_t>(&payload[16]));
  if (!data || rest.size() != kWordsSize) return std::nullopt;
  return TopicRecord{.verb = AsText(*verb),
                     .topic = AsText(*topic),
                     .data = *data,
                     .idGroup = GetLe<uint32_t>(&rest[0]),
                     .idOffset = GetLe<uint32_t>(&rest[4])};
}

Bytes EncodeTopicRecord(const TopicRecord& record) {
  Bytes bytes(kLengthsSize);
  bytes.reserve(kTopicRecordOverhead + record.verb.size() + record.topic.size() + record.data.size());
  PutLe<uint64_t>(&bytes[0], record.verb.size());
  PutLe<uint64_t>(&bytes[8], record.topic.size());
  PutLe<uint64_t>(&bytes[16], record.data.size());
  AppendField(bytes, record.verb.data(), record.verb.size());
  AppendField(bytes, record.topic.data(), record.topic.size());
  AppendField(bytes, record.data.data(), record.data.size());
  bytes.resize(bytes.size() + kWordsSize);
  PutLe(&bytes[bytes.size() - 8], record.idGroup);
  PutLe(&bytes[bytes.size() - 4], record.idOffset);
  return bytes;
}

}  // namespace zelsim
