#include "zelcomm/Frame.h"

#include <cstring>

namespace libzel {

namespace {

template <typename T>
void PutBe(uint8_t* at, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(value >> (8 * (sizeof(T) - 1 - i)));
}

template <typename T>
void PutLe(uint8_t* at, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

std::string_view UpToNul(std::span<const uint8_t> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return text.substr(0, text.find('\0'));
}

// Walks a record field by field; `bad` once a field started inside the message and ended outside.
class RecordReader {
 public:
  explicit RecordReader(std::span<const uint8_t> message) : rest_(message) {}

  uint64_t Length() {
    const auto field = Field(8);
    return field.empty() ? 0 : GetLe64(field.data());
  }
  uint32_t Word() {
    const auto field = Field(4);
    return field.empty() ? 0 : GetLe32(field.data());
  }
  // A text or the data, without the NUL behind it.
  std::span<const uint8_t> Content(uint64_t length) {
    if (rest_.empty()) return {};
    if (length >= rest_.size()) {
      bad_ = true;
      return {};
    }
    return Field(static_cast<size_t>(length) + 1).first(static_cast<size_t>(length));
  }
  bool bad() const { return bad_; }

 private:
  std::span<const uint8_t> Field(size_t size) {
    if (rest_.empty()) return {};
    if (size > rest_.size()) {
      bad_ = true;
      rest_ = {};
      return {};
    }
    const auto field = rest_.first(size);
    rest_ = rest_.subspan(size);
    return field;
  }

  std::span<const uint8_t> rest_;
  bool bad_ = false;
};

}  // namespace

void PutBe16(uint8_t* at, uint16_t value) { PutBe(at, value); }
void PutBe32(uint8_t* at, uint32_t value) { PutBe(at, value); }
void PutLe16(uint8_t* at, uint16_t value) { PutLe(at, value); }
void PutLe32(uint8_t* at, uint32_t value) { PutLe(at, value); }
void PutLe64(uint8_t* at, uint64_t value) { PutLe(at, value); }

void ZelHeader::Write(uint8_t* at) const {
  at[0] = reserved;
  at[1] = version;
  PutLe16(at + 2, port);
  PutLe32(at + 4, nMsgLen);
}

void ZoeHeader::Write(uint8_t* at) const {
  PutBe32(at, error);
  PutBe32(at + 4, invokeId);
  PutBe16(at + 8, Cmd);
  std::memset(at + 10, 0, 3);
}

void AddressBlock::Write(uint8_t* at) const {
  PutBe32(at, IdGroup);
  PutBe32(at + 4, IdOffset);
}

void WriteRequestHead(uint8_t* at, uint16_t port, uint32_t invokeId, const AddressBlock& address,
                      uint32_t payloadSize, uint16_t command) {
  const auto bodySize = static_cast<uint32_t>(payloadSize + kZoeHeaderSize + kAddressBlockSize);
  ZelHeader{0, kVersionZoe, port, bodySize}.Write(at);
  ZoeHeader{0, invokeId, command}.Write(at + kZelHeaderSize);
  address.Write(at + kZelHeaderSize + kZoeHeaderSize);
}

size_t TopicRecordHeadSize(const TopicRecord& record) {
  return 24 + record.verb.size() + 1 + record.topic.size() + 1;
}

size_t TopicRecordSize(const TopicRecord& record) {
  return TopicRecordHeadSize(record) + record.data.size() + kTopicRecordTailSize;
}

void WriteTopicRecordHead(uint8_t* at, const TopicRecord& record) {
  PutLe64(at, record.verb.size());
  PutLe64(at + 8, record.topic.size());
  PutLe64(at + 16, record.data.size());
  at += 24;
  at += record.verb.copy(reinterpret_cast<char*>(at), record.verb.size());
  *at++ = 0;
  at += record.topic.copy(reinterpret_cast<char*>(at), record.topic.size());
  *at = 0;
}

void WriteTopicRecordTail(uint8_t* at, const TopicRecord& record) {
  at[0] = 0;
  PutLe32(at + 1, record.IdGroup);
  PutLe32(at + 5, record.IdOffset);
}

std::optional<TopicRecord> ReadTopicRecord(std::span<const uint8_t> message) {
  RecordReader reader(message);
  const uint64_t verbLength = reader.Length();
  const uint64_t topicLength = reader.Length();
  const uint64_t dataLength = reader.Length();
  TopicRecord record;
  record.verb = UpToNul(reader.Content(verbLength));
  record.topic = UpToNul(reader.Content(topicLength));
  record.data = reader.Content(dataLength);
  record.IdGroup = reader.Word();
  record.IdOffset = reader.Word();
  if (reader.bad()) return std::nullopt;
  return record;
}

}  // namespace libzel
