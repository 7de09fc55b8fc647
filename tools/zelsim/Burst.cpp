#include "Burst.h"

#include <algorithm>

#include "Frame.h"
#include "Text.h"
#include "TopicRecord.h"

namespace zelsim {
namespace {

constexpr size_t kBlockSize = size_t{256} * 1024;
constexpr size_t kCounterSize = 8;
constexpr size_t kDataTail = 9;  // the data's NUL and the two addressing words

Bytes EncodeBurstMessage(const BurstRule& rule) {
  const Bytes data(rule.size, '.');
  const Bytes record = EncodeTopicRecord({.verb = "pub", .topic = rule.topic, .data = data});
  return EncodeAnswer({.port = kTopicPort}, record);
}

}  // namespace

std::optional<BurstRule> ParseBurstRule(std::string_view text) {
  const auto sides = SplitOnce(text, '=');
  const auto numbers = SplitOnce(sides ? sides->second : "", ':');
  if (!sides || !numbers || sides->first.empty()) return std::nullopt;
  const auto count = ParseNumber(numbers->first);
  const auto size = ParseNumber(numbers->second, kMaxBody / 2);
  if (!count || !size) return std::nullopt;
  return BurstRule{.topic = std::string(sides->first), .count = *count, .size = *size};
}

Burst::Burst(const BurstRule& rule) : topic_(rule.topic), count_(rule.count) {
  const Bytes message = EncodeBurstMessage(rule);
  messageSize_ = message.size();
  if (rule.size >= kCounterSize) counterOffset_ = message.size() - kDataTail - rule.size;
  do {
    Append(block_, message);
  } while (block_.size() + message.size() <= kBlockSize);
}

uint64_t Burst::MessagesInNextBlock() const {
  const uint64_t whole = block_.size() / messageSize_;
  return count_ == 0 ? whole : std::min(whole, count_ - made_);
}

bool Burst::Fill(Bytes& buffer) {
  if (Done()) return false;
  const uint64_t messages = MessagesInNextBlock();
  const size_t begin = buffer.size();
  Append(buffer, ByteView(block_).first(messages * messageSize_));
  StampCounters(buffer.data() + begin, messages);
  return true;
}

void Burst::StampCounters(uint8_t* block, uint64_t messages) {
  for (uint64_t i = 0; i < messages; ++i, ++made_) {
    if (counterOffset_ != 0) PutLe(block + i * messageSize_ + counterOffset_, made_);
  }
}

}  // namespace zelsim
