#include "RecordFile.h"

#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "Failure.h"
#include "Path.h"
#include "TimeStamp.h"

namespace zeltool {
namespace {

using Json = nlohmann::json;

[[noreturn]] void Refuse(const std::string& name, const std::string& what) {
  throw std::invalid_argument("\"" + name + "\" " + what);
}

std::string StringOf(const Json& object, const char* name) {
  if (!object.contains(name)) Refuse(name, "is missing");
  const Json& member = object.at(name);
  if (!member.is_string()) Refuse(name, "is no text");
  return member.get<std::string>();
}

uint32_t NumberOf(const Json& object, const char* name, uint32_t missing) {
  if (!object.contains(name)) return missing;
  const Json& member = object.at(name);
  if (!member.is_number_unsigned() || member.get<uint64_t>() > UINT32_MAX) {
    Refuse(name, "is no number from 0 to 4294967295");
  }
  return member.get<uint32_t>();
}

Bytes Decoded(const Json& object, const char* name) {
  const std::string text = StringOf(object, name);
  const auto bytes = std::string_view(name) == "hex" ? ParseHex(text) : ParseBase64(text);
  if (!bytes) Refuse(name, "cannot be decoded");
  return *bytes;
}

Bytes DataOf(const Json& object) {
  const auto count = object.count("text") + object.count("hex") + object.count("base64");
  if (count != 1)
    throw std::invalid_argument("the data are not given once, as \"text\", \"base64\" or \"hex\"");
  Bytes data = object.contains("text")  ? ToBytes(StringOf(object, "text"))
               : object.contains("hex") ? Decoded(object, "hex")
                                        : Decoded(object, "base64");
  if (NumberOf(object, "length", static_cast<uint32_t>(data.size())) != data.size()) {
    Refuse("length", "is not that of the data, " + std::to_string(data.size()));
  }
  return data;
}

std::string TopicOf(const Json& object) {
  std::string topic = object.contains("topicBase64") ? std::string(AsText(Decoded(object, "topicBase64")))
                                                     : StringOf(object, "topic");
  if (topic.find('\0') != std::string::npos) Refuse("topic", "has a zero byte");
  return topic;
}

std::chrono::system_clock::time_point TimeOf(const Json& object) {
  const auto time = ParseTimeStamp(StringOf(object, "time"));
  if (!time) Refuse("time", "is no time from 1970 to 2261, as in 2026-11-21T20:37:04.123Z");
  return *time;
}

Json ParseObject(const std::string& line) {
  try {
    Json object = Json::parse(line);
    if (object.is_object()) return object;
  } catch (const Json::parse_error& problem) {
    throw std::invalid_argument("no JSON, at byte " + std::to_string(problem.byte));
  }
  throw std::invalid_argument("no JSON object");
}

}  // namespace

std::optional<Message> ReadPublication(const std::string& line) {
  const Json object = ParseObject(line);
  if (object.contains("what") && object.contains("status")) return std::nullopt;
  Message message;
  message.topic = TopicOf(object);
  message.group = NumberOf(object, "group", 0);
  message.offset = NumberOf(object, "offset", 0);
  message.data = DataOf(object);
  message.time = TimeOf(object);
  return message;
}

RecordFile::RecordFile(const std::string& path)
    : name_(path == "-" ? "standard input" : path),
      file_(PathFrom(path == "-" ? "" : path), std::ios::binary),
      in_(path == "-" ? std::cin : file_) {
  if (path == "-") return;
  std::error_code problem;
  if (std::filesystem::is_directory(PathFrom(path), problem)) throw UsageFailure(path + " is a directory");
  if (!file_.is_open()) {
    throw UsageFailure("cannot open " + path + ": " + std::generic_category().message(errno));
  }
  if (std::filesystem::is_regular_file(PathFrom(path), problem)) Check();
}

void RecordFile::Check() {
  while (Next()) {
  }
  in_.clear();
  in_.seekg(0);
  line_ = 0;
}

// False at the end.
bool RecordFile::ReadLine(std::string& text) {
  while (std::getline(in_, text)) {
    ++line_;
    if (text.find_first_not_of(" \t\r") != std::string::npos) return true;
  }
  if (in_.bad()) throw UsageFailure("cannot read " + name_);
  return false;
}

std::optional<Message> RecordFile::Next() {
  std::string text;
  while (ReadLine(text)) {
    try {
      if (auto publication = ReadPublication(text)) return publication;
    } catch (const std::invalid_argument& problem) {
      throw UsageFailure(name_ + ", line " + std::to_string(line_) + ": " + problem.what());
    }
  }
  return std::nullopt;
}

}  // namespace zeltool
