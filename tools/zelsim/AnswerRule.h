// What a port answers (--answer PORT=RULE).
#pragma once

#include <map>
#include <optional>
#include <string_view>

#include "Frame.h"

namespace zelsim {

struct AnswerRule {
  enum class Kind { kEcho, kSize, kError, kSilent, kDelay };
  Kind kind = Kind::kEcho;
  uint32_t error = 0;    // kError: the error word
  size_t size = 0;       // kSize, kError: payload bytes, the byte at position i is i mod 256
  uint32_t delayMs = 0;  // kDelay: how long the echo waits
};

// "echo", "size:N", "error:CODE", "error:CODE:N", "silent" or "delay:MS".
std::optional<AnswerRule> ParseAnswerRule(std::string_view text);

// Rules by port, with one rule for all other ports.
class AnswerRules {
 public:
  // "PORT=RULE" or "*=RULE" for every port without a rule of its own.
  bool Add(std::string_view text);
  const AnswerRule& For(uint16_t port) const;

 private:
  std::map<uint16_t, AnswerRule> byPort_;
  AnswerRule otherwise_;
};

// `size` bytes counting up from 0 modulo 256.
Bytes CountingBytes(size_t size);

}  // namespace zelsim
