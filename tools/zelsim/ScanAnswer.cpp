#include "ScanAnswer.h"

#include <algorithm>

namespace zelsim {
namespace {

Bytes EncodeScan(const ScanHeader& header, std::string_view text) {
  Bytes bytes(kScanHeaderSize + text.size());
  bytes[0] = header.type;
  PutBe(&bytes[1], header.reserved);
  PutBe(&bytes[5], header.timestamp);
  std::copy(text.begin(), text.end(), bytes.begin() + kScanHeaderSize);
  return bytes;
}

// Text that is not UTF-8 is sent with replacement characters.
std::string Dump(const Json& document) {
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Calls the function for every element of "frames" that is an object.
template <typename Function>
void ForEachFrame(Json& document, Function function) {
  const auto frames = document.find("frames");
  if (frames == document.end() || !frames->is_array()) return;
  for (Json& frame : *frames) {
    if (frame.is_object()) function(frame);
  }
}

// Makes a number of the member, wherever in the document it has its place.
void MakeNumber(Json& document, const std::string& name) {
  if (name == "device" || name == "frames") {
    document[name] = 17;
  } else if (name == "frameIp" || name == "frameMacAddr") {
    ForEachFrame(document, [&name](Json& frame) { frame[name] = 17; });
  } else if (document["device"].is_object()) {
    document["device"][name] = 17;
  }
}

// Keeps the plan, the request and the answer together while one fault after the other is applied.
class ScanShaper {
 public:
  ScanShaper(const FaultPlan& plan, uint64_t request) : plan_(plan), request_(request) {}

  ScanAnswer Shape(Json document, uint32_t timestamp) {
    if (Use(FaultKind::kScanSilent, "scan-silent")) return std::move(answer_);
    ScanHeader header{.type = kScanAnswer, .timestamp = timestamp};
    if (const Fault* type = Use(FaultKind::kScanType, "scan-type"))
      header.type = static_cast<uint8_t>(type->first);
    if (const Fault* reserved = Use(FaultKind::kScanReserved, "scan-reserved")) {
      header.reserved = static_cast<uint32_t>(reserved->first);
    }
    BendDocument(document);
    answer_.bytes = EncodeScan(header, Text(document));
    Cut();
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

  void BendDocument(Json& document) {
    if (!document.is_object()) return;
    if (const Fault* member = Use(FaultKind::kScanMember, "scan-member")) {
      MakeNumber(document, std::string(member->bytes.begin(), member->bytes.end()));
    }
    if (Use(FaultKind::kScanNoMac, "scan-no-mac")) {
      ForEachFrame(document, [](Json& frame) { frame.erase("frameMacAddr"); });
    }
    if (const Fault* oversize = Use(FaultKind::kScanOversize, "scan-oversize"))
      Pad(document, oversize->first);
  }

  // Lengthens one text so that the datagram has the size; a document that is longer already stays.
  void Pad(Json& document, uint64_t size) {
    document["padding"] = "";
    const size_t own = kScanHeaderSize + Dump(document).size();
    if (own < size) document["padding"] = std::string(size - own, 'x');
  }

  std::string Text(const Json& document) {
    if (Use(FaultKind::kScanHeader, "scan-header")) return {};
    if (Use(FaultKind::kScanNotJson, "scan-not-json")) return "{this is no json";
    if (Use(FaultKind::kScanNotObject, "scan-not-object")) return "[1,2,3]";
    const Fault* text = Use(FaultKind::kScanText, "scan-text");
    return text != nullptr ? std::string(text->bytes.begin(), text->bytes.end()) : Dump(document);
  }

  void Cut() {
    if (const Fault* cut = Use(FaultKind::kScanShort, "scan-short")) {
      answer_.bytes.resize(std::min<size_t>(answer_.bytes.size(), cut->first));
    }
    if (const Fault* raw = Use(FaultKind::kScanRaw, "scan-raw")) answer_.bytes = raw->bytes;
  }

  const FaultPlan& plan_;
  const uint64_t request_;
  ScanAnswer answer_;
};

}  // namespace

std::optional<ScanHeader> ReadScanHeader(ByteView bytes) {
  if (bytes.size() < kScanHeaderSize) return std::nullopt;
  return ScanHeader{
      .type = bytes[0], .reserved = GetBe<uint32_t>(&bytes[1]), .timestamp = GetBe<uint32_t>(&bytes[5])};
}

ScanAnswer BuildScanAnswer(const FaultPlan& plan, uint64_t request, Json document, uint32_t timestamp) {
  return ScanShaper(plan, request).Shape(std::move(document), timestamp);
}

}  // namespace zelsim
