#include "FrameReader.h"

#include <cstring>

namespace zelsim {
namespace {

constexpr size_t kFirstCapacity = size_t{128} * 1024;
constexpr size_t kLeastSpace = size_t{16} * 1024;

}  // namespace

FrameReader::FrameReader()
    : bytes_(std::make_unique_for_overwrite<uint8_t[]>(kFirstCapacity)), capacity_(kFirstCapacity) {}

std::span<uint8_t> FrameReader::Space() {
  if (begin_ == end_) begin_ = end_ = 0;
  if (capacity_ - end_ < kLeastSpace) MakeRoom();
  return {bytes_.get() + end_, capacity_ - end_};
}

// Moves the unfinished frame to the front; doubles the buffer when that frame fills more than half of it.
void FrameReader::MakeRoom() {
  const size_t kept = Buffered();
  if (kept > capacity_ / 2) {
    const size_t capacity = capacity_ * 2;
    auto larger = std::make_unique_for_overwrite<uint8_t[]>(capacity);
    std::memcpy(larger.get(), bytes_.get() + begin_, kept);
    bytes_ = std::move(larger);
    capacity_ = capacity;
  } else {
    std::memmove(bytes_.get(), bytes_.get() + begin_, kept);
  }
  begin_ = 0;
  end_ = kept;
}

FrameReader::Status FrameReader::Next() {
  if (Buffered() < kHeaderSize) return Status::kNeedMore;
  const ByteView buffered(bytes_.get() + begin_, Buffered());
  header_ = ReadHeader(buffered);
  body_ = {};
  if (header_.bodyLength == 0 || header_.bodyLength > kMaxBody) return Status::kBadLength;
  if (buffered.size() - kHeaderSize < header_.bodyLength) return Status::kNeedMore;
  body_ = buffered.subspan(kHeaderSize, header_.bodyLength);
  begin_ += kHeaderSize + header_.bodyLength;
  return Status::kFrame;
}

}  // namespace zelsim
