// Arguments that several commands share.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

#include "Patience.h"
#include "Text.h"

namespace zeltool {

CLI::Option* AddDevice(CLI::App& command, std::string& device);

// --timeout, --connect-timeout, --retry and --wait-online.
void AddPatience(CLI::App& command, Patience& patience, const std::string& timeoutDescription);

// Takes decimals and, after "0x", hexadecimal numbers up to `limit`.
CLI::Option* AddNumber(CLI::App& command, const std::string& name, uint32_t& value, uint32_t limit,
                       const std::string& description);
// Takes a number that may have a fraction.
CLI::Option* AddReal(CLI::App& command, const std::string& name, double& value, double least, double most,
                     const std::string& description);

// What is sent: TEXT, --hex, --file, or standard input for "-".
struct PayloadSource {
  std::string text;
  std::string hex;
  std::string file;
  bool hasHex = false;
};
void AddPayload(CLI::App& command, PayloadSource& source);
// Throws UsageFailure when it cannot be read, or has more than `limit` bytes.
Bytes ReadPayload(const PayloadSource& source, size_t limit);

// The size of a file that is about to be read. Throws UsageFailure when it cannot be read, or has more than
// `limit` bytes; `what` does not fit then.
uint64_t CheckFile(const std::string& path, uint64_t limit, const std::string& what);

}  // namespace zeltool
