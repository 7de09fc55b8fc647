// Cuts a stream of bytes into frames. It takes the bytes as they come and knows no socket, log, lock or clock; what is
// too long is the caller's to say. Not for use by several threads at once.
//
//   decoder.Begin({kMaxReceivedBody});
//   while (decoder.verdict() == FrameDecoder::Verdict::kMore) decoder.Took(Receive(decoder.Room()));
//
// A body is held in a block that grows with the bytes that arrive, never with what a header announces, and that is kept
// for the next one.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "zelcomm/Frame.h"

namespace libzel {

// A frame: its header, and as much of its body as is held.
struct FrameView {
  ZelHeader header;
  std::span<const uint8_t> body;

  bool IsWhole() const { return body.size() == header.nMsgLen; }
};

class FrameDecoder {
 public:
  struct Limits {
    uint32_t longestBody = UINT32_MAX;  // a longer one, and one of 0 bytes, is a bad length
    uint32_t heldBody = UINT32_MAX;     // bytes of a body that are held; the rest is read and let go
  };
  enum class Verdict { kMore, kFrame, kBadLength };

  // The frame at the front of `bytes`, where it lies; nothing unless all of it is there and its length is good.
  static std::optional<FrameView> Whole(std::span<const uint8_t> bytes, uint32_t longestBody);

  // The same, with as much of its body as is there, whatever its length; nothing without a whole header.
  static std::optional<FrameView> Front(std::span<const uint8_t> bytes);

  // Begins with a new frame.
  void Begin(const Limits& limits);
  // For the rest of a frame that has begun.
  void SetLongestBody(uint32_t longestBody);
  // Where the next bytes of the stream belong: never empty while more is wanted, never more than the frame's own.
  std::span<uint8_t> Room();
  // Takes in that `count` bytes were put into the room.
  void Took(size_t count);
  // Says that the header stays as short as it is: what is missing counts as 0.
  void EndHeader();

  Verdict verdict() const { return verdict_; }
  bool HasHeader() const { return headerSize_ == kZelHeaderSize; }
  uint32_t headerSize() const { return headerSize_; }  // bytes of the header so far
  uint32_t bodySize() const { return bodySize_; }      // bytes of the body so far, held or not
  ZelHeader header() const { return ZelHeader::Read(header_.data()); }
  FrameView frame() const { return {header(), {block_.get(), std::min(bodySize_, limits_.heldBody)}}; }

  // Gives the memory back.
  void Trim();

 private:
  void Judge();
  void Grow(uint32_t wanted);

  Limits limits_;
  Verdict verdict_ = Verdict::kMore;
  std::array<uint8_t, kZelHeaderSize> header_{};
  uint32_t headerSize_ = 0;
  uint32_t bodySize_ = 0;
  std::unique_ptr<uint8_t[]> block_;
  uint32_t capacity_ = 0;
  std::unique_ptr<uint8_t[]> letGo_;  // where bytes go that are not held
};

}  // namespace libzel
