#include "DirectAnswer.h"

#include <algorithm>

#include "AnswerRule.h"

namespace zelsim {
namespace {

constexpr uint16_t kIdentityPort = 101;
constexpr uint16_t kReadCmd = 1;
constexpr uint32_t kReadGroup = 0x1000;
constexpr uint32_t kReadOffset = 0x1001;
constexpr uint16_t kWriteCmd = 5;
constexpr uint32_t kWriteGroup = 0x1001;
constexpr uint32_t kWriteOffset = 0x1002;
constexpr uint32_t kInvalidLength = 0x1004;

struct Outcome {
  uint32_t error = 0;
  Bytes payload;
};

bool Asks(const Request& request, uint16_t cmd, uint32_t group, uint32_t offset) {
  return request.port == kIdentityPort && request.cmd == cmd && request.idGroup == group &&
         request.idOffset == offset;
}

Outcome WriteIdentifier(const Request& request, Device& device) {
  if (request.payload.size() != kDeviceIdSize) return {.error = kInvalidLength, .payload = {}};
  std::copy(request.payload.begin(), request.payload.end(), device.id.begin());
  return {};
}

Outcome Carry(const Request& request, Device& device) {
  if (Asks(request, kReadCmd, kReadGroup, kReadOffset)) {
    return {.error = 0, .payload = Bytes(device.id.begin(), device.id.end())};
  }
  if (Asks(request, kWriteCmd, kWriteGroup, kWriteOffset)) return WriteIdentifier(request, device);
  return {.error = 0, .payload = Bytes(request.payload.begin(), request.payload.end())};
}

// Keeps the plan, the request's number and the answer together while one fault after the other is applied.
class DirectShaper {
 public:
  DirectShaper(const FaultPlan& plan, uint64_t request) : plan_(plan), request_(request) {}

  DirectAnswer Shape(AnswerHead head, Bytes payload) {
    if (Use(FaultKind::kUdpSilent, "udp-silent")) return std::move(answer_);
    if (const Fault* raw = Use(FaultKind::kUdpRaw, "udp-raw")) {
      answer_.bytes = raw->bytes;
    } else {
      BendContent(head, payload);
      answer_.bytes = EncodeAnswer(head, payload);
      BendLength();
    }
    if (const Fault* delay = Use(FaultKind::kUdpDelay, "udp-delay")) {
      answer_.delayMs = static_cast<uint32_t>(delay->first);
    }
    return std::move(answer_);
  }

 private:
  const Fault* Use(FaultKind kind, const char* name) {
    const Fault* fault = plan_.Find(kind, request_);
    if (fault == nullptr) return nullptr;
    if (!answer_.faults.empty()) answer_.faults += ',';
    answer_.faults += name;
    return fault;
  }

  void BendContent(AnswerHead& head, Bytes& payload) {
    if (const Fault* error = Use(FaultKind::kUdpError, "udp-error")) {
      head.error = static_cast<uint32_t>(error->first);
      payload.clear();
    }
    if (const Fault* invoke = Use(FaultKind::kUdpInvoke, "udp-invoke")) {
      head.invokeId += static_cast<uint32_t>(invoke->first);
    }
    if (const Fault* size = Use(FaultKind::kUdpSize, "udp-size")) payload = CountingBytes(size->first);
    if (const Fault* oversize = Use(FaultKind::kUdpOversize, "udp-oversize")) {
      payload = CountingBytes(std::max<size_t>(oversize->first, kAnswerOverhead) - kAnswerOverhead);
    }
  }

  void BendLength() {
    Bytes& bytes = answer_.bytes;
    if (const Fault* cut = Use(FaultKind::kUdpShort, "udp-short")) {
      bytes.resize(std::min<size_t>(bytes.size(), cut->first));
      if (bytes.size() >= kHeaderSize) PutLe(&bytes[4], static_cast<uint32_t>(bytes.size() - kHeaderSize));
    }
    const Fault* length = Use(FaultKind::kUdpLength, "udp-length");
    if (length == nullptr || bytes.size() < kHeaderSize) return;
    if (length->first == kSwapLength) {
      std::reverse(bytes.begin() + 4, bytes.begin() + kHeaderSize);
    } else {
      PutLe(&bytes[4], static_cast<uint32_t>(length->first));
    }
  }

  const FaultPlan& plan_;
  const uint64_t request_;
  DirectAnswer answer_;
};

}  // namespace

std::optional<Request> ReadDirectRequest(ByteView datagram) {
  if (datagram.size() < kHeaderSize) return std::nullopt;
  const Header header = ReadHeader(datagram);
  if (header.bodyLength != datagram.size() - kHeaderSize) return std::nullopt;
  return ParseRequest(header, datagram.subspan(kHeaderSize));
}

DirectAnswer AnswerDirectRequest(const FaultPlan& plan, const Request& request, Device& device) {
  Outcome outcome = Carry(request, device);
  return DirectShaper(plan, device.requests)
      .Shape(AnswerTo(request, outcome.error), std::move(outcome.payload));
}

}  // namespace zelsim
