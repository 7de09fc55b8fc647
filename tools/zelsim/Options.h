// The command line.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "DeviceHost.h"
#include "FileService.h"
#include "RelayRule.h"
#include "Server.h"

namespace zelsim {

struct Options {
  ServerOptions server;
  DeviceOptions devices;
  FileOptions files;
  std::vector<RelayRule> relays;
  std::string trace;  // empty for none, "-" for standard output
};

// Reads the command line. Nothing when the program is to end at once (help, or a text that is not understood,
// which is explained on `errors`); `exitCode` then says how.
std::optional<Options> ParseOptions(int argc, const char* const* argv, std::ostream& out,
                                    std::ostream& errors, int& exitCode);

}  // namespace zelsim
