// Bytes of a stream that were received before they were asked for. They are received in one place and read in another;
// those that are read stay where they are until more is received. Not for use by several threads at once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

namespace libzel {

class ReadAhead {
 public:
  static constexpr size_t kSize = size_t{16} * 1024;

  bool IsEmpty() const { return begin_ == end_; }
  // What is there to be read.
  std::span<const uint8_t> bytes() const { return {block_.get() + begin_, end_ - begin_}; }

  // Where to receive; asked for only when empty. It makes the block.
  std::span<uint8_t> Room() {
    if (block_ == nullptr) block_ = std::make_unique_for_overwrite<uint8_t[]>(kSize);
    return {block_.get(), kSize};
  }
  // Takes in that `count` bytes were received.
  void Received(size_t count) {
    begin_ = 0;
    end_ = count;
  }

  // Lets go of `count` bytes that were read where they lie.
  void Skip(size_t count) { begin_ += std::min(count, end_ - begin_); }
  // Copies as much as there is room for; gives the bytes copied.
  size_t Read(std::span<uint8_t> out) {
    const size_t count = std::min(out.size(), end_ - begin_);
    if (count != 0) std::memcpy(out.data(), block_.get() + begin_, count);
    begin_ += count;
    return count;
  }

  // A stream that was never read ahead of, or not since it was trimmed, has no block.
  bool HasBlock() const { return block_ != nullptr; }
  // Gives the memory back, if it is empty.
  void Trim() {
    if (!IsEmpty()) return;
    block_.reset();
    begin_ = end_ = 0;
  }

 private:
  std::unique_ptr<uint8_t[]> block_;
  size_t begin_ = 0;
  size_t end_ = 0;
};

}  // namespace libzel
