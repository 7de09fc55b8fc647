// The byte buffer that frames are built in and read into. It keeps its content at the end of its block, so that
// headers go in front of a payload without moving it. Not for use by several threads at once.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace libzel {

class FrameBuffer {
 public:
  // An empty buffer of `size` bytes, or one filled with `initial`, which has `size` bytes.
  explicit FrameBuffer(uint32_t size, const uint8_t* initial = nullptr);

  // Puts `size` bytes in front of the content. When they do not fit, the block grows by `size`.
  void prepend(const uint8_t* bytes, uint32_t size);

  uint8_t* block() { return block_.get(); }
  uint8_t* begin() { return begin_; }
  uint32_t capacity() const { return capacity_; }
  uint32_t length() const { return capacity_ - room(); }
  std::span<const uint8_t> content() const { return {begin_, length()}; }

 private:
  uint32_t room() const { return static_cast<uint32_t>(begin_ - block_.get()); }

  std::unique_ptr<uint8_t[]> block_;
  uint8_t* begin_;
  uint32_t capacity_;
};

}  // namespace libzel
