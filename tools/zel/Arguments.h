// Arguments that several commands share.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

#include "Text.h"

namespace zeltool {

// The time that a device has to tell its identifier.
constexpr int32_t kAskTimeoutMs = 1000;

CLI::Option* AddDevice(CLI::App& command, std::string& device);

// Takes decimals and, after "0x", hexadecimal numbers up to `limit`.
CLI::Option* AddNumber(CLI::App& command, const std::string& name, uint32_t& value, uint32_t limit,
                       const std::string& description);

// What is sent: TEXT, --hex, --file, or standard input for "-".
struct PayloadSource {
  std::string text;
  std::string hex;
  std::string file;
  bool hasHex = false;
};
void AddPayload(CLI::App& command, PayloadSource& source);
// Throws UsageFailure when it cannot be read.
Bytes ReadPayload(const PayloadSource& source);

}  // namespace zeltool
