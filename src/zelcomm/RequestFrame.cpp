#include "zelcomm/RequestFrame.h"

#include <algorithm>
#include <cstring>

namespace libzel {

RequestFrame::RequestFrame(uint16_t port, uint32_t invokeId, const AddressBlock& address,
                           std::span<const platform::ConstBytes> payload, uint16_t command) {
  size_t size = 0;
  for (const auto& piece : payload) size += piece.size();
  WriteRequestHead(bytes_.data(), port, invokeId, address, static_cast<uint32_t>(size), command);
  if (size + kRequestOverhead > kCopiedFrame) {
    pieces_[0] = std::span(bytes_).first(kRequestOverhead);
    std::copy(payload.begin(), payload.end(), pieces_.begin() + 1);
    count_ = payload.size() + 1;
    return;
  }
  size_t at = kRequestOverhead;
  for (const auto& piece : payload) {
    if (!piece.empty()) std::memcpy(bytes_.data() + at, piece.data(), piece.size());
    at += piece.size();
  }
  pieces_[0] = std::span(bytes_).first(at);
}

TopicRecordPieces::TopicRecordPieces(const TopicRecord& record) {
  std::span<uint8_t> head(shortHead_);
  if (const size_t size = TopicRecordHeadSize(record); size <= shortHead_.size()) {
    head = head.first(size);
  } else {
    longHead_.resize(size);
    head = longHead_;
  }
  WriteTopicRecordHead(head.data(), record);
  WriteTopicRecordTail(tail_.data(), record);
  pieces_ = {head, record.data, tail_};
}

}  // namespace libzel
