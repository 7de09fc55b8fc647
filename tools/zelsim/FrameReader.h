// Cuts a byte stream into frames; knows no socket.
//
// Use: read into Space(), tell Commit() how much came, then call Next() until it stops giving frames. The
// buffer grows with what has arrived, never to what a header announces. A frame stays valid until the next
// Space().
#pragma once

#include <memory>
#include <span>

#include "Frame.h"

namespace zelsim {

class FrameReader {
 public:
  enum class Status { kNeedMore, kFrame, kBadLength };

  FrameReader();

  std::span<uint8_t> Space();
  void Commit(size_t count) { end_ += count; }
  Status Next();
  // True when bytes of a further frame are already here.
  bool HasMore() const { return end_ != begin_; }

  // The frame that the last Next() found; after kBadLength only the header counts.
  const Header& CurrentHeader() const { return header_; }
  ByteView CurrentBody() const { return body_; }

 private:
  size_t Buffered() const { return end_ - begin_; }
  void MakeRoom();

  std::unique_ptr<uint8_t[]> bytes_;
  size_t capacity_;
  size_t begin_ = 0;
  size_t end_ = 0;
  Header header_;
  ByteView body_;
};

}  // namespace zelsim
