#include "ShapedAnswer.h"

#include <algorithm>
#include <random>

namespace zelsim {
namespace {

// Keeps the plan, the frame and the answer together while one fault after the other is applied.
class Shaper {
 public:
  Shaper(const FaultPlan& plan, uint64_t frame) : plan_(plan), frame_(frame) {}

  ShapedAnswer Shape(const AnswerHead& head, ByteView payload) {
    if (const Fault* raw = Use(FaultKind::kRaw, "raw")) {
      answer_.bytes = raw->bytes;
    } else if (const Fault* garbage = Use(FaultKind::kGarbage, "garbage")) {
      answer_.bytes = PseudoRandomBytes(garbage->first, garbage->second + frame_);
    } else {
      BuildAnswer(head, payload);
      BendHeader();
      PutWrongOnesInFront(head, payload);
    }
    Cut();
    return std::move(answer_);
  }

 private:
  const Fault* Use(FaultKind kind, const char* name) {
    const Fault* fault = plan_.Find(kind, frame_);
    if (fault == nullptr) return nullptr;
    if (!answer_.faults.empty()) answer_.faults += ',';
    answer_.faults += name;
    return fault;
  }

  void BuildAnswer(const AnswerHead& head, ByteView payload) {
    answer_.bytes = EncodeAnswer(head, payload);
    if (const Fault* version = Use(FaultKind::kVersion, "version")) {
      if (version->first == 0) answer_.bytes = EncodeBare(head.port, payload);
      answer_.bytes[1] = static_cast<uint8_t>(version->first);
    }
  }

  void BendHeader() {
    Bytes& bytes = answer_.bytes;
    if (const Fault* body = Use(FaultKind::kBody, "body")) {
      bytes.resize(std::min<size_t>(bytes.size(), kHeaderSize + body->first));
      PutLe(&bytes[4], static_cast<uint32_t>(bytes.size() - kHeaderSize));
    }
    if (const Fault* length = Use(FaultKind::kLength, "length")) {
      PutLe(&bytes[4], static_cast<uint32_t>(length->first));
    }
    if (const Fault* shortened = Use(FaultKind::kShort, "short")) {
      bytes.resize(bytes.size() - std::min<size_t>(bytes.size(), shortened->first));
    }
    answer_.right = bytes;
  }

  void PutWrongOnesInFront(const AnswerHead& head, ByteView payload) {
    const Fault* invoke = Use(FaultKind::kInvoke, "invoke");
    if (invoke == nullptr) return;
    Bytes front;
    for (uint64_t i = 1; i <= invoke->first; ++i) {
      AnswerHead wrong = head;
      wrong.invokeId = head.invokeId + static_cast<uint32_t>(i);
      Append(front, EncodeAnswer(wrong, payload));
    }
    answer_.bytes.insert(answer_.bytes.begin(), front.begin(), front.end());
  }

  void Cut() {
    if (const Fault* cut = Use(FaultKind::kCut, "cut")) {
      answer_.bytes.resize(std::min<size_t>(answer_.bytes.size(), cut->first));
      answer_.closeAfter = true;
    }
    if (const Fault* pause = Use(FaultKind::kPause, "pause")) {
      answer_.pauseAfter = std::min<size_t>(answer_.bytes.size(), pause->first);
      answer_.pauseMs = static_cast<uint32_t>(pause->second);
    }
  }

  const FaultPlan& plan_;
  const uint64_t frame_;
  ShapedAnswer answer_;
};

}  // namespace

ShapedAnswer ShapeAnswer(const FaultPlan& plan, uint64_t frame, const AnswerHead& head, ByteView payload) {
  return Shaper(plan, frame).Shape(head, payload);
}

Bytes PseudoRandomBytes(size_t size, uint64_t seed) {
  std::mt19937_64 generator(seed);
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(generator());
  return bytes;
}

}  // namespace zelsim
