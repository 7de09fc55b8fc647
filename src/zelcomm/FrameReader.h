// Reads the frames of one link, one at a time: it waits, receives and decodes. Each thread that reads has a reader of its
// own; the frames of one link are shared out whole among them.
//
// A header that came in pieces is waited for as long as the pieces follow one another quickly enough, so that a boundary
// between two segments inside a header costs nothing. Or nothing is waited for inside a frame: what has come of it then
// stays with the link, and whoever reads next goes on with it. Time-outs are in ms; negative ones are 0.
#pragma once

#include <cstdint>

#include "zelcomm/FrameDecoder.h"
#include "zelcomm/SocketLink.h"

namespace libzel {

class FrameReader {
 public:
  enum class Outcome {
    kFrame,        // frame() is good until the next read
    kNothing,      // another reader was quicker, or has the link's turn; or the frame is not whole yet
    kClosed,       // the connection ended in front of a frame or in its header
    kBadLength,    // also of a short header whose length cannot be good
    kShortHeader,  // its bytes are lost
    kShortBody,    // its bytes are lost; also when the connection ended inside it
    kFailed,       // the system gave another error
  };
  struct Terms {
    FrameDecoder::Limits limits;
    int64_t turnMs;       // how long to wait for another reader's frame to end
    int64_t allMs;        // for everything
    int64_t headerGapMs;  // between two pieces of a header
    int64_t bodyMs;       // for all of the body
    // Where they are not 0: of silence, after which a frame that stays with the link counts as short.
    int64_t headerSilenceMs = 0;
    int64_t bodySilenceMs = 0;
  };

  // Reads the next frame of a link that has something to read.
  Outcome Read(SocketLink& link, const Terms& terms);

  FrameView frame() const { return frame_; }
  // Of what was no frame.
  ZelHeader header() const { return decoder_.header(); }         // as far as it came; the rest is 0
  uint32_t headerSize() const { return decoder_.headerSize(); }  // bytes of it that came
  uint32_t bodySize() const { return bodySize_; }  // bytes that came; 0 when the connection ended inside

  // Gives the memory back.
  void Trim() { decoder_.Trim(); }

 private:
  static constexpr auto kNotQuiet = CondVar::Clock::time_point::max();

  Outcome ReadInPieces(SocketLink& link, const Terms& terms);
  void Begin(SocketLink& link, const Terms& terms) ZEL_REQUIRES(link.frameMutex());
  bool Leave(SocketLink& link, int64_t silenceMs) ZEL_REQUIRES(link.frameMutex());
  Outcome ReadHeader(SocketLink& link, const Terms& terms, int64_t allMs) ZEL_REQUIRES(link.frameMutex());
  Outcome ReadBody(SocketLink& link, int64_t timeoutMs);
  Outcome ReadBodySoFar(SocketLink& link, const Terms& terms) ZEL_REQUIRES(link.frameMutex());
  void Took(size_t count);

  FrameDecoder decoder_;
  FrameView frame_;
  uint32_t bodySize_ = 0;
  CondVar::Clock::time_point quietSince_ = kNotQuiet;  // since when nothing came of a frame
};

}  // namespace libzel
