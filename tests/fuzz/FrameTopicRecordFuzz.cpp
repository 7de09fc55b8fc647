// Any bytes as a message: its headers, and its body as a topic record. What is read lies inside the message,
// and a record that is read whole can be written again.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "zelcomm/Frame.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

template <typename Part>
void RequireInside(const Part& part, std::span<const uint8_t> message) {
  if (part.empty()) return;
  const auto* begin = reinterpret_cast<const uint8_t*>(part.data());
  Require(begin >= message.data() &&
          part.size() <= static_cast<size_t>(message.data() + message.size() - begin));
}

void CheckRecord(std::span<const uint8_t> body) {
  const auto record = libzel::ReadTopicRecord(body);
  if (!record) return;
  RequireInside(record->verb, body);
  RequireInside(record->topic, body);
  RequireInside(record->data, body);

  std::vector<uint8_t> bytes(libzel::TopicRecordSize(*record));
  const size_t headSize = libzel::TopicRecordHeadSize(*record);
  libzel::WriteTopicRecordHead(bytes.data(), *record);
  std::copy(record->data.begin(), record->data.end(), bytes.begin() + static_cast<ptrdiff_t>(headSize));
  libzel::WriteTopicRecordTail(bytes.data() + headSize + record->data.size(), *record);
  const auto again = libzel::ReadTopicRecord(bytes);
  Require(again && again->verb == record->verb && again->topic == record->topic);
  Require(again->data.size() == record->data.size() && again->IdGroup == record->IdGroup &&
          again->IdOffset == record->IdOffset);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> message(data, size);
  if (size >= libzel::kZelHeaderSize) {
    uint8_t bytes[libzel::kZelHeaderSize];
    libzel::ZelHeader::Read(data).Write(bytes);
    Require(std::equal(bytes, bytes + sizeof bytes, data));
    message = message.subspan(libzel::kZelHeaderSize);
  }
  const auto inner = libzel::ZoeHeader::Read(message);
  Require(inner.has_value() == (message.size() >= libzel::kZoeHeaderSize));
  if (inner) message = message.subspan(libzel::kZoeHeaderSize);
  CheckRecord(message);
  CheckRecord({data, size});
  return 0;
}
