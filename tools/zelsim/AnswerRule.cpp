#include "AnswerRule.h"

#include "Text.h"

namespace zelsim {
namespace {

using Kind = AnswerRule::Kind;

std::optional<AnswerRule> ParseErrorRule(const std::vector<std::string_view>& parts) {
  const auto code = ParseNumber(parts[1], UINT32_MAX);
  const auto size = parts.size() == 3 ? ParseNumber(parts[2], kMaxBody - kZoeSize) : 0;
  if (!code || !size) return std::nullopt;
  return AnswerRule{.kind = Kind::kError, .error = static_cast<uint32_t>(*code), .size = *size};
}

std::optional<AnswerRule> ParseNumberRule(std::string_view name, std::string_view text) {
  const auto number = ParseNumber(text, kMaxBody - kZoeSize);
  if (!number) return std::nullopt;
  if (name == "size") return AnswerRule{.kind = Kind::kSize, .size = *number};
  if (name == "delay") return AnswerRule{.kind = Kind::kDelay, .delayMs = static_cast<uint32_t>(*number)};
  return std::nullopt;
}

}  // namespace

std::optional<AnswerRule> ParseAnswerRule(std::string_view text) {
  const auto parts = Split(text, ':');
  if (text == "echo") return AnswerRule{};
  if (text == "silent") return AnswerRule{.kind = Kind::kSilent};
  if (parts[0] == "error" && (parts.size() == 2 || parts.size() == 3)) return ParseErrorRule(parts);
  if (parts.size() == 2) return ParseNumberRule(parts[0], parts[1]);
  return std::nullopt;
}

bool AnswerRules::Add(std::string_view text) {
  const auto sides = SplitOnce(text, '=');
  if (!sides) return false;
  const auto rule = ParseAnswerRule(sides->second);
  const auto port = ParsePort(sides->first);
  if (!rule || (!port && sides->first != "*")) return false;
  (port ? byPort_[*port] : otherwise_) = *rule;
  return true;
}

const AnswerRule& AnswerRules::For(uint16_t port) const {
  const auto found = byPort_.find(port);
  return found == byPort_.end() ? otherwise_ : found->second;
}

Bytes CountingBytes(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

}  // namespace zelsim
