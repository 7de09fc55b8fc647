// Many topic messages for one subscriber, prepared in blocks (--burst TOPIC=N:SIZE).
//
// Every message carries SIZE bytes of data. When SIZE is 8 or more, its first 8 bytes count the messages from
// 0, little-endian, so that a receiver can see losses and order; the other bytes are dots.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Bytes.h"

namespace zelsim {

struct BurstRule {
  std::string topic;
  uint64_t count = 0;  // 0 goes on until the subscriber leaves
  size_t size = 0;
};

std::optional<BurstRule> ParseBurstRule(std::string_view text);

class Burst {
 public:
  explicit Burst(const BurstRule& rule);

  bool Done() const { return count_ != 0 && made_ == count_; }
  const std::string& Topic() const { return topic_; }
  uint64_t Made() const { return made_; }
  // Appends the next block of whole messages; false when the burst is done.
  bool Fill(Bytes& buffer);

 private:
  uint64_t MessagesInNextBlock() const;
  void StampCounters(uint8_t* block, uint64_t messages);

  std::string topic_;
  uint64_t count_;
  uint64_t made_ = 0;
  size_t messageSize_ = 0;
  size_t counterOffset_ = 0;  // 0 when the data has no room for a counter
  Bytes block_;
};

}  // namespace zelsim
