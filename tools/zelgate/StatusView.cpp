#include "StatusView.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "Journal.h"
#include "Subjects.h"

namespace zelgate {
namespace {

constexpr const char* kUnserved = "unserved";

StatusLine LineOf(const std::string& token, const DeviceTable::Row& row,
                  const std::set<std::string>& holders) {
  StatusLine line;
  line.id = DeviceOfToken(token).value_or(token);
  if (row.finding) {
    line.name = row.finding->name;
    line.serial = row.finding->serial;
    line.address = row.finding->address;
    for (const std::string& twin : row.finding->twins) {
      line.why += (line.why.empty() ? "several have this identifier: at " : " and ") + twin;
    }
  }
  const bool isServed = row.link && holders.contains(row.link->servedBy);
  line.link = isServed ? NameOf(row.link->state) : kUnserved;
  if (!isServed) return line;
  line.since = row.link->since;
  line.servedBy = row.link->servedBy;
  if (line.why.empty()) line.why = row.link->why;
  return line;
}

using Cells = std::array<std::string, 7>;

Cells CellsOf(const StatusLine& line) {
  return {line.id,    Printable(line.name),     Printable(line.address), line.link,
          line.since, Printable(line.servedBy), Printable(line.why)};
}

// Characters, not bytes, of UTF-8.
size_t WidthOf(const std::string& text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string Counted(size_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : thing.ends_with("s") ? "es" : "s");
}

}  // namespace

std::vector<StatusLine> StatusOf(const DeviceTable& table, const std::set<std::string>& holders) {
  std::vector<StatusLine> lines;
  for (const auto& [token, row] : table.Rows()) lines.push_back(LineOf(token, row, holders));
  const auto number = [](const StatusLine& line) {
    // Numbers in the order of numbers: 10.0.0.9 before 10.0.0.10.
    std::array<int, 6> numbers{};
    size_t at = 0;
    for (const char letter : line.id) {
      if (letter == '.') {
        at = std::min<size_t>(at + 1, 5);
      } else {
        numbers[at] = numbers[at] * 10 + (letter - '0');
      }
    }
    return numbers;
  };
  std::sort(lines.begin(), lines.end(),
            [&](const StatusLine& left, const StatusLine& right) { return number(left) < number(right); });
  return lines;
}

std::string SummaryOf(const std::string& site, const std::vector<StatusLine>& lines, size_t processes) {
  std::map<std::string, size_t> counts;
  for (const StatusLine& line : lines) ++counts[line.link];
  std::string text = "site " + site + ": " + Counted(lines.size(), "device");
  for (const char* const state : {"up", "connecting", "twins", "refused", kUnserved}) {
    if (counts[state] != 0) text += ", " + std::to_string(counts[state]) + " " + state;
  }
  if (processes == 0) return text + "; no process serves them: start zelgate run";
  return text + "; " + Counted(processes, "process") + (processes == 1 ? " serves" : " serve") + " them";
}

std::string TableOf(const std::vector<StatusLine>& lines) {
  std::vector<Cells> rows = {{"DEVICE", "NAME", "ADDRESS", "LINK", "SINCE", "SERVED BY", "WHY"}};
  for (const StatusLine& line : lines) rows.push_back(CellsOf(line));
  std::array<size_t, std::tuple_size_v<Cells>> widths{};
  for (const Cells& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], WidthOf(row[i]));
  }
  std::string text;
  for (const Cells& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i)
      line += row[i] + std::string(widths[i] - WidthOf(row[i]) + 2, ' ');
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string SentenceOf(const StatusLine& line) {
  std::string text = line.id;
  if (!line.name.empty()) text += " (" + Printable(line.name) + ")";
  text += " is " + line.link;
  if (!line.since.empty()) text += " since " + line.since;
  if (!line.servedBy.empty()) text += ", served by " + Printable(line.servedBy);
  if (!line.why.empty()) text += ": " + Printable(line.why);
  return text;
}

std::string JsonOf(const StatusLine& line) {
  const nlohmann::ordered_json object = {
      {"id", line.id},     {"name", line.name},   {"serial", line.serial},     {"address", line.address},
      {"link", line.link}, {"since", line.since}, {"servedBy", line.servedBy}, {"why", line.why}};
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace zelgate
