#include "RecordFile.h"

#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Failure.h"

namespace zeltool {
namespace {

Bytes DataOf(const nlohmann::json& object) {
  if (object.contains("text")) return ToBytes(object.at("text").get<std::string>());
  const bool isHex = object.contains("hex");
  const std::string digits = object.at(isHex ? "hex" : "base64").get<std::string>();
  const auto bytes = isHex ? ParseHex(digits) : ParseBase64(digits);
  if (!bytes) throw std::invalid_argument("the data cannot be read");
  return *bytes;
}

Message ReadPublication(const std::string& line) {
  const auto object = nlohmann::json::parse(line);
  Message message;
  message.topic = object.at("topic").get<std::string>();
  message.group = object.value("group", 0U);
  message.offset = object.value("offset", 0U);
  message.data = DataOf(object);
  const auto time = ParseTimeStamp(object.at("time").get<std::string>());
  if (!time) throw std::invalid_argument("the time cannot be read");
  message.time = *time;
  return message;
}

}  // namespace

std::optional<std::chrono::system_clock::time_point> ParseTimeStamp(const std::string& text) {
  int year = 0;
  unsigned month = 0;
  unsigned day = 0;
  int hour = 0;
  int minute = 0;
  double second = 0;
  int used = 0;
  // The field widths keep every number small.
  if (std::sscanf(text.c_str(), "%4d-%2u-%2uT%2d:%2d:%12lf%n", &year, &month, &day, &hour, &minute, &second,
                  &used) < 6)
    return std::nullopt;
  const std::string zone = text.substr(static_cast<size_t>(used));
  char sign = '+';
  int zoneHour = 0;
  int zoneMinute = 0;
  if (zone != "Z" && std::sscanf(zone.c_str(), "%c%2d:%2d", &sign, &zoneHour, &zoneMinute) != 3)
    return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                         std::chrono::day(day)};
  if (!date.ok()) return std::nullopt;
  const auto offset = std::chrono::minutes((sign == '-' ? -1 : 1) * (zoneHour * 60 + zoneMinute));
  const auto ofDay = std::chrono::hours(hour) + std::chrono::minutes(minute) - offset +
                     std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(second));
  return std::chrono::sys_days(date) + ofDay;
}

RecordFile::RecordFile(const std::string& path)
    : path_(path), file_(path == "-" ? "" : path, std::ios::binary), in_(path == "-" ? std::cin : file_) {
  if (path != "-" && !file_.is_open()) throw UsageFailure("cannot open " + path);
}

std::optional<Message> RecordFile::Next() {
  std::string text;
  do {
    if (!std::getline(in_, text)) return std::nullopt;
    ++line_;
  } while (text.find_first_not_of(" \t\r") == std::string::npos);
  try {
    return ReadPublication(text);
  } catch (const std::exception& problem) {
    throw UsageFailure(path_ + ", line " + std::to_string(line_) + ": " + problem.what());
  }
}

}  // namespace zeltool
