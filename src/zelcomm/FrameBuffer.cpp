#include "zelcomm/FrameBuffer.h"

#include <cstring>

namespace libzel {

// Left unfilled: a block of megabytes is written by its content, not before it.
FrameBuffer::FrameBuffer(uint32_t size, const uint8_t* initial)
    : block_(std::make_unique_for_overwrite<uint8_t[]>(size)), begin_(block_.get() + size), capacity_(size) {
  if (initial == nullptr) return;
  std::memcpy(block_.get(), initial, size);
  begin_ = block_.get();
}

void FrameBuffer::prepend(const uint8_t* bytes, uint32_t size) {
  if (size > room()) {
    const uint32_t oldRoom = room();
    auto block = std::make_unique_for_overwrite<uint8_t[]>(size_t{capacity_} + size);
    std::memcpy(block.get() + oldRoom + size, begin_, length());
    begin_ = block.get() + oldRoom + size;
    block_ = std::move(block);
    capacity_ += size;
  }
  begin_ -= size;
  std::memcpy(begin_, bytes, size);
}

}  // namespace libzel
