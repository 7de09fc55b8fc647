#include "zelcomm/FrameDecoder.h"

#include <algorithm>
#include <cstring>

namespace libzel {

namespace {

// Bodies up to here, 64 KiB of payload and its header among them, are read in one go.
constexpr uint32_t kStep = 128 * 1024;
constexpr uint32_t kLetGoAtOnce = 16 * 1024;

bool IsGoodLength(uint32_t length, uint32_t longestBody) { return length != 0 && length <= longestBody; }

}  // namespace

std::optional<FrameView> FrameDecoder::Front(std::span<const uint8_t> bytes) {
  if (bytes.size() < kZelHeaderSize) return std::nullopt;
  const ZelHeader header = ZelHeader::Read(bytes.data());
  const auto rest = bytes.subspan(kZelHeaderSize);
  return FrameView{header, rest.first(std::min<size_t>(rest.size(), header.nMsgLen))};
}

std::optional<FrameView> FrameDecoder::Whole(std::span<const uint8_t> bytes, uint32_t longestBody) {
  const auto front = Front(bytes);
  const bool isGood = front && front->IsWhole() && IsGoodLength(front->header.nMsgLen, longestBody);
  return isGood ? front : std::nullopt;
}

void FrameDecoder::Begin(const Limits& limits) {
  limits_ = limits;
  verdict_ = Verdict::kMore;
  ZelHeader{}.Write(header_.data());
  headerSize_ = 0;
  bodySize_ = 0;
}

void FrameDecoder::SetLongestBody(uint32_t longestBody) {
  limits_.longestBody = longestBody;
  if (HasHeader()) Judge();
}

std::span<uint8_t> FrameDecoder::Room() {
  if (!HasHeader()) return std::span(header_).subspan(headerSize_);
  const uint32_t wanted = header().nMsgLen - bodySize_;
  if (bodySize_ >= limits_.heldBody) {
    if (letGo_ == nullptr) letGo_ = std::make_unique_for_overwrite<uint8_t[]>(kLetGoAtOnce);
    return {letGo_.get(), std::min(wanted, kLetGoAtOnce)};
  }
  const uint32_t held = std::min(wanted, limits_.heldBody - bodySize_);
  if (bodySize_ == capacity_) Grow(held);
  return {block_.get() + bodySize_, std::min(held, capacity_ - bodySize_)};
}

void FrameDecoder::Grow(uint32_t wanted) {
  const uint32_t more = std::min(wanted, std::max(bodySize_, kStep));
  auto block = std::make_unique_for_overwrite<uint8_t[]>(size_t{bodySize_} + more);
  if (bodySize_ != 0) std::memcpy(block.get(), block_.get(), bodySize_);
  block_ = std::move(block);
  capacity_ = bodySize_ + more;
}

void FrameDecoder::Took(size_t count) {
  if (HasHeader()) {
    bodySize_ += static_cast<uint32_t>(count);
  } else {
    headerSize_ += static_cast<uint32_t>(count);
    if (!HasHeader()) return;
  }
  Judge();
}

void FrameDecoder::EndHeader() { Judge(); }

void FrameDecoder::Judge() {
  const uint32_t length = header().nMsgLen;
  if (!IsGoodLength(length, limits_.longestBody)) {
    verdict_ = Verdict::kBadLength;
  } else if (bodySize_ == length) {
    verdict_ = Verdict::kFrame;
  }
}

void FrameDecoder::Trim() {
  block_.reset();
  capacity_ = 0;
  letGo_.reset();
}

}  // namespace libzel
