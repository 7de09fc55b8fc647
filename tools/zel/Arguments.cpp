#include "Arguments.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "Failure.h"
#include "Opening.h"
#include "Path.h"
#include "platform/Console.h"

namespace zeltool {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { (void)std::fclose(file); }
};

constexpr const char* kOneMessage = "fit into one message";

[[noreturn]] void RefuseLong(const std::string& name, uint64_t limit, const std::string& what) {
  throw UsageFailure(name + " is too long: at most " + std::to_string(limit) + " bytes " + what);
}

[[noreturn]] void RefuseFile(const std::string& what, const std::string& name,
                             const std::error_code& problem) {
  throw UsageFailure(what + " " + name + ": " + problem.message());
}

std::error_code LastProblem() { return {errno, std::generic_category()}; }

using File = std::unique_ptr<std::FILE, FileCloser>;

File Open(const std::string& path) {
  File file(OpenFile(path, "rb"));
  if (!file) RefuseFile("cannot open", path, LastProblem());
  return file;
}

// What has no size, such as a pipe or a device, is read until it has too much.
Bytes ReadAll(std::FILE* file, const std::string& name, size_t limit) {
  Bytes bytes;
  std::array<uint8_t, 65536> part{};
  size_t count = 0;
  while ((count = std::fread(part.data(), 1, part.size(), file)) > 0) {
    if (count > limit - bytes.size()) RefuseLong(name, limit, kOneMessage);
    bytes.insert(bytes.end(), part.begin(), part.begin() + static_cast<ptrdiff_t>(count));
  }
  if (std::ferror(file) != 0) RefuseFile("cannot read", name, LastProblem());
  return bytes;
}

Bytes ReadFile(const std::string& path, size_t limit) {
  std::error_code unknown;
  const auto size = std::filesystem::file_size(PathFrom(path), unknown);
  if (!unknown && size > limit) RefuseLong(path, limit, kOneMessage);
  return ReadAll(Open(path).get(), path, limit);
}

}  // namespace

CLI::Option* AddDevice(CLI::App& command, std::string& device) {
  return command.add_option("DEVICE", device, "Identifier, address, host name, or its own name")
      ->required()
      ->check(CheckDevice)
      ->type_name("");
}

void AddPatience(CLI::App& command, Patience& patience, const std::string& timeoutDescription) {
  const auto inMilliseconds = CLI::Range(1, 3600000).description("");
  command.add_option("-t,--timeout", patience.timeoutMs, timeoutDescription)
      ->check(inMilliseconds)
      ->type_name("MS");
  command.add_option("--connect-timeout", patience.connectMs, "Time to connect; 1500 if not given")
      ->check(inMilliseconds)
      ->type_name("MS");
  AddNumber(command, "--retry", patience.retries, 1000000,
            "Try so often again when it is not found or reached");
  command.add_flag("--wait-online", patience.isEndless, "Try again until it is reached");
}

CLI::Option* AddNumber(CLI::App& command, const std::string& name, uint32_t& value, uint32_t limit,
                       const std::string& description) {
  const auto take = [&value, limit, name](const std::string& text) {
    const auto number = ParseNumber(text, limit);
    if (!number) {
      throw CLI::ValidationError(name, "'" + text + "' is no number from 0 to " + std::to_string(limit));
    }
    value = static_cast<uint32_t>(*number);
  };
  return command.add_option_function<std::string>(name, take, description)->type_name("N");
}

CLI::Option* AddReal(CLI::App& command, const std::string& name, double& value, double least, double most,
                     const std::string& description) {
  const auto take = [&value, least, most, name](const std::string& text) {
    const auto number = ParseReal(text);
    if (!number || *number < least || *number > most) {
      throw CLI::ValidationError(name,
                                 "'" + text + "' is no number from " + Brief(least) + " to " + Brief(most));
    }
    value = *number;
  };
  return command.add_option_function<std::string>(name, take, description);
}

void AddPayload(CLI::App& command, PayloadSource& source) {
  auto* text =
      command.add_option("TEXT", source.text, "What to send; - reads it from standard input")->type_name("");
  auto* hex =
      command
          .add_option_function<std::string>(
              "--hex",
              [&source](const std::string& digits) {
                source.hex = digits;
                source.hasHex = true;
              },
              "Send these bytes, as in \"01 02 ff\"")
          ->type_name("DIGITS")
          ->check([](const std::string& digits) {
            return ParseHex(digits) ? std::string() : "'" + digits + "' is not pairs of hexadecimal digits";
          });
  auto* file = command.add_option("-f,--file", source.file, "Send what is in this file")->type_name("FILE");
  text->excludes(hex)->excludes(file);
  hex->excludes(file);
}

uint64_t CheckFile(const std::string& path, uint64_t limit, const std::string& what) {
  std::error_code problem;
  const auto size = std::filesystem::file_size(PathFrom(path), problem);
  if (problem) RefuseFile("cannot read", path, problem);
  if (size > limit) RefuseLong(path, limit, what);
  (void)Open(path);
  return size;
}

Bytes ReadPayload(const PayloadSource& source, size_t limit) {
  if (source.hasHex) return *ParseHex(source.hex);
  if (!source.file.empty()) return ReadFile(source.file, limit);
  if (source.text != "-") return ToBytes(source.text);
  ReadInputAsBytes();
  return ReadAll(stdin, "standard input", limit);
}

}  // namespace zeltool
