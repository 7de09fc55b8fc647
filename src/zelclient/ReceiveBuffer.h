// A body in the making. It grows with the bytes that arrive, never with what a header announces, and keeps its block
// for the next body. Not for use by several threads at once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

namespace libzel {

class ReceiveBuffer {
 public:
  // Room behind the `filled` bytes that are kept, for at most `wanted` further ones; never empty.
  std::span<uint8_t> Room(uint32_t filled, uint32_t wanted) {
    if (filled == capacity_) Grow(filled, wanted);
    return {block_.get() + filled, std::min(wanted, capacity_ - filled)};
  }
  const uint8_t* data() const { return block_.get(); }
  void Trim() {
    block_.reset();
    capacity_ = 0;
  }

 private:
  // Bodies up to here, 64 KiB of payload and its header among them, are read in one go.
  static constexpr uint32_t kStep = 128 * 1024;

  void Grow(uint32_t filled, uint32_t wanted) {
    const uint32_t more = std::min(wanted, std::max(filled, kStep));
    auto block = std::make_unique_for_overwrite<uint8_t[]>(size_t{filled} + more);
    if (filled != 0) std::memcpy(block.get(), block_.get(), filled);
    block_ = std::move(block);
    capacity_ = filled + more;
  }

  std::unique_ptr<uint8_t[]> block_;
  uint32_t capacity_ = 0;
};

}  // namespace libzel
