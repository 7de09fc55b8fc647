// Requests as they go over the wire, put together for one gathered send. What is given stays the caller's and has to live
// until the send is over; small frames are copied into one piece, which is cheaper.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/Platform.h"
#include "zelcomm/Frame.h"

namespace libzel {

class RequestFrame {
 public:
  // `payload` has at most three pieces.
  RequestFrame(uint16_t port, uint32_t invokeId, const AddressBlock& address,
               std::span<const platform::ConstBytes> payload, uint16_t command = kCmdApplication);
  RequestFrame(const RequestFrame&) = delete;
  RequestFrame& operator=(const RequestFrame&) = delete;

  std::span<const platform::ConstBytes> pieces() const { return std::span(pieces_).first(count_); }

 private:
  static constexpr size_t kCopiedFrame = size_t{8} * 1024;

  std::array<uint8_t, kCopiedFrame> bytes_;
  std::array<platform::ConstBytes, platform::kMaxPieces> pieces_;
  size_t count_ = 1;
};

// The three pieces of a topic record: what stands in front of its data, the data, what stands behind.
class TopicRecordPieces {
 public:
  explicit TopicRecordPieces(const TopicRecord& record);
  TopicRecordPieces(const TopicRecordPieces&) = delete;
  TopicRecordPieces& operator=(const TopicRecordPieces&) = delete;

  std::span<const platform::ConstBytes> pieces() const { return pieces_; }

 private:
  std::array<uint8_t, 512> shortHead_;
  std::vector<uint8_t> longHead_;
  std::array<uint8_t, kTopicRecordTailSize> tail_;
  std::array<platform::ConstBytes, 3> pieces_;
};

}  // namespace libzel
