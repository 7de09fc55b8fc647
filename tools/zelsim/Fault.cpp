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
  uint64_t secondDefault;
};

constexpr KindRow kKinds[] = {
    {"split", FaultKind::kSplit, 1, 2, kDefaultSplitGapUs},
    {"short", FaultKind::kShort, 1, 1, 0},
    {"body", FaultKind::kBody, 1, 1, 0},
    {"length", FaultKind::kLength, 1, 1, 0},
    {"invoke", FaultKind::kInvoke, 1, 1, 0},
    {"version", FaultKind::kVersion, 1, 1, 0},
    {"close", FaultKind::kClose, 1, 1, 0},
    {"reset", FaultKind::kReset, 1, 1, 0},
    {"stall", FaultKind::kStall, 1, 1, 0},
    {"garbage", FaultKind::kGarbage, 1, 2, 1},
    {"raw", FaultKind::kRaw, 1, 1, 0},
    {"greet", FaultKind::kGreet, 1, 1, 0},
    {"cut", FaultKind::kCut, 1, 1, 0},
    {"pause", FaultKind::kPause, 2, 2, 0},
};

std::optional<uint64_t> ParseArgument(FaultKind kind, std::string_view text) {
  if (kind == FaultKind::kLength && text == "zero") return 0;
  if (kind == FaultKind::kLength && text == "oversize") return kOversize;
  return ParseNumber(text, UINT32_MAX);
}

bool HoldsBytes(FaultKind kind) { return kind == FaultKind::kRaw || kind == FaultKind::kGreet; }

bool ReadArguments(const KindRow& row, std::string_view text, Fault& fault) {
  fault.kind = row.kind;
  fault.second = row.secondDefault;
  if (HoldsBytes(row.kind)) {
    auto bytes = ParseBytes(text);
    if (bytes) fault.bytes = std::move(*bytes);
    return bytes.has_value();
  }
  const auto parts = Split(text, ':');
  if (parts.size() < row.leastArguments || parts.size() > row.mostArguments) return false;
  const auto first = ParseArgument(row.kind, parts[0]);
  const auto second = parts.size() > 1 ? ParseNumber(parts[1], UINT32_MAX) : row.secondDefault;
  if (!first || !second || (row.kind == FaultKind::kSplit && *first == 0)) return false;
  fault.first = *first;
  fault.second = *second;
  return true;
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
  const auto sides = SplitOnce(text, ':');
  if (!sides) return std::nullopt;
  for (const KindRow& row : kKinds) {
    if (row.name != sides->first) continue;
    if (!ReadArguments(row, sides->second, fault)) return std::nullopt;
    return fault;
  }
  return std::nullopt;
}

FaultPlan::FaultPlan(const std::vector<Fault>& all, std::string_view where, uint64_t connection) {
  for (const Fault& fault : all) {
    const bool here = fault.where.empty() || fault.where == where;
    if (here && (fault.connection == 0 || fault.connection == connection)) faults_.push_back(fault);
  }
}

const Fault* FaultPlan::Find(FaultKind kind, uint64_t frame) const {
  for (const Fault& fault : faults_) {
    if (fault.kind == kind && frame >= fault.fromFrame && frame <= fault.toFrame) return &fault;
  }
  return nullptr;
}

const Fault* FaultPlan::Find(FaultKind kind) const {
  for (const Fault& fault : faults_) {
    if (fault.kind == kind) return &fault;
  }
  return nullptr;
}

}  // namespace zelsim
