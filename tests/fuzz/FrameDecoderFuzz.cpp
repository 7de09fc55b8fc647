// Any bytes as a stream, cut at any places: the frames are the same as those of the stream in one piece, no
// byte is lost or taken twice, and memory grows with what came.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "zelcomm/FrameDecoder.h"

namespace {

constexpr uint32_t kLongest = 70000;

void Require(bool holds) {
  if (!holds) std::abort();
}

// Feeds the decoder in pieces whose sizes the first bytes say; gives the bytes taken.
size_t Feed(libzel::FrameDecoder& decoder, std::span<const uint8_t> stream, std::span<const uint8_t> cuts) {
  size_t at = 0;
  for (size_t i = 0; decoder.verdict() == libzel::FrameDecoder::Verdict::kMore && at < stream.size(); ++i) {
    const auto room = decoder.Room();
    Require(!room.empty());
    const size_t most = cuts.empty() ? stream.size() : size_t{cuts[i % cuts.size()]} + 1;
    const size_t count = std::min({room.size(), most, stream.size() - at});
    std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(at), count, room.begin());
    decoder.Took(count);
    at += count;
  }
  return at;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> input(data, size);
  const auto cuts = input.first(std::min<size_t>(size, 4));
  auto stream = input.subspan(cuts.size());
  libzel::FrameDecoder decoder;
  while (!stream.empty()) {
    const uint32_t held = stream[0] % 3 == 0 ? stream[0] : UINT32_MAX;
    const auto whole = libzel::FrameDecoder::Whole(stream, kLongest);
    decoder.Begin({.longestBody = kLongest, .heldBody = held});
    const size_t taken = Feed(decoder, stream, cuts);
    Require(whole.has_value() == (decoder.verdict() == libzel::FrameDecoder::Verdict::kFrame));
    if (whole) {
      const auto frame = decoder.frame();
      Require(taken == libzel::kZelHeaderSize + whole->body.size());
      Require(frame.header.port == whole->header.port &&
              frame.body.size() == std::min<size_t>(held, whole->body.size()));
      Require(std::equal(frame.body.begin(), frame.body.end(), whole->body.begin()));
    } else if (decoder.verdict() == libzel::FrameDecoder::Verdict::kMore) {
      Require(taken == stream.size());
      if (!decoder.HasHeader()) decoder.EndHeader();
    } else {
      Require(taken == libzel::kZelHeaderSize);
    }
    stream = stream.subspan(taken);
  }
  return 0;
}
