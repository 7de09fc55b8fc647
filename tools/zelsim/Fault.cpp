#include "Fault.h"

#include "Text.h"

namespace zelsim {
namespace {

constexpr uint64_t kDefaultSplitGapUs = 200;
constexpr uint64_t kOversize = 0xA00000;

struct KindRow {
  std::string_view name;
  FaultKind kind;
  size_t leastArguments;
  size_t mostArguments;
  uint64_t firstDefault;
  uint64_t secondDefault;
};

constexpr KindRow kKinds[] = {
    {"split", FaultKind::kSplit, 1, 2, 0, kDefaultSplitGapUs},
    {"short", FaultKind::kShort, 1, 1, 0, 0},
    {"body", FaultKind::kBody, 1, 1, 0, 0},
    {"length", FaultKind::kLength, 1, 1, 0, 0},
    {"invoke", FaultKind::kInvoke, 1, 1, 0, 0},
    {"version", FaultKind::kVersion, 1, 1, 0, 0},
    {"close", FaultKind::kClose, 1, 1, 0, 0},
    {"reset", FaultKind::kReset, 1, 1, 0, 0},
    {"stall", FaultKind::kStall, 1, 1, 0, 0},
    {"garbage", FaultKind::kGarbage, 1, 2, 0, 1},
    {"raw", FaultKind::kRaw, 1, 1, 0, 0},
    {"greet", FaultKind::kGreet, 1, 1, 0, 0},
    {"cut", FaultKind::kCut, 1, 1, 0, 0},
    {"pause", FaultKind::kPause, 2, 2, 0, 0},
    {"scan-silent", FaultKind::kScanSilent, 0, 0, 0, 0},
    {"scan-short", FaultKind::kScanShort, 0, 1, 8, 0},
    {"scan-header", FaultKind::kScanHeader, 0, 0, 0, 0},
    {"scan-type", FaultKind::kScanType, 0, 1, 3, 0},
    {"scan-reserved", FaultKind::kScanReserved, 0, 1, 1, 0},
    {"scan-not-json", FaultKind::kScanNotJson, 0, 0, 0, 0},
    {"scan-not-object", FaultKind::kScanNotObject, 0, 0, 0, 0},
    {"scan-member", FaultKind::kScanMember, 1, 1, 0, 0},
    {"scan-no-mac", FaultKind::kScanNoMac, 0, 0, 0, 0},
    {"scan-oversize", FaultKind::kScanOversize, 0, 1, 3000, 0},
    {"scan-text", FaultKind::kScanText, 1, 1, 0, 0},
    {"scan-raw", FaultKind::kScanRaw, 1, 1, 0, 0},
    {"udp-silent", FaultKind::kUdpSilent, 0, 0, 0, 0},
    {"udp-error", FaultKind::kUdpError, 1, 1, 0, 0},
    {"udp-invoke", FaultKind::kUdpInvoke, 0, 1, 1, 0},
    {"udp-length", FaultKind::kUdpLength, 1, 1, 0, 0},
    {"udp-short", FaultKind::kUdpShort, 0, 1, 20, 0},
    {"udp-oversize", FaultKind::kUdpOversize, 0, 1, 5000, 0},
    {"udp-size", FaultKind::kUdpSize, 1, 1, 0, 0},
    {"udp-delay", FaultKind::kUdpDelay, 1, 1, 0, 0},
    {"udp-raw", FaultKind::kUdpRaw, 1, 1, 0, 0},
    {"transfer-error", FaultKind::kTransferError, 1, 1, 0, 0},
    {"transfer-late", FaultKind::kTransferLate, 1, 1, 0, 0},
    {"transfer-short", FaultKind::kTransferShort, 0, 1, 1, 0},
    {"transfer-silent", FaultKind::kTransferSilent, 0, 0, 0, 0},
    {"transfer-close", FaultKind::kTransferClose, 0, 0, 0, 0},
};

std::optional<uint64_t> ParseArgument(FaultKind kind, std::string_view text) {
  const bool length = kind == FaultKind::kLength || kind == FaultKind::kUdpLength;
  if (length && text == "zero") return 0;
  if (kind == FaultKind::kLength && text == "oversize") return kOversize;
  if (kind == FaultKind::kUdpLength && text == "be") return kSwapLength;
  return ParseNumber(text, UINT32_MAX);
}

bool HoldsBytes(FaultKind kind) {
  return kind == FaultKind::kRaw || kind == FaultKind::kGreet || kind == FaultKind::kScanRaw ||
         kind == FaultKind::kUdpRaw;
}

bool HoldsText(FaultKind kind) { return kind == FaultKind::kScanText || kind == FaultKind::kScanMember; }

bool ReadBytes(std::optional<Bytes> bytes, Fault& fault) {
  if (bytes) fault.bytes = std::move(*bytes);
  return bytes.has_value();
}

bool ReadNumbers(const KindRow& row, const std::vector<std::string_view>& parts, Fault& fault) {
  if (parts.size() < row.leastArguments || parts.size() > row.mostArguments) return false;
  const auto first = parts.empty() ? row.firstDefault : ParseArgument(row.kind, parts[0]);
  const auto second = parts.size() > 1 ? ParseNumber(parts[1], UINT32_MAX) : row.secondDefault;
  if (!first || !second || (row.kind == FaultKind::kSplit && *first == 0)) return false;
  fault.first = *first;
  fault.second = *second;
  return true;
}

// `text` is what follows the kind's colon; nothing when there is no colon.
bool ReadArguments(const KindRow& row, std::optional<std::string_view> text, Fault& fault) {
  fault.kind = row.kind;
  if (text && HoldsBytes(row.kind)) return ReadBytes(ParseBytes(*text), fault);
  if (text && HoldsText(row.kind)) return ReadBytes(Bytes(text->begin(), text->end()), fault);
  return ReadNumbers(row, text ? Split(*text, ':') : std::vector<std::string_view>(), fault);
}

// "3", "3+" or "3-5".
bool ReadFrames(std::string_view text, Fault& fault) {
  const bool open = text.ends_with('+');
  if (open) text.remove_suffix(1);
  const auto range = SplitOnce(text, '-');
  const auto from = ParseNumber(range ? range->first : text);
  const auto to = range ? ParseNumber(range->second) : from;
  if (!from || !to || (open && range)) return false;
  fault.fromFrame = *from;
  fault.toFrame = open ? UINT64_MAX : *to;
  return true;
}

// Takes "@FRAMES" and "#CONNECTION" off the end. A file name behind '@' begins right after the kind's colon.
bool TakeSelectors(std::string_view& text, Fault& fault) {
  if (const size_t at = text.rfind('#'); at != text.npos) {
    const auto number = ParseNumber(text.substr(at + 1));
    if (!number) return false;
    fault.connection = *number;
    text = text.substr(0, at);
  }
  if (const size_t at = text.rfind('@'); at != text.npos && at > 0 && text[at - 1] != ':') {
    if (!ReadFrames(text.substr(at + 1), fault)) return false;
    text = text.substr(0, at);
  }
  return true;
}

}  // namespace

std::string TakeWhere(std::string_view& text) {
  const auto sides = SplitOnce(text, '=');
  if (!sides) return {};
  const auto address = sides->first.substr(0, sides->first.find(':'));
  if (!ParseAddress(address)) return {};
  text = sides->second;
  return std::string(sides->first);
}

std::optional<Fault> ParseFault(std::string_view text) {
  Fault fault;
  fault.where = TakeWhere(text);
  if (!TakeSelectors(text, fault)) return std::nullopt;
  const size_t colon = text.find(':');
  const std::string_view name = text.substr(0, colon);
  for (const KindRow& row : kKinds) {
    if (row.name != name) continue;
    const auto arguments = colon == text.npos ? std::nullopt : std::optional(text.substr(colon + 1));
    if (!ReadArguments(row, arguments, fault)) return std::nullopt;
    return fault;
  }
  return std::nullopt;
}

FaultFamily FamilyOf(FaultKind kind) {
  if (kind >= FaultKind::kTransferError) return FaultFamily::kTransfer;
  if (kind >= FaultKind::kUdpSilent) return FaultFamily::kUdp;
  return kind >= FaultKind::kScanSilent ? FaultFamily::kScan : FaultFamily::kTcp;
}

const Fault* FindFault(const std::vector<Fault>& faults, FaultKind kind, uint64_t number) {
  for (const Fault& fault : faults) {
    if (fault.kind == kind && number >= fault.fromFrame && number <= fault.toFrame) return &fault;
  }
  return nullptr;
}

FaultPlan::FaultPlan(const std::vector<Fault>& all, std::string_view where, uint64_t connection) {
  for (const Fault& fault : all) {
    const bool here = fault.where.empty() || fault.where == where;
    if (here && (fault.connection == 0 || fault.connection == connection)) faults_.push_back(fault);
  }
}

const Fault* FaultPlan::Find(FaultKind kind, uint64_t frame) const { return FindFault(faults_, kind, frame); }

const Fault* FaultPlan::Find(FaultKind kind) const {
  for (const Fault& fault : faults_) {
    if (fault.kind == kind) return &fault;
  }
  return nullptr;
}

}  // namespace zelsim
